#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "SimTestSupport.h"
#include "tools/sim/cli/CommandLine.h"
#include "tools/sim/input/Scenario.h"

namespace TalvexSim {
namespace {

using TalvexSimTest::ReadFile;
using TalvexSimTest::ScenarioText;
using TalvexSimTest::ScratchDirectory;

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

std::string drain(std::FILE* file) {
    std::rewind(file);
    std::string text;
    char buffer[4096];
    size_t read = 0;
    while ((read = std::fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, read);
    std::fclose(file);
    return text;
}

Outcome run(const std::vector<std::string>& arguments) {
    std::FILE* out = std::tmpfile();
    std::FILE* err = std::tmpfile();
    const int status = RunCommandLine(arguments, out, err);
    return {status, drain(out), drain(err)};
}

TEST(CommandLineTest, ARunWritesItsOutputsAndSummarizes) {
    ScratchDirectory scratch;
    const std::string scenario = scratch.Write("short.json", ScenarioText("", 20.0));
    const std::string folder = scratch.File("out");
    const Outcome outcome =
        run({scenario, "--out", folder, "--seed", "9", "--trace-frames", "all"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out.rfind("talvex-sim: short (seed 9)\n", 0), 0u) << outcome.out;
    EXPECT_NE(outcome.out.find("displayed FPS"), std::string::npos);
    EXPECT_NE(outcome.out.find("node writes                   efps_max "), std::string::npos);
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"chart.svg", "library.log", "report.json",
                                               "report.md", "timeline.csv", "trace.json"}));
    EXPECT_NE(outcome.out.find("FPS stability"), std::string::npos) << outcome.out;
    const std::string timeline = ReadFile(folder + "/timeline.csv");
    EXPECT_EQ(std::count(timeline.begin(), timeline.end(), '\n'), 21);

    // The same run again gives the same timeline, another seed another one.
    ASSERT_EQ(run({scenario, "--out", folder, "--seed", "9"}).status, 0);
    EXPECT_EQ(ReadFile(folder + "/timeline.csv"), timeline);
    ASSERT_EQ(run({scenario, "--out", folder, "--seed", "10", "--no-progress"}).status, 0);
    EXPECT_NE(ReadFile(folder + "/timeline.csv"), timeline);
}

TEST(CommandLineTest, BadInputExitsWithTwoNamesThePlaceAndWritesNothing) {
    ScratchDirectory scratch;
    const std::string folder = scratch.File("out");
    const std::string badJson = scratch.Write("bad.json", "{\n  \"duration_s\": 60,,\n}");
    const std::string badType = scratch.Write("type.json", ScenarioText("  \"seed\": \"x\",\n"));
    const std::string refused = scratch.Write(
        "refused.json", ScenarioText("", 20.0, R"({"param1": "stabilizer,gfps,abc"})"));
    const std::string good = scratch.Write("good.json", ScenarioText("", 20.0));
    const std::string badCsv = scratch.Write(
        "log.csv",
        "time_s,ofps,refresh_rate_hz,current_uA,cpu0,cpu1,cpu2,cpu3\n1,60,60,1,1,1,1,1\n");
    const struct {
        std::vector<std::string> arguments;
        std::string expected;
    } cases[] = {
        {{badJson, "--out", folder}, "talvex-sim: " + badJson + ":2:"},
        {{badType, "--out", folder}, "talvex-sim: " + badType + ":4:11: seed: expected an integer"},
        {{refused, "--out", folder},
         "talvex-sim: " + refused +
             ":5:35: config.param[0].param1: the library refused "
             "'stabilizer,gfps,abc'"},
        {{good, "--replay", badCsv, "--out", folder},
         "talvex-sim: " + badCsv + ":1: missing column 'temperature_mC'"},
        {{scratch.File("none.json"), "--out", folder}, "none.json: no such file"},
        {{"--seed", "-3"}, "talvex-sim: --seed takes a whole number, not '-3'\nTry"},
        {{"--trace-frames", "some"}, "--trace-frames takes changes, all or none"},
        {{"--frobnicate"}, "talvex-sim: unknown option --frobnicate"},
        {{"a.json", "b.json"}, "one scenario at a time"},
        {{"--out"}, "--out needs a value"},
        {{"--compare", "talvex,turbo"}, "--compare: 'turbo' is not a policy"},
        {{"--compare=fixed:4x"}, "--compare: 'fixed:4x' is not fixed:N"},
        {{"--compare", "none,none"}, "'none' is listed twice"},
        {{"--policy", "fixed:5"}, "--policy: 'fixed:5' is not fixed:N with N a whole number"},
        {{refused, "--compare", "governor,talvex", "--out", folder}, "the library refused"},
        {{"sweep", good, "--vary", "stabilizer,gfps=25-30|30-35;stabilizer,sfps=0-25", "--out",
          folder},
         "stabilizer/gfps lists 2 values and stabilizer/sfps 1"},
        {{"sweep", good, "--vary", "stabilizer,gfps=25-30|30-35;stabilizer,sfps=0-25|0-30",
          "--vary", "stabilizer,sfps=0-45", "--out", folder},
         "talvex-sim: sweep: stabilizer/sfps is varied twice"},
    };
    for (const auto& bad : cases) {
        const Outcome outcome = run(bad.arguments);
        EXPECT_EQ(outcome.status, 2) << bad.expected;
        EXPECT_EQ(outcome.err.rfind("talvex-sim: ", 0), 0u) << outcome.err;
        EXPECT_NE(outcome.err.find(bad.expected), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.out, "");
        EXPECT_FALSE(std::filesystem::exists(folder)) << bad.expected;
    }
}

TEST(CommandLineTest, CompareRunsEachPolicyOnTheSameFramesAndRerunsIdentically) {
    ScratchDirectory scratch;
    const std::string scenario = scratch.Write("short.json", ScenarioText("", 30.0));
    const std::string folder = scratch.File("out");
    const Outcome outcome =
        run({"--compare", "talvex,fixed:45,talvex+deadline,talvex+deadline-vsync", scenario,
             "--out", folder});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("fixed:45"), std::string::npos) << outcome.out;
    const std::string csv = ReadFile(folder + "/compare/compare.csv");
    EXPECT_EQ(csv.rfind("policy,fps_stability,cadence_match,display_fps,", 0), 0u) << csv;
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 5);
    EXPECT_NE(csv.find("\nfixed:45,"), std::string::npos);
    EXPECT_NE(csv.find("\ntalvex+deadline,"), std::string::npos);
    EXPECT_NE(csv.find("\ntalvex+deadline-vsync,"), std::string::npos);
    for (const char* file : {"compare.md", "compare.svg", "display-intervals.svg",
                             "talvex/report.json", "fixed-45/timeline.csv", "fixed-45/report.md"}) {
        EXPECT_TRUE(std::filesystem::exists(folder + "/compare/" + file)) << file;
    }
    // The cap of 45 is held: its report says so.
    const std::string report = ReadFile(folder + "/compare/fixed-45/report.json");
    EXPECT_NE(report.find("\"policy\" : \"fixed:45\""), std::string::npos) << report;
    ASSERT_EQ(run({scenario, "--compare", "talvex,fixed:45,talvex+deadline,talvex+deadline-vsync",
                   "--out", folder})
                  .status,
              0);
    EXPECT_EQ(ReadFile(folder + "/compare/compare.csv"), csv);
    EXPECT_EQ(ReadFile(folder + "/compare/fixed-45/report.json"), report);
}

TEST(CommandLineTest, UnwritableOutputExitsWithOne) {
    ScratchDirectory scratch;
    const std::string scenario = scratch.Write("short.json", ScenarioText("", 5.0));
    scratch.Write("file", "x");
    const Outcome outcome = run({scenario, "--out", scratch.File("file/out")});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err.rfind("talvex-sim: cannot create " + scratch.File("file/out"), 0), 0u)
        << outcome.err;
}

TEST(CommandLineTest, ReplayDefaultsItsOutputToTheLogName) {
    ScratchDirectory scratch;
    const std::string log =
        scratch.Write("session.csv",
                      "time_s,ofps,refresh_rate_hz,current_uA,cpu0,cpu1,cpu2,cpu3,temperature_mC\n"
                      "1,60,60,1000000,50,40,30,20,38000\n2,60,60,1000000,50,40,30,20,38000\n");
    const auto previous = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path);
    const Outcome outcome = run({"--replay", log});
    std::filesystem::current_path(previous);
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("replay of " + log), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("mean OFPS                     60.0"), std::string::npos);
    EXPECT_EQ(outcome.out.find("frame time"), std::string::npos);  // a replay has no frames
    const std::string timeline = ReadFile(scratch.File("out/session/timeline.csv"));
    EXPECT_NE(timeline.find("\n2.000,0,38.000,1000.000,60,60,60,-1,\"4321,-1,60\",0,,,\n"),
              std::string::npos)
        << timeline;
}

TEST(CommandLineTest, HelpAndTheDefaultScenarioText) {
    const Outcome help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("Usage: talvex-sim", 0), 0u);
    const Outcome printed = run({"--print-default"});
    EXPECT_EQ(printed.status, 0);
    EXPECT_EQ(LoadScenarioText(printed.out, "printed", "x").name, "default");
}

}  // namespace
}  // namespace TalvexSim
