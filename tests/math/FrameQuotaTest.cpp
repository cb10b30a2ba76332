#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <deque>
#include <limits>
#include <random>

#include "talvex/math/FrameLengthRing.h"
#include "talvex/math/FrameQuota.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

std::deque<float> frames(std::size_t count, float frameLength_s) {
    return std::deque<float>(count, frameLength_s);
}

TEST(EncryptQuotaToInt, PacksSignQuotaAndRemainderIntoFiveDigits) {
    struct Row {
        float quota_s, remainder_s;
        int expected;
    };
    const Row rows[] = {
        {0.0123f, 0.0013f, 1201},
        {-0.250f, -0.0083f, 19908},
        {0.0f, 0.0f, 0},
        {-0.0f, 0.0f, 0},             // negative zero is not below zero
        {-0.0004f, -0.0004f, 10000},  // negative, but rounds to 0 ms
        {0.0994f, 0.0006f, 9901},
        {0.0996f, 0.0166f, 9917},  // 99.6 ms rounds to 100, clamped to 99
        {-1000.0f, 1000.0f, 19999},
        {kNaN, kNaN, 0},  // a NaN quota counts as not negative and as 0 ms
        {-kInf, kNaN, 19900},
        {kInf, 0.0f, 9900},
        {-3.0e9f, -3.0e9f, 19999},  // beyond the int range: clamped, no overflow
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.quota_s << ", " << row.remainder_s);
        Math::QuotaInfo info;
        info.quota_s = row.quota_s;
        info.remainder_s = row.remainder_s;
        EXPECT_EQ(Math::EncryptQuotaToInt(info), row.expected);
    }
}

TEST(CalculateQuota, MatchesTheDocumentedWindows) {
    struct Row {
        std::deque<float> frameLengths_s;
        float fps;
        float quota_s, remainder_s;
        int encrypted;
    };
    const Row rows[] = {
        {frames(1, 0.016f), 60.0f, 1.0f / 60 - 0.016f, 1.0f / 60 - 0.016f, 101},
        {frames(10, 0.018f), 60.0f, -0.0133333f, -0.0133333f, 11313},
        {frames(10, 0.031f), 60.0f, -0.1433333f, -0.0100000f, 19910},
        {frames(10, 0.010f), 60.0f, 0.0666667f, 0.0f, 6700},
        {frames(2, 0.020f), 59.0f, 2.0f / 59 - 0.04f, 2.0f / 59 - 0.04f, 10606},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.frameLengths_s.size() << " frames of "
                                          << row.frameLengths_s.front() << " at " << row.fps);
        const Math::QuotaInfo info = Math::CalculateQuota(row.frameLengths_s, row.fps);
        EXPECT_NEAR(info.quota_s, row.quota_s, 1e-6);
        EXPECT_NEAR(std::fabs(info.remainder_s), std::fabs(row.remainder_s), 1e-6);
        EXPECT_EQ(std::signbit(info.remainder_s), std::signbit(info.quota_s));
        EXPECT_EQ(info.encryptedQuota, row.encrypted);
        EXPECT_EQ(info.encryptedQuota, Math::EncryptQuotaToInt(info));
    }
}

TEST(CalculateQuota, EmptyWindowHasNoQuota) {
    const Math::QuotaInfo info = Math::CalculateQuota(std::deque<float>{}, 60.0f);
    EXPECT_EQ(info.quota_s, 0.0f);
    EXPECT_EQ(info.remainder_s, 0.0f);
    EXPECT_EQ(info.encryptedQuota, 0);
}

TEST(CalculateQuota, SumsInDoublePrecision) {
    // Summed in float, a million frames of 1e-7 s on top of 1 s would be lost entirely.
    std::deque<float> frameLengths_s(1000000, 1.0e-7f);
    frameLengths_s.push_front(1.0f);
    const Math::QuotaInfo info = Math::CalculateQuota(frameLengths_s, 1.0e6f);
    const float sum_s = static_cast<float>(1.0 + 1000000 * static_cast<double>(1.0e-7f));
    EXPECT_EQ(info.quota_s, 1.0e-6f * 1000001.0f - sum_s);
}

TEST(CalculateQuota, RingAndDequeGiveBitIdenticalResults) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> frameLength_s(0.001f, 0.1f);
    std::uniform_int_distribution<int> fps(1, 144);
    Math::FrameLengthRing ring(4);
    std::deque<float> deque;
    for (int step = 0; step < 2000; ++step) {
        const float value = frameLength_s(random);
        ring.push_back(value);
        deque.push_back(value);
        while (deque.size() > 37) {
            deque.pop_front();
            ring.pop_front();
        }
        const float rate = static_cast<float>(fps(random));
        const Math::QuotaInfo fromRing = Math::CalculateQuota(ring, rate);
        const Math::QuotaInfo fromDeque = Math::CalculateQuota(deque, rate);
        ASSERT_EQ(std::memcmp(&fromRing.quota_s, &fromDeque.quota_s, sizeof(float)), 0);
        ASSERT_EQ(std::memcmp(&fromRing.remainder_s, &fromDeque.remainder_s, sizeof(float)), 0);
        ASSERT_EQ(fromRing.encryptedQuota, fromDeque.encryptedQuota);
    }
}

}  // namespace
