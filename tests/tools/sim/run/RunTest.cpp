#include <gtest/gtest.h>
#include <json/json.h>

#include <string>
#include <vector>

#include "SimTestSupport.h"
#include "tools/sim/base/Text.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/output/SummaryText.h"
#include "tools/sim/run/Compare.h"
#include "tools/sim/run/SessionRun.h"

namespace TalvexSim {
namespace {

using TalvexSimTest::ParseJson;
using TalvexSimTest::ReadFile;
using TalvexSimTest::ScenarioText;
using TalvexSimTest::ScratchDirectory;

// The value of one line of the summary block, as printed.
std::string summaryValue(const std::string& summary, const std::string& label) {
    const std::string line = LabelLine(label, "");
    const size_t at = summary.find(line.substr(0, line.size() - 1));
    if (at == std::string::npos) return "<no line '" + label + "'>";
    const size_t start = at + line.size() - 1;
    return summary.substr(start, summary.find('\n', start) - start);
}

TEST(SessionRunTest, TheSummarySaysWhatReportJsonSays) {
    ScratchDirectory scratch;
    // Hot from the start, so that the SFPS comes down within the run.
    const Scenario scenario =
        LoadScenarioText(ScenarioText(R"("device": {"initial_c": 47, "ambient_c": 35},)"
                                      "\n",
                                      300.0),
                         "hot.json", "hot");
    SessionRequest request;
    request.scenario = &scenario;
    request.policy = ParsePolicy("talvex");
    OutputSet outputs(scratch.path);
    const SessionRecord record = RunSession(outputs, request);
    outputs.Commit();
    const Json::Value json = ParseJson(ReadFile(scratch.File("report.json")));
    const std::string summary = FormatSummary(record.report, {});

    ASSERT_TRUE(json["time_to_first_decrease_s"].isNumeric()) << summary;
    EXPECT_EQ(summaryValue(summary, "time to first SFPS decrease"),
              Fixed(json["time_to_first_decrease_s"].asDouble(), 0) + " s");
    EXPECT_EQ(summaryValue(summary, "rendered FPS"), Fixed(json["render_fps"].asDouble(), 1));
    EXPECT_EQ(summaryValue(summary, "displayed FPS"), Fixed(json["display_fps"].asDouble(), 1));
    EXPECT_EQ(summaryValue(summary, "displayed interval p50 / p99"),
              Fixed(json["display_interval_ms_p50"].asDouble(), 2) + " / " +
                  Fixed(json["display_interval_ms_p99"].asDouble(), 2) + " ms");
    EXPECT_EQ(summaryValue(summary, "rendered frame time p50 / p99"),
              Fixed(json["render_frame_ms_p50"].asDouble(), 2) + " / " +
                  Fixed(json["render_frame_ms_p99"].asDouble(), 2) + " ms");
    EXPECT_EQ(summaryValue(summary, "run").substr(0, summaryValue(summary, "run").find(" in ")),
              Fixed(json["simulated_s"].asDouble(), 0) + " s simulated");
    EXPECT_EQ(summaryValue(summary, "lowest SFPS"), std::to_string(*record.report.lowestSfps));
}

TEST(CompareTest, TheBoundLineIsTheOneInForceAtTheEndAsInEachRunsChart) {
    ScratchDirectory scratch;
    const Scenario scenario =
        LoadScenarioText(ScenarioText(R"("events": [{"at_s": 20, "type": "settings",)"
                                      R"( "param1": "sfps_temperature,max_temperature,43"}],)"
                                      "\n"),
                         "bound.json", "bound");
    SessionRequest request;
    request.scenario = &scenario;
    OutputSet outputs(scratch.path);
    std::vector<SessionRecord> records;
    for (const char* policy : {"talvex", "none"}) {
        request.policy = ParsePolicy(policy);
        request.folder = policy;
        records.push_back(RunSession(outputs, request));
    }
    WriteComparison(outputs, scenario, records);
    outputs.Commit();
    const std::string bound = "upper bound 43 \u00b0C";
    EXPECT_NE(ReadFile(scratch.File("talvex/chart.svg")).find(bound), std::string::npos);
    EXPECT_NE(ReadFile(scratch.File("compare.svg")).find(bound), std::string::npos);
    EXPECT_EQ(ReadFile(scratch.File("compare.svg")).find("upper bound 45"), std::string::npos);
}

}  // namespace
}  // namespace TalvexSim
