#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <deque>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "talvex/basics/Conversions.h"

namespace {

using Basics::ContainerToString;
using Basics::ConvertStringToValue;
using Basics::SplitString;
using Basics::SplitStringToInt;
using Basics::ToString;
using Strings = std::vector<std::string>;

TEST(TextHelpers, ClassesSplittingAndCleaning) {
    // Membership tests only: "--5-" is an integer, "" is all three.
    EXPECT_TRUE(Basics::IsAllElementDigit("0123") && !Basics::IsAllElementDigit("-1"));
    EXPECT_TRUE(Basics::IsInteger("--5-") && !Basics::IsInteger("5.0"));
    EXPECT_TRUE(Basics::IsRealNumber("e.e") && !Basics::IsRealNumber("1E5"));
    for (auto test : {Basics::IsAllElementDigit, Basics::IsInteger, Basics::IsRealNumber}) {
        EXPECT_TRUE(test(""));
    }
    // As a line-reading loop gives them: empty inner pieces kept, none after a trailing
    // delimiter, none at all between spaces.
    const struct {
        const char* text;
        char delimiter;
        Strings pieces;
    } splits[] = {{"", '-', {}},          {"25--30", '-', {"25", "", "30"}},
                  {"-a", '-', {"", "a"}}, {"a-", '-', {"a"}},
                  {"--", '-', {"", ""}},  {"a  b", ' ', {"a", "b"}},
                  {"  a ", ' ', {"a"}},   {" x ", ',', {" x "}}};
    for (const auto& split : splits) {
        EXPECT_EQ(SplitString(split.text, split.delimiter), split.pieces) << split.text;
    }
    EXPECT_EQ(SplitStringToInt("25-30abc-40", '-'), (std::vector<int>{25, 30}));
    EXPECT_EQ(SplitStringToInt("99999999999-1", '-'), std::vector<int>{});
    EXPECT_EQ(Basics::StripSpecialCharactors("a\r\nb\n\tc\r"), "ab\tc");
    EXPECT_EQ(Basics::GetFileNameExtension("a.tar.gz"), "gz");
    EXPECT_EQ(Basics::GetFileNameExtension("noext"), "");
    EXPECT_EQ(Basics::GetFileNameExtension(".rc"), "rc");
    EXPECT_EQ(Basics::GetFileNameExtension("name."), "");
}

// Reads what a stream reads; what it cannot read throws invalid_argument with the source text.
TEST(ConvertStringToValue, ThrowsInvalidArgumentWithTheSourceText) {
    int i = 0;
    ConvertStringToValue("30fps", i);
    EXPECT_EQ(i, 30);
    try {
        ConvertStringToValue("abc", i);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(),
                     "\n\nError occur while ConvertStringToValue():\n"
                     "Cannot convert sourceString_ to targetValue_:\n\t sourceString_ = 'abc'\n");
    }
    bool b = false;
    EXPECT_THROW(ConvertStringToValue("2", b), std::invalid_argument);
    EXPECT_THROW(ConvertStringToValue("99999999999", i), std::invalid_argument);
}

// Text forms as the debug dumps embed them; a 0/0 NaN carries the sign bit on x86-64.
TEST(ToString, NumbersPairsAndContainers) {
    volatile float zero = 0.0f;
    EXPECT_EQ(ToString(zero / zero), "nan");
    EXPECT_EQ(ToString(1e6) + ToString(true), "1e+061");
    EXPECT_EQ(ContainerToString(std::map<int, unsigned int>{{60, 2}, {30, 1}}, 10),
              "\t[\n\t  (30, 1), (60, 2)\n\t]\n");
    EXPECT_EQ(ContainerToString(std::vector<int>(12, 1), 10),
              "\t[\n\t  1, 1, 1, 1, 1, 1, 1, 1, 1, 1, \n\t  1, 1\n\t]\n");
    EXPECT_EQ(ContainerToString(std::deque<std::string>{"a", "b"}, 1),
              "\t[\n\t  a, \n\t  b\n\t  \n\t]\n");
}

TEST(SaturatingTruncate, TruncatesTowardZeroAndSaturatesNanPerVariant) {
    const double nan = std::nan(""), inf = HUGE_VAL;
    const struct {
        double value;
        std::int32_t truncated;
    } rows[] = {{59.9, 59},
                {-59.9, -59},
                {2147483647.5, INT32_MAX},
                {2147483648.0, INT32_MAX},
                {-2147483648.5, INT32_MIN},
                {inf, INT32_MAX},
                {-inf, INT32_MIN}};
    for (const auto& row : rows) {
        EXPECT_EQ(Basics::SaturatingTruncate(row.value), row.truncated) << row.value;
        EXPECT_EQ(Basics::SaturatingTruncateNanToMinusOne(row.value), row.truncated) << row.value;
    }
    EXPECT_EQ(Basics::SaturatingTruncate(nan), 0);
    EXPECT_EQ(Basics::SaturatingTruncateNanToMinusOne(nan), -1);
}

}  // namespace
