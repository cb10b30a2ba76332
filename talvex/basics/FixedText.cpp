#include "talvex/basics/FixedText.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace Basics {
namespace {

// Every power of ten up to 1e22 is exact in double, so one product or quotient by it rounds once.
constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                   1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                   1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int kLargestExactPower = 22;

double scaledByPowerOfTen(double value, int power) {
    return power >= 0 ? value * kPowersOfTen[power] : value / kPowersOfTen[-power];
}

// The four significant digits of a positive, finite, normal value, as one integer in
// [1000, 9999], and its decimal exponent. False where the scaled value cannot decide them.
bool fourDigits(float magnitude, unsigned& digits, int& exponent) {
    std::uint32_t bits;
    std::memcpy(&bits, &magnitude, sizeof(bits));
    const int binaryExponent = static_cast<int>(bits >> 23) - 127;
    // floor(binaryExponent * log10(2)) give or take two; the loops below settle it.
    int decimal = (binaryExponent * 1233) / 4096;
    double scaled = 0.0;
    const auto scaleTo = [&](int candidate) {
        decimal = candidate;
        if (3 - decimal < -kLargestExactPower || 3 - decimal > kLargestExactPower) return false;
        // Within 1.2e-12 of the exact magnitude * 10^(3 - decimal): one rounding below 1e4.
        scaled = scaledByPowerOfTen(magnitude, 3 - decimal);
        return true;
    };
    if (!scaleTo(decimal)) return false;
    while (scaled >= 10000.0) {
        if (!scaleTo(decimal + 1)) return false;
    }
    // Just under 1000 the digits are 1000 at this exponent, whichever side the exact value is.
    while (scaled < 999.999999) {
        if (!scaleTo(decimal - 1)) return false;
    }
    const auto whole = static_cast<unsigned>(scaled);
    const double fraction = scaled - whole;
    if (std::fabs(fraction - 0.5) <= 1e-9) return false;
    digits = whole + (fraction > 0.5 ? 1 : 0);
    if (digits == 10000) {
        digits = 1000;
        ++decimal;
    }
    exponent = decimal;
    return true;
}

char* appendFallback(char* out, float value) {
    char text[32];
    const int length = std::snprintf(text, sizeof(text), "%.4g", static_cast<double>(value));
    std::memcpy(out, text, static_cast<std::size_t>(length));
    return out + length;
}

char* appendDigits(char* out, const char* digits, int count) {
    std::memcpy(out, digits, static_cast<std::size_t>(count));
    return out + count;
}

}  // namespace

char* AppendGeneral4(char* out, float value) {
    if (std::isnan(value)) return appendDigits(out, "nan", 3);
    const float magnitude = std::fabs(value);
    unsigned digits = 0;
    int exponent = 0;
    if (magnitude != 0.0f && !std::isinf(magnitude) && !fourDigits(magnitude, digits, exponent)) {
        return appendFallback(out, value);
    }
    if (std::signbit(value)) *out++ = '-';
    if (std::isinf(magnitude)) return appendDigits(out, "inf", 3);
    if (magnitude == 0.0f) {
        *out++ = '0';
        return out;
    }

    const char text[4] = {
        static_cast<char>('0' + digits / 1000), static_cast<char>('0' + digits / 100 % 10),
        static_cast<char>('0' + digits / 10 % 10), static_cast<char>('0' + digits % 10)};
    int kept = 4;
    while (kept > 1 && text[kept - 1] == '0') --kept;

    if (exponent < -4 || exponent >= 4) {
        *out++ = text[0];
        if (kept > 1) {
            *out++ = '.';
            out = appendDigits(out, text + 1, kept - 1);
        }
        *out++ = 'e';
        *out++ = exponent < 0 ? '-' : '+';
        const int shown = exponent < 0 ? -exponent : exponent;
        *out++ = static_cast<char>('0' + shown / 10);
        *out++ = static_cast<char>('0' + shown % 10);
        return out;
    }
    if (exponent >= 0) {
        const int whole = exponent + 1;
        out = appendDigits(out, text, whole);
        if (kept > whole) {
            *out++ = '.';
            out = appendDigits(out, text + whole, kept - whole);
        }
        return out;
    }
    *out++ = '0';
    *out++ = '.';
    for (int zero = -1; zero > exponent; --zero) *out++ = '0';
    return appendDigits(out, text, kept);
}

void FixedText::append(const char* text, std::size_t count) {
    if (length + 1 < size) {
        const std::size_t room = size - 1 - length;
        std::memcpy(buffer + length, text, count < room ? count : room);
    }
    length += count;
}

void FixedText::Append(char character) { append(&character, 1); }

void FixedText::Append(const char* text) { append(text, std::strlen(text)); }

void FixedText::Append(std::int64_t value) {
    char text[24];
    const auto result = std::to_chars(text, text + sizeof(text), value);
    append(text, static_cast<std::size_t>(result.ptr - text));
}

void FixedText::AppendGeneral4(float value) {
    char text[kGeneral4MaxLength];
    append(text, static_cast<std::size_t>(Basics::AppendGeneral4(text, value) - text));
}

int FixedText::Finish() {
    if (size > 0) buffer[length < size ? length : size - 1] = '\0';
    return static_cast<int>(length);
}

}  // namespace Basics
