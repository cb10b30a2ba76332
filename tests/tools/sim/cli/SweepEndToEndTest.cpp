#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "SimTestSupport.h"
#include "tools/sim/cli/CommandLine.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/input/StrictJson.h"
#include "tools/sim/report/Metrics.h"
#include "tools/sim/sweep/Merge.h"
#include "tools/sim/sweep/SweepCommand.h"

namespace TalvexSim {
namespace {

using TalvexSimTest::ReadFile;
using TalvexSimTest::ScenarioText;
using TalvexSimTest::ScratchDirectory;

#ifdef TALVEX_SIM_EXECUTABLE

std::string csvRow(const std::string& csv, size_t run) {
    std::istringstream lines(csv);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.rfind(std::to_string(run) + ",", 0) == 0) return line;
    }
    return "";
}

int sweep(const std::vector<std::string>& arguments) {
    std::FILE* out = std::tmpfile();
    std::FILE* err = std::tmpfile();
    const int status = RunSweepCommand(arguments, out, err, TALVEX_SIM_EXECUTABLE);
    std::fclose(out);
    std::fclose(err);
    return status;
}

// Runs the plan's lines one by one through a shell; returns how many ran, 0 when one fails.
size_t runPlan(const std::string& path) {
    std::istringstream lines(ReadFile(path));
    std::string line;
    size_t commands = 0;
    while (std::getline(lines, line)) {
        if (std::system(line.c_str()) != 0) return 0;
        ++commands;
    }
    return commands;
}

// The same sweep planned, its lines run one by one by a shell, then merged, gives the direct
// sweep's files.
void expectPlanAgrees(const ScratchDirectory& scratch, const std::vector<std::string>& grid,
                      const std::string& folder, size_t runs) {
    std::vector<std::string> planned = grid;
    planned.insert(planned.end(),
                   {"--out", scratch.File("planned"), "--plan", scratch.File("plan.txt")});
    ASSERT_EQ(sweep(planned), 0);
    ASSERT_EQ(runPlan(scratch.File("plan.txt")), runs);
    MergeSweep({scratch.File("planned/sweep")}, scratch.File("planned/sweep"));
    for (const char* file : {"sweep.csv", "sweep.md", "pareto.svg", "recommended.json"}) {
        EXPECT_EQ(ReadFile(scratch.File("planned/sweep/") + file), ReadFile(folder + "/" + file))
            << file;
    }
}

TEST(SweepEndToEndTest, ASmallSweepItsPlanAndItsRecommendationAgree) {
    ScratchDirectory scratch;
    const std::string scenario = scratch.Write("short.json", ScenarioText("", 90.0));
    const std::vector<std::string> grid = {scenario,
                                           "--vary",
                                           "sfps_temperature,max_temperature=41|42",
                                           "--vary",
                                           "stabilizer,sfps=0-50|0-abc",
                                           "--jobs",
                                           "2",
                                           "--objective",
                                           "max render_fps"};
    std::vector<std::string> direct = grid;
    direct.insert(direct.end(), {"--out", scratch.File("direct")});
    ASSERT_EQ(sweep(direct), 0);
    const std::string folder = scratch.File("direct/sweep");
    const std::string csv = ReadFile(folder + "/sweep.csv");
    EXPECT_NE(csvRow(csv, 1).find(",41,0-50,ok,"), std::string::npos) << csv;
    EXPECT_NE(csvRow(csv, 2).find(",41,0-abc,refused,"), std::string::npos) << csv;
    EXPECT_NE(ReadFile(folder + "/runs/002/run.json").find("the library refused"),
              std::string::npos);

    expectPlanAgrees(scratch, grid, folder, 4);

    // The recommendation is a scenario's config as it stands, and reproduces its run's row.
    const std::string recommended = ReadFile(folder + "/recommended.json");
    const SweepResult result = MergeSweep({folder}, folder);
    ASSERT_FALSE(result.ranked.empty());
    const size_t best = result.rows[result.ranked.front()].run;
    const std::string text = ScenarioText("", 90.0);
    const std::string withConfig =
        text.substr(0, text.find("\"config\"")) + "\"config\": " + recommended + "}\n";
    EXPECT_EQ(OnlineConfigJson(LoadScenarioText(withConfig, "again.json", "short")), recommended);
    const std::string again = scratch.Write("again.json", withConfig);
    std::FILE* out = std::tmpfile();
    ASSERT_EQ(RunCommandLine({again, "--out", scratch.File("again")}, out, out), 0);
    std::fclose(out);
    const JsonDocument rerun(ReadFile(scratch.File("again/report.json")), "report.json");
    std::string cells;
    for (const std::string& name : ReportMetricNames()) {
        const Json::Value& value = rerun.Root()[name];
        char cell[64] = "";
        if (!value.isNull()) std::snprintf(cell, sizeof cell, "%.3f", value.asDouble());
        cells += std::string(",") + cell;
    }
    const std::string row = csvRow(csv, best);
    EXPECT_EQ(row.substr(row.find(",ok,") + 3), cells) << row;
}

TEST(SweepEndToEndTest, SettingsVaryingTogetherRunInStepAndThePlanAgrees) {
    ScratchDirectory scratch;
    const std::string scenario = scratch.Write("short.json", ScenarioText("", 60.0));
    const std::vector<std::string> grid = {
        scenario,
        "--vary",
        "sfps_temperature,max_temperature=41|42;stabilizer,sfps=0-50|0-abc",
        "--jobs",
        "2",
        "--objective",
        "max render_fps"};
    std::vector<std::string> direct = grid;
    direct.insert(direct.end(), {"--out", scratch.File("direct")});
    ASSERT_EQ(sweep(direct), 0);
    const std::string folder = scratch.File("direct/sweep");
    const std::string csv = ReadFile(folder + "/sweep.csv");
    EXPECT_NE(csvRow(csv, 1).find("1,41,0-50,ok,"), std::string::npos) << csv;
    EXPECT_NE(csvRow(csv, 2).find("2,42,0-abc,refused,"), std::string::npos) << csv;
    EXPECT_EQ(csvRow(csv, 3), "") << csv;

    expectPlanAgrees(scratch, grid, folder, 2);
}

#endif

}  // namespace
}  // namespace TalvexSim
