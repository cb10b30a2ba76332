#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "talvex/basics/FixedText.h"

namespace {

std::string general4(float value) {
    char text[Basics::kGeneral4MaxLength + 1];
    char* end = Basics::AppendGeneral4(text, value);
    return std::string(text, end);
}

// The reference the node's text has always been: printf's "%.4g", with every NaN as "nan".
std::string printfGeneral4(float value) {
    if (std::isnan(value)) return "nan";
    char text[32];
    std::snprintf(text, sizeof(text), "%.4g", static_cast<double>(value));
    return text;
}

float fromBits(std::uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof(value));
    return value;
}

std::uint32_t bitsOf(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

// Counts the mismatches and reports the first few, so that a broken rule shows its pattern.
class Comparison {
  public:
    void Check(float value) {
        const std::string expected = printfGeneral4(value);
        const std::string actual = general4(value);
        ++checked;
        if (actual == expected) return;
        if (++mismatches <= 10) {
            ADD_FAILURE() << "bits 0x" << std::hex << bitsOf(value) << ": \"" << actual
                          << "\", printf gives \"" << expected << "\"";
        }
    }
    // Every float within `span` steps of value on both sides, across zero as well.
    void CheckAround(float value, int span) {
        float below = value, above = value;
        for (int step = 0; step < span; ++step) {
            below = std::nextafter(below, -std::numeric_limits<float>::infinity());
            above = std::nextafter(above, std::numeric_limits<float>::infinity());
            Check(below);
            Check(above);
        }
        Check(value);
    }
    ~Comparison() { EXPECT_EQ(mismatches, 0) << "of " << checked << " values"; }

  private:
    long checked = 0;
    long mismatches = 0;
};

// Where a formatter goes wrong: the decade boundaries, the halfway points of the fourth digit
// (exact ties among them), the ends of the range and the subnormals.
TEST(General4, MatchesPrintfAtTheEdges) {
    Comparison comparison;
    for (int decade = -45; decade <= 38; ++decade) {
        const double power = std::pow(10.0, decade);
        for (double mantissa : {1.0, 9.9995, 9.9994999, 1.0005, 1.00049999, 2.5, 5.0005, 9.999}) {
            const auto value = static_cast<float>(mantissa * power);
            comparison.CheckAround(value, 40);
            comparison.CheckAround(-value, 3);
        }
    }
    // NaN whatever its sign bit; exact binary values that sit on a tie of the fourth digit.
    for (std::uint32_t nan : {0x7fc00000u, 0xffc00001u, 0xff800001u})
        comparison.Check(fromBits(nan));
    for (float tie : {10.125f, 1.0625f, 1000.5f, 2.0625f, 0.0009765625f, 8192.5f, 12.375f}) {
        comparison.CheckAround(tie, 5);
    }
    for (float end : {std::numeric_limits<float>::max(), std::numeric_limits<float>::min(),
                      std::numeric_limits<float>::denorm_min(), 0.0f}) {
        comparison.CheckAround(end, 200);
    }
    for (std::uint32_t bits = 1; bits < 0x00800000u; bits += 4099) {
        comparison.Check(fromBits(bits));
        comparison.Check(fromBits(bits | 0x80000000u));
    }
}

// Any float at all: a seeded sweep of bit patterns, and one of the magnitudes the telemetry
// carries (1e-5 to 1e6), where nearly every value takes the scaled path.
TEST(General4, MatchesPrintfOverRandomFloats) {
    Comparison comparison;
    std::mt19937 random(20261124u);
    for (int sample = 0; sample < 500000; ++sample) comparison.Check(fromBits(random()));
    std::uniform_real_distribution<double> exponent(-5.0, 6.0);
    for (int sample = 0; sample < 500000; ++sample) {
        const auto value = static_cast<float>(std::pow(10.0, exponent(random)));
        comparison.Check(sample % 2 == 0 ? value : -value);
    }
}

TEST(FixedText, CutsAndCountsAsSnprintf) {
    const auto build = [](char* buffer, std::size_t size) {
        Basics::FixedText text(buffer, size);
        text.Append(static_cast<std::int64_t>(-42));
        text.Append(';');
        text.Append("window");
        text.AppendGeneral4(16.6667f);
        return text.Finish();
    };
    char reference[64];
    const int referenceLength =
        std::snprintf(reference, sizeof(reference), "%d;%s%.4g", -42, "window", 16.6667);
    for (std::size_t size : {std::size_t{64}, std::size_t{15}, std::size_t{14}, std::size_t{12},
                             std::size_t{9}, std::size_t{1}}) {
        char buffer[80];
        std::memset(buffer, 'x', sizeof(buffer));
        EXPECT_EQ(build(buffer, size), referenceLength);
        EXPECT_EQ(std::string(buffer), std::string(reference).substr(0, size - 1)) << size;
        EXPECT_EQ(buffer[size], 'x') << "wrote past " << size;
    }
    char untouched = 'x';
    EXPECT_EQ(build(&untouched, 0), referenceLength);
    EXPECT_EQ(untouched, 'x');
}

}  // namespace
