#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "SimTestSupport.h"
#include "tools/sim/base/InputError.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/input/StrictJson.h"
#include "tools/sim/output/OutputFiles.h"
#include "tools/sim/sweep/Merge.h"
#include "tools/sim/sweep/Plan.h"

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

TEST(SweepTest, SettingsVaryingTogetherAreOneAxisTakingTheirValuesInStep) {
    // A setting may keep its value while another in its group changes.
    const SweepAxis lists =
        ParseAxis("stabilizer,gfps=25-30|30-35|40-45;stabilizer,sfps=0-25|0-30|0-30");
    EXPECT_EQ(lists.Text(), "stabilizer,gfps=25-30|30-35|40-45;stabilizer,sfps=0-25|0-30|0-30");
    const auto grid = ExpandGrid({ParseAxis("sfps_temperature,max_temperature=43|44"), lists});
    ASSERT_EQ(grid.size(), 6u);
    EXPECT_EQ(grid[1], (std::vector<std::string>{"sfps_temperature,max_temperature,43",
                                                 "stabilizer,gfps,30-35", "stabilizer,sfps,0-30"}));
    EXPECT_EQ(grid[3], (std::vector<std::string>{"sfps_temperature,max_temperature,44",
                                                 "stabilizer,gfps,25-30", "stabilizer,sfps,0-25"}));
    SweepDefinition definition;
    definition.axes = {lists, ParseAxis("sfps_temperature,max_temperature=43|44")};
    EXPECT_EQ(definition.Runs(), 6u);
}

TEST(SweepTest, GroupsOfUnevenListsRepeatedSettingsAndRepeatedRunsAreRefused) {
    try {
        ParseAxis("stabilizer,gfps=25-30|30-35;stabilizer,sfps=0-25");
        ADD_FAILURE() << "lists of 2 and 1 values were taken";
    } catch (const std::invalid_argument& error) {
        EXPECT_NE(std::string(error.what())
                      .find("stabilizer/gfps lists 2 values and "
                            "stabilizer/sfps 1"),
                  std::string::npos)
            << error.what();
    }
    for (const char* text : {"stabilizer,gfps=1|2;stabilizer,gfps=3|4", "a,b=1|1;c,d=2|2",
                             "a,b=1|2;", ";a,b=1", "a,b=1|2;c,d=3|", "a,b=1|2;c=3|4"}) {
        EXPECT_THROW(ParseAxis(text), std::invalid_argument) << text;
    }
    EXPECT_THROW(RefuseRepeatedSettings({ParseAxis("a,b=1|2;c,d=3|4"), ParseAxis("c,d=5")}),
                 std::invalid_argument);
    EXPECT_NO_THROW(RefuseRepeatedSettings({ParseAxis("a,b=1|2;c,d=3|4"), ParseAxis("a,d=5")}));
}

TEST(SweepTest, SweepJsonKeepsTheGroupsAndRefusesASettingVariedTwice) {
    ScratchDirectory scratch;
    SweepDefinition definition;
    definition.scenario = "game";
    definition.policy = "talvex";
    definition.axes = {ParseAxis("a,b=1|2"), ParseAxis("c,d=1|2|3;e,f=4|5|6")};
    definition.objective = "max render_fps";
    const std::string json = SweepJson(definition);
    WriteOutputFiles(scratch.path, {{"sweep.json", json}});
    const SweepDefinition read = ReadSweepJson(scratch.File("sweep.json"));
    ASSERT_EQ(read.axes.size(), 2u);
    EXPECT_EQ(read.axes[1].settings.size(), 2u);
    EXPECT_EQ(read.Runs(), 6u);
    EXPECT_EQ(SweepJson(read), json);

    std::string twice = json;
    twice.replace(twice.find("a,b="), 4, "e,f=");
    WriteOutputFiles(scratch.path, {{"sweep.json", twice}});
    EXPECT_THROW(ReadSweepJson(scratch.File("sweep.json")), InputError);
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
            "sfps_temperature,max_temperature," + definition.axes[0].settings[0].values[run - 1];
        std::ostringstream runJson;
        runJson << R"({"run": )" << run << R"(, "policy": "talvex", "settings": [")" << setting
                << R"("], "status": ")" << status << R"(", "message": ")" << message << "\"}";
        std::vector<std::pair<std::string, std::string>> files{{"run.json", runJson.str()}};
        if (status == "ok") {
            std::ostringstream report;
            report << R"({"scenario": "game", "display_fps": )" << meanFps
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
    SweepFolder folder(scratch.path, "max display_fps subject to peak_temperature_c <= 45");
    folder.Run(1, "ok", 50.25, 44.5);
    folder.Run(2, "refused", 0, 0, "the library refused it");
    folder.Run(3, "ok", 53.0, 45.0);
    const SweepResult result = MergeSweep({scratch.path}, scratch.path);

    EXPECT_EQ(
        ReadFile(scratch.File("sweep.csv")),
        "run,sfps_temperature/max_temperature,status,fps_stability,cadence_match,display_fps,"
        "display_interval_ms_p50,display_interval_ms_p99,slow_frames_50ms_share,"
        "slow_frames_34ms_share,jank_per_hour,big_jank_per_hour,latency_ms_p50,latency_ms_p99,"
        "render_fps,render_frame_ms_p50,render_frame_ms_p99,render_jank_per_min,"
        "peak_temperature_c,time_above_upper_bound_s,energy_j,mean_power_w,mean_cpu_mhz,"
        "mean_gpu_mhz,cpu_power_w,gpu_power_w,time_capped_s,peak_die_temperature_c,"
        "time_to_first_decrease_s,time_to_recover_s,sfps_changes_per_10min,"
        "sfps_reversals_per_10min,gfps_changes_per_10min\n"
        "1,44,ok,,,50.250,,,,,,,,,,,,,44.500,,7000.500,,,,,,,,,,,,\n"
        "2,45,refused,,,,,,,,,,,,,,,,,,,,,,,,,,,,,,\n"
        "3,46,ok,,,53.000,,,,,,,,,,,,,45.000,,7000.500,,,,,,,,,,,,\n");
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
    SweepFolder folder(scratch.path, "max render_fps subject to peak_temperature_c <= 44");
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
    SweepFolder a(first.path, "max display_fps");
    SweepFolder b(second.path, "max display_fps");
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
    SweepFolder other(second.path, "min display_fps");
    EXPECT_THROW(MergeSweep({first.path, second.path}, merged.path), InputError);
}

}  // namespace
}  // namespace TalvexSim
