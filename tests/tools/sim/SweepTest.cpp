#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "SimTestSupport.h"
#include "tools/sim/CommandLine.h"
#include "tools/sim/InputError.h"
#include "tools/sim/Objective.h"
#include "tools/sim/OutputFiles.h"
#include "tools/sim/Scenario.h"
#include "tools/sim/StrictJson.h"
#include "tools/sim/Sweep.h"
#include "tools/sim/SweepMerge.h"

namespace TalvexSim {
namespace {

using TalvexSimTest::ReadFile;
using TalvexSimTest::ScenarioText;
using TalvexSimTest::ScratchDirectory;

TEST(SweepTest, GridHasEveryCombinationWithTheLastAxisFastest) {
    const auto grid = ExpandGrid({ParseAxis("sfps_temperature,max_temperature=43|44"),
                                  ParseAxis("stabilizer,sfps=0-40|0-45|0-50")});
    ASSERT_EQ(grid.size(), 6u);
    EXPECT_EQ(grid[0], (std::vector<std::string>{"sfps_temperature,max_temperature,43",
                                                 "stabilizer,sfps,0-40"}));
    EXPECT_EQ(grid[1][1], "stabilizer,sfps,0-45");
    EXPECT_EQ(grid[5], (std::vector<std::string>{"sfps_temperature,max_temperature,44",
                                                 "stabilizer,sfps,0-50"}));
    EXPECT_TRUE(ExpandGrid({}).empty());
}

TEST(SweepTest, AxesThatCannotBeRecordsAreRefused) {
    for (const char* text :
         {"stabilizer=1|2", "stabilizer,sfps", "stabilizer,sfps=", "stabilizer,sfps=1||2",
          "stabilizer,sfps=1|1", "a,b,c=1", ",sfps=1", "stabilizer,sfps=1,2"}) {
        EXPECT_THROW(ParseAxis(text), std::invalid_argument) << text;
    }
    EXPECT_EQ(ParseAxis("stabilizer,sfps=0-45").Text(), "stabilizer,sfps=0-45");
}

// --- The objective --------------------------------------------------------------------------

const std::vector<std::string>& metrics() {
    static const std::vector<std::string> names = ReportMetricNames();
    return names;
}

TEST(ObjectiveTest, ParsesConstraintsWithAMetricOnEitherSide) {
    const Objective objective = ParseObjective(
        "max  mean_fps subject to peak_temperature_c <= 43 and 0.99 <= fps_stability and "
        "frame_ms_p99 < frame_ms_p50",
        metrics());
    EXPECT_EQ(objective.Text(),
              "max mean_fps subject to peak_temperature_c <= 43 and 0.99 <= fps_stability and "
              "frame_ms_p99 < frame_ms_p50");
    MetricValues run{{"mean_fps", 50.0},
                     {"peak_temperature_c", 43.0},
                     {"fps_stability", 0.995},
                     {"frame_ms_p50", 20.0},
                     {"frame_ms_p99", 19.0}};
    EXPECT_TRUE(objective.Meets(run));
    EXPECT_EQ(objective.Shortfall(run), 0.0);

    run["peak_temperature_c"] = 43.43;
    run["fps_stability"] = std::nullopt;
    EXPECT_FALSE(objective.Meets(run));
    EXPECT_EQ(objective.Misses(run),
              "peak_temperature_c 43.43 (needs peak_temperature_c <= 43); fps_stability null "
              "(needs 0.99 <= fps_stability)");
}

TEST(ObjectiveTest, RanksByItsMetricAndMeasuresMissesRelatively) {
    const Objective objective = ParseObjective(
        "min energy_j subject to peak_temperature_c <= 40 and fps_stability >= 0.5", metrics());
    const MetricValues cheap{
        {"energy_j", 10.0}, {"peak_temperature_c", 44.0}, {"fps_stability", 1.0}};
    const MetricValues dear{
        {"energy_j", 20.0}, {"peak_temperature_c", 41.0}, {"fps_stability", 0.45}};
    const MetricValues unknown{{"energy_j", std::nullopt}};
    EXPECT_TRUE(objective.Better(cheap, dear));
    EXPECT_FALSE(objective.Better(dear, cheap));
    EXPECT_TRUE(objective.Better(dear, unknown));
    EXPECT_FALSE(objective.Better(unknown, dear));
    // 4/44 against 1/41 + 0.05/0.5.
    EXPECT_NEAR(objective.Shortfall(cheap), 4.0 / 44.0, 1e-12);
    EXPECT_NEAR(objective.Shortfall(dear), 1.0 / 41.0 + 0.1, 1e-12);
}

TEST(ObjectiveTest, RefusalsNameTheProblem) {
    const std::vector<std::pair<const char*, const char*>> cases = {
        {"max mean_fpz", "unknown metric 'mean_fpz'"},
        {"max mean_fps subject to peak_temp <= 43", "unknown metric 'peak_temp'"},
        {"", "should follow"},
        {"mean_fps", "starts with max or min, not 'mean_fps'"},
        {"max", "the objective ends where a metric should follow 'max'"},
        {"max mean_fps with peak_temperature_c <= 43", "expected 'subject to'"},
        {"max mean_fps subject peak_temperature_c <= 43", "expected 'subject to'"},
        {"max mean_fps subject to peak_temperature_c = 43", "expected a comparison"},
        {"max mean_fps subject to peak_temperature_c <= 43 and", "should follow 'and'"},
        {"max mean_fps subject to peak_temperature_c <= 43 or jank_per_min < 1",
         "expected 'and' after '43', found 'or'"},
        {"max mean_fps subject to 1 < 2", "compares two numbers"},
        {"max mean_fps subject to peak_temperature_c <= (43)", "found '('"},
    };
    for (const auto& [text, expected] : cases) {
        try {
            ParseObjective(text, metrics());
            ADD_FAILURE() << "accepted: " << text;
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find(expected), std::string::npos)
                << text << " -> " << error.what();
        }
    }
}

TEST(ParetoTest, KeepsThePointsNoneBeatsCoolerAndFaster) {
    // (peak temperature, mean FPS)
    const std::vector<std::pair<double, double>> points = {
        {45.0, 52.0},  // 0: front
        {44.0, 50.0},  // 1: front, coolest
        {45.0, 51.0},  // 2: beaten by 0 (as hot, slower)
        {46.0, 55.0},  // 3: front, fastest
        {46.0, 52.0},  // 4: beaten by 0 (hotter, as fast)
        {45.0, 52.0},  // 5: equal to 0, kept
        {47.0, 54.0},  // 6: beaten by 3
    };
    EXPECT_EQ(ParetoFront(points), (std::vector<size_t>{1, 0, 5, 3}));
    EXPECT_TRUE(ParetoFront({}).empty());
}

// --- Merging run folders --------------------------------------------------------------------

// A sweep folder as workers leave it, written by hand: what merge reads and nothing else.
class SweepFolder {
  public:
    explicit SweepFolder(const std::string& directory_, const std::string& objective)
        : directory(directory_) {
        definition.scenario = "game";
        definition.policy = "talvex";
        definition.axes = {ParseAxis("sfps_temperature,max_temperature=44|45|46")};
        definition.objective = objective;
        WriteOutputFiles(directory, {{"sweep.json", SweepJson(definition)}});
    }

    void Run(size_t run, const std::string& status, double meanFps, double peak_C,
             const std::string& message = "") {
        const std::string setting =
            "sfps_temperature,max_temperature," + definition.axes[0].values[run - 1];
        std::ostringstream runJson;
        runJson << R"({"run": )" << run << R"(, "policy": "talvex", "settings": [")" << setting
                << R"("], "status": ")" << status << R"(", "message": ")" << message << "\"}";
        std::vector<std::pair<std::string, std::string>> files{{"run.json", runJson.str()}};
        if (status == "ok") {
            std::ostringstream report;
            report << R"({"scenario": "game", "mean_fps": )" << meanFps
                   << R"(, "peak_temperature_c": )" << peak_C
                   << R"(, "fps_stability": null, "energy_j": 7000.5})";
            files.emplace_back("report.json", report.str());
            files.emplace_back("config.json", "config of run " + std::to_string(run) + "\n");
        }
        WriteOutputFiles(RunFolder(directory, run, 3), files);
    }

    std::string directory;
    SweepDefinition definition;
};

TEST(SweepMergeTest, RowsKeepEveryOutcomeAndTheBestRunIsRecommended) {
    ScratchDirectory scratch;
    SweepFolder folder(scratch.path, "max mean_fps subject to peak_temperature_c <= 45");
    folder.Run(1, "ok", 50.25, 44.5);
    folder.Run(2, "refused", 0, 0, "the library refused it");
    folder.Run(3, "ok", 53.0, 45.0);
    const SweepResult result = MergeSweep({scratch.path}, scratch.path);

    EXPECT_EQ(ReadFile(scratch.File("sweep.csv")),
              "run,sfps_temperature/max_temperature,status,fps_stability,mean_fps,frame_ms_p50,"
              "frame_ms_p99,jank_per_min,peak_temperature_c,time_above_upper_bound_s,energy_j,"
              "mean_power_w,time_to_first_decrease_s,time_to_recover_s,sfps_changes_per_10min,"
              "sfps_reversals_per_10min,gfps_changes_per_10min\n"
              "1,44,ok,,50.250,,,,44.500,,7000.500,,,,,,\n"
              "2,45,refused,,,,,,,,,,,,,,\n"
              "3,46,ok,,53.000,,,,45.000,,7000.500,,,,,,\n");
    EXPECT_EQ(ReadFile(scratch.File("recommended.json")), "config of run 3\n");
    EXPECT_EQ(result.front, (std::vector<size_t>{0, 2}));
    const std::string md = ReadFile(scratch.File("sweep.md"));
    EXPECT_NE(md.find("Recommended: run 3 (max_temperature 46)"), std::string::npos) << md;
    EXPECT_NE(md.find("| 2 | max_temperature 45 | refused | the library refused it |"),
              std::string::npos);
    EXPECT_NE(ReadFile(scratch.File("pareto.svg")).find("run 2: refused"), std::string::npos);
}

TEST(SweepMergeTest, WithoutARunMeetingTheConstraintsTheClosestIsNamedAndNothingRecommended) {
    ScratchDirectory scratch;
    SweepFolder folder(scratch.path, "max mean_fps subject to peak_temperature_c <= 44");
    folder.Run(1, "ok", 50.0, 44.5);
    folder.Run(2, "ok", 53.0, 46.0);
    folder.Run(3, "failed", 0, 0, "killed by signal 11 (Segmentation fault)");
    WriteOutputFiles(scratch.path, {{"recommended.json", "from an earlier merge"}});

    const SweepResult result = MergeSweep({scratch.path}, scratch.path);
    EXPECT_TRUE(result.ranked.empty());
    ASSERT_TRUE(result.closest.has_value());
    EXPECT_EQ(*result.closest, 0u);
    EXPECT_FALSE(std::filesystem::exists(scratch.File("recommended.json")));
    EXPECT_NE(ReadFile(scratch.File("sweep.md"))
                  .find("The closest is run 1 (max_temperature 44): peak_temperature_c 44.5 "
                        "(needs peak_temperature_c <= 44)."),
              std::string::npos);
}

TEST(SweepMergeTest, RunsSpreadOverFoldersComeTogetherAndStrangersAreRefused) {
    ScratchDirectory first;
    ScratchDirectory second;
    SweepFolder a(first.path, "max mean_fps");
    SweepFolder b(second.path, "max mean_fps");
    a.Run(1, "ok", 50.0, 44.5);
    b.Run(3, "ok", 51.0, 44.0);
    ScratchDirectory merged;
    const SweepResult result = MergeSweep({first.path, second.path}, merged.path);
    EXPECT_EQ(result.Count("ok"), 2u);
    EXPECT_EQ(result.rows[1].status, "missing");
    EXPECT_EQ(ReadFile(merged.File("recommended.json")), "config of run 3\n");

    // A run folder of another sweep, and a folder of another sweep.
    WriteOutputFiles(RunFolder(second.path, 2, 3),
                     {{"run.json", R"({"run": 2, "policy": "talvex", "settings": ["x,y,1"],
                                       "status": "ok", "message": ""})"}});
    EXPECT_THROW(MergeSweep({first.path, second.path}, merged.path), InputError);
    SweepFolder other(second.path, "min mean_fps");
    EXPECT_THROW(MergeSweep({first.path, second.path}, merged.path), InputError);
}

// --- The program end to end -----------------------------------------------------------------

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
                                           "max mean_fps"};
    std::vector<std::string> direct = grid;
    direct.insert(direct.end(), {"--out", scratch.File("direct")});
    ASSERT_EQ(sweep(direct), 0);
    const std::string folder = scratch.File("direct/sweep");
    const std::string csv = ReadFile(folder + "/sweep.csv");
    EXPECT_NE(csvRow(csv, 1).find(",41,0-50,ok,"), std::string::npos) << csv;
    EXPECT_NE(csvRow(csv, 2).find(",41,0-abc,refused,"), std::string::npos) << csv;
    EXPECT_NE(ReadFile(folder + "/runs/002/run.json").find("the library refused"),
              std::string::npos);

    // The same sweep planned, its lines run one by one by a shell, then merged.
    std::vector<std::string> planned = grid;
    planned.insert(planned.end(),
                   {"--out", scratch.File("planned"), "--plan", scratch.File("plan.txt")});
    ASSERT_EQ(sweep(planned), 0);
    std::istringstream lines(ReadFile(scratch.File("plan.txt")));
    std::string line;
    size_t commands = 0;
    while (std::getline(lines, line)) {
        ASSERT_EQ(std::system(line.c_str()), 0) << line;
        ++commands;
    }
    EXPECT_EQ(commands, 4u);
    MergeSweep({scratch.File("planned/sweep")}, scratch.File("planned/sweep"));
    for (const char* file : {"sweep.csv", "sweep.md", "pareto.svg", "recommended.json"}) {
        EXPECT_EQ(ReadFile(scratch.File("planned/sweep/") + file), ReadFile(folder + "/" + file))
            << file;
    }

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

#endif

}  // namespace
}  // namespace TalvexSim
