#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tools/sim/report/Metrics.h"
#include "tools/sim/report/Objective.h"

namespace TalvexSim {
namespace {

const std::vector<std::string>& metrics() {
    static const std::vector<std::string> names = ReportMetricNames();
    return names;
}

TEST(ObjectiveTest, ParsesConstraintsWithAMetricOnEitherSide) {
    const Objective objective = ParseObjective(
        "max  render_fps subject to peak_temperature_c <= 43 and 0.99 <= fps_stability and "
        "render_frame_ms_p99 < render_frame_ms_p50",
        metrics());
    EXPECT_EQ(objective.Text(),
              "max render_fps subject to peak_temperature_c <= 43 and 0.99 <= fps_stability and "
              "render_frame_ms_p99 < render_frame_ms_p50");
    MetricValues run{{"render_fps", 50.0},
                     {"peak_temperature_c", 43.0},
                     {"fps_stability", 0.995},
                     {"render_frame_ms_p50", 20.0},
                     {"render_frame_ms_p99", 19.0}};
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
        {"max render_fps subject to peak_temp <= 43", "unknown metric 'peak_temp'"},
        {"", "should follow"},
        {"render_fps", "starts with max or min, not 'render_fps'"},
        {"max", "the objective ends where a metric should follow 'max'"},
        {"max render_fps with peak_temperature_c <= 43", "expected 'subject to'"},
        {"max render_fps subject peak_temperature_c <= 43", "expected 'subject to'"},
        {"max render_fps subject to peak_temperature_c = 43", "expected a comparison"},
        {"max render_fps subject to peak_temperature_c <= 43 and", "should follow 'and'"},
        {"max render_fps subject to peak_temperature_c <= 43 or render_jank_per_min < 1",
         "expected 'and' after '43', found 'or'"},
        {"max render_fps subject to 1 < 2", "compares two numbers"},
        {"max render_fps subject to peak_temperature_c <= (43)", "found '('"},
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

}  // namespace
}  // namespace TalvexSim
