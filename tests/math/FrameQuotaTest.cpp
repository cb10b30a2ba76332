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

TEST(CalculateQuota, DocumentedWindows) {
    struct Row {
        std::size_t count;
        float frameLength_s, fps, quota_s, remainder_s;
        int encrypted;
    } rows[] = {
        {0, 0.0f, 60.0f, 0.0f, 0.0f, 0},
        {1, 0.016f, 60.0f, 1.0f / 60 - 0.016f, 1.0f / 60 - 0.016f, 101},
        {10, 0.018f, 60.0f, -0.0133333f, -0.0133333f, 11313},
        {10, 0.031f, 60.0f, -0.1433333f, -0.0100000f, 19910},
        {10, 0.010f, 60.0f, 0.0666667f, 0.0f, 6700},
        {2, 0.020f, 59.0f, 2.0f / 59 - 0.04f, 2.0f / 59 - 0.04f, 10606},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.count << " x " << row.frameLength_s);
        const auto info =
            Math::CalculateQuota(std::deque<float>(row.count, row.frameLength_s), row.fps);
        EXPECT_NEAR(info.quota_s, row.quota_s, 1e-6);
        EXPECT_NEAR(std::fabs(info.remainder_s), std::fabs(row.remainder_s), 1e-6);
        EXPECT_EQ(std::signbit(info.remainder_s), std::signbit(info.quota_s));
        EXPECT_EQ(info.encryptedQuota, row.encrypted);
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
