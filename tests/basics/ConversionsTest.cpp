#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <deque>
#include <limits>
#include <stdexcept>

#include "talvex/basics/Conversions.h"

namespace {

using Basics::ContainerToString;
using Basics::ConvertStringToValue;
using Basics::SplitString;
using Basics::SplitStringToInt;
using Basics::ToString;
using Strings = std::vector<std::string>;

TEST(CharacterClasses, TestMembershipOnly) {
    EXPECT_TRUE(Basics::IsAllElementDigit("0123"));
    EXPECT_FALSE(Basics::IsAllElementDigit("-1"));
    EXPECT_TRUE(Basics::IsInteger("--5-"));
    EXPECT_FALSE(Basics::IsInteger("5.0"));
    EXPECT_TRUE(Basics::IsRealNumber("e.e"));
    EXPECT_FALSE(Basics::IsRealNumber("1E5"));
    for (auto test : {Basics::IsAllElementDigit, Basics::IsInteger, Basics::IsRealNumber}) {
        EXPECT_TRUE(test(""));
    }
}

TEST(SplitString, FollowsTheLineReadingRules) {
    EXPECT_EQ(SplitString("", '-'), Strings{});
    EXPECT_EQ(SplitString("25--30", '-'), (Strings{"25", "", "30"}));
    EXPECT_EQ(SplitString("-a", '-'), (Strings{"", "a"}));
    EXPECT_EQ(SplitString("a-", '-'), (Strings{"a"}));
    EXPECT_EQ(SplitString("--", '-'), (Strings{"", ""}));
    EXPECT_EQ(SplitString("a,,b", ','), (Strings{"a", "", "b"}));
    EXPECT_EQ(SplitString("a  b", ' '), (Strings{"a", "b"}));
    EXPECT_EQ(SplitString("  a ", ' '), (Strings{"a"}));
    EXPECT_EQ(SplitString(" x ", ','), (Strings{" x "}));
}

TEST(SplitStringToInt, StopsAtTheFirstNonInteger) {
    EXPECT_EQ(SplitStringToInt("0-58-85", '-'), (std::vector<int>{0, 58, 85}));
    EXPECT_EQ(SplitStringToInt("25-x-30", '-'), (std::vector<int>{25}));
    EXPECT_EQ(SplitStringToInt("25-30abc-40", '-'), (std::vector<int>{25, 30}));
    EXPECT_EQ(SplitStringToInt("", '-'), std::vector<int>{});
    EXPECT_EQ(SplitStringToInt("99999999999-1", '-'), std::vector<int>{});
}

TEST(TextCleaning, StripsLineEndsAndFindsExtensions) {
    EXPECT_EQ(Basics::StripSpecialCharactors("a\r\nb\n\tc\r"), "ab\tc");
    EXPECT_EQ(Basics::GetFileNameExtension("a.tar.gz"), "gz");
    EXPECT_EQ(Basics::GetFileNameExtension("noext"), "");
    EXPECT_EQ(Basics::GetFileNameExtension(".rc"), "rc");
    EXPECT_EQ(Basics::GetFileNameExtension("name."), "");
}

TEST(ConvertStringToValue, ReadsLikeAStream) {
    int i = 0;
    ConvertStringToValue(" 42", i);
    EXPECT_EQ(i, 42);
    ConvertStringToValue("30fps", i);
    EXPECT_EQ(i, 30);
    ConvertStringToValue("25.5", i);
    EXPECT_EQ(i, 25);
    float f = 0;
    ConvertStringToValue("-1.25e1", f);
    EXPECT_FLOAT_EQ(f, -12.5f);
    bool b = false;
    ConvertStringToValue("1", b);
    EXPECT_TRUE(b);
    ConvertStringToValue("0", b);
    EXPECT_FALSE(b);
    unsigned int u = 0;
    ConvertStringToValue("4000000000", u);
    EXPECT_EQ(u, 4000000000u);
}

TEST(ConvertStringToValue, ThrowsInvalidArgumentWithTheSourceText) {
    int i = 0;
    try {
        ConvertStringToValue("abc", i);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(),
                     "\n\nError occur while ConvertStringToValue():\n"
                     "Cannot convert sourceString_ to targetValue_:\n\t sourceString_ = 'abc'\n");
    }
    bool b = false;
    float f = 0;
    EXPECT_THROW(ConvertStringToValue("", i), std::invalid_argument);
    EXPECT_THROW(ConvertStringToValue("true", b), std::invalid_argument);
    EXPECT_THROW(ConvertStringToValue("2", b), std::invalid_argument);
    EXPECT_THROW(ConvertStringToValue("99999999999", i), std::invalid_argument);
    EXPECT_THROW(ConvertStringToValue("x1", f), std::invalid_argument);
}

TEST(ToString, FormatsEveryInstance) {
    EXPECT_EQ(ToString(-5), "-5");
    EXPECT_EQ(ToString<long>(-262), "-262");
    EXPECT_EQ(ToString(7u), "7");
    EXPECT_EQ(ToString(1.0f / 60.0f), "0.0166667");
    EXPECT_EQ(ToString(1000.0f / 60.0f), "16.6667");
    EXPECT_EQ(ToString(1e6), "1e+06");
    EXPECT_EQ(ToString(std::numeric_limits<float>::infinity()), "inf");
    volatile float zero = 0.0f;
    EXPECT_EQ(ToString(zero / zero), "nan");
    EXPECT_EQ(ToString(std::nanf("")), "nan");
    EXPECT_EQ(ToString(true), "1");
    EXPECT_EQ(ToString(false), "0");
    EXPECT_EQ(ToString(std::string("text")), "text");
    EXPECT_EQ(ToString(std::pair<const int, unsigned int>(30, 5)), "(30, 5)");
}

TEST(ContainerToString, LaysOutTenPerLine) {
    EXPECT_EQ(ContainerToString(std::vector<int>{25, 30, 60}, 10), "\t[\n\t  25, 30, 60\n\t]\n");
    EXPECT_EQ(ContainerToString(std::vector<float>{}, 10), "\t[\n\t  \n\t]\n");
    EXPECT_EQ(ContainerToString(std::map<std::string, std::string>{{"a", "b"}}, 10),
              "\t[\n\t  (a, b)\n\t]\n");
    EXPECT_EQ(ContainerToString(std::map<int, unsigned int>{{60, 2}, {30, 1}}, 10),
              "\t[\n\t  (30, 1), (60, 2)\n\t]\n");
    EXPECT_EQ(ContainerToString(std::deque<float>{0.5f}, 10), "\t[\n\t  0.5\n\t]\n");
    std::vector<int> twelve(12, 1);
    EXPECT_EQ(ContainerToString(twelve, 10),
              "\t[\n\t  1, 1, 1, 1, 1, 1, 1, 1, 1, 1, \n\t  1, 1\n\t]\n");
    EXPECT_EQ(ContainerToString(std::vector<std::string>{"a", "b"}, 1),
              "\t[\n\t  a, \n\t  b\n\t  \n\t]\n");
}

TEST(GetKeyOfMaxValue, SmallestKeyAmongEqualMaxima) {
    EXPECT_EQ(Basics::GetKeyOfMaxValue({{30, 5}, {40, 9}, {60, 9}}), 40);
    EXPECT_EQ(Basics::GetKeyOfMaxValue({{30, 0}}), 30);
    try {
        Basics::GetKeyOfMaxValue({});
        FAIL() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(),
                     "\nError occur in GetKeyOfMaxValue(const DictionaryType& dictionary_):\n"
                     "\t The input Dictionary may be Empty!");
    }
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
