#include <gtest/gtest.h>

#include <cmath>
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

}  // namespace
