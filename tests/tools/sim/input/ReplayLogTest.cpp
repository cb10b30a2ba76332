#include <gtest/gtest.h>

#include <string>

#include "tools/sim/base/InputError.h"
#include "tools/sim/input/ReplayLog.h"

namespace TalvexSim {
namespace {

const char kHeader[] =
    "time_s,ofps,refresh_rate_hz,current_uA,cpu0,cpu1,cpu2,cpu3,temperature_mC\n";

std::string replayError(const std::string& text) {
    try {
        ParseReplayText(text, "log.csv");
    } catch (const InputError& error) {
        return error.what();
    }
    return "<parsed>";
}

TEST(ReplayLogTest, ColumnsMayComeInAnyOrderAndCaseWithBlankLinesAndCrLf) {
    const auto ticks = ParseReplayText(
        "\r\nTemperature_mC, cpu3,cpu2,cpu1,cpu0,current_uA,refresh_rate_hz,ofps,time_s\r\n"
        "45000,4,3,2,1,1500000,60,58,0.5\r\n"
        "\r\n"
        "4294967295,0,0,0,18446744073709551615,0,90,-1,0.5\n",
        "log.csv");
    ASSERT_EQ(ticks.size(), 2u);
    EXPECT_DOUBLE_EQ(ticks[0].time_s, 0.5);
    EXPECT_EQ(ticks[0].ofps, 58);
    EXPECT_EQ(ticks[0].refreshRate_Hz, 60);
    EXPECT_EQ(ticks[0].current_uA, 1500000u);
    EXPECT_EQ(ticks[0].cpuUtils[0], 1u);
    EXPECT_EQ(ticks[0].cpuUtils[3], 4u);
    EXPECT_EQ(ticks[0].temperature_mC, 45000u);
    // Extremes of each field's range, and an equal time, are accepted.
    EXPECT_EQ(ticks[1].temperature_mC, 4294967295u);
    EXPECT_EQ(ticks[1].cpuUtils[0], 18446744073709551615ULL);
    EXPECT_EQ(ticks[1].ofps, -1);
}

TEST(ReplayLogTest, FaultsNameTheFileLineColumnAndCell) {
    const struct {
        std::string text;
        const char* expected;
    } cases[] = {
        {"", "log.csv: empty"},
        {kHeader, "log.csv:1: no tick rows after the header"},
        {"time_s,ofps,refresh_rate_hz,current_uA,cpu0,cpu1,cpu2,cpu3\n1,60,60,1,1,1,1,1\n",
         "log.csv:1: missing column 'temperature_mC'"},
        {std::string("time_s,ofps,fps,refresh_rate_hz\n"), "log.csv:1:13: unknown column 'fps'"},
        {std::string("ofps,ofps\n"), "log.csv:1:6: column 'ofps' appears twice"},
        {std::string(kHeader) + "1,60,60,1,1,1,1\n", "log.csv:2: expected 9 cells, got 7"},
        {std::string(kHeader) + "1,abc,60,1,1,1,1,1,1\n",
         "log.csv:2:3: column 'ofps': 'abc' is not an integer"},
        {std::string(kHeader) + "1,60,60,1,1,1,1,1,\n",
         "log.csv:2:19: column 'temperature_mC': '' is not a whole number"},
        {std::string(kHeader) + "1,60,60,-5,1,1,1,1,1\n",
         "log.csv:2:9: column 'current_uA': '-5' is not a whole number"},
        {std::string(kHeader) + "1,60,60,4294967296,1,1,1,1,1\n",
         "column 'current_uA': '4294967296' is larger than 4294967295"},
        {std::string(kHeader) + "nan,60,60,1,1,1,1,1,1\n",
         "log.csv:2:1: column 'time_s': 'nan' is not a number"},
        {std::string(kHeader) + "1,60,0,1,1,1,1,1,1\n",
         "column 'refresh_rate_hz': '0' is out of range [1, 1000]"},
        {std::string(kHeader) + "2,60,60,1,1,1,1,1,1\n1.5,60,60,1,1,1,1,1,1\n",
         "log.csv:3:1: column 'time_s': '1.5' is earlier than the row before it"},
    };
    for (const auto& bad : cases) {
        const std::string message = replayError(bad.text);
        EXPECT_NE(message.find(bad.expected), std::string::npos) << message;
    }
}

TEST(ReplayLogTest, MissingFileIsAnInputError) {
    EXPECT_THROW(LoadReplayFile("/nonexistent/log.csv"), InputError);
}

}  // namespace
}  // namespace TalvexSim
