#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <limits>

#include "talvex/math/FrameQuota.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

TEST(EncryptQuotaToInt, PacksSignQuotaAndRemainder) {
    struct Row {
        float quota_s, remainder_s;
        int expected;
    } rows[] = {
        {0.0123f, 0.0013f, 1201},
        {-0.250f, -0.0083f, 19908},
        {-0.0f, 0.0f, 0},             // negative zero is not below zero
        {-0.0004f, -0.0004f, 10000},  // negative, but 0 ms
        {0.0996f, 0.0166f, 9917},     // 99.6 ms rounds to 100, clamped to 99
        {kNaN, kNaN, 0},              // not negative, 0 ms
        {-3.0e9f, -3.0e9f, 19999},    // beyond the int range: clamped, no overflow
    };
    for (const Row& row : rows) {
        const Math::QuotaInfo info{row.quota_s, row.remainder_s, 0};
        EXPECT_EQ(Math::EncryptQuotaToInt(info), row.expected) << row.quota_s;
    }
}

TEST(CalculateQuota, SumsInDoublePrecision) {
    // Summed in float, a million frames of 1e-7 s on top of 1 s would be lost entirely.
    std::deque<float> frameLengths_s(1000000, 1.0e-7f);
    frameLengths_s.push_front(1.0f);
    const float sum_s = static_cast<float>(1.0 + 1000000 * static_cast<double>(1.0e-7f));
    EXPECT_EQ(Math::CalculateQuota(frameLengths_s, 1.0e6f).quota_s, 1.0e-6f * 1000001.0f - sum_s);
}

}  // namespace
