#pragma once

#include <cstddef>
#include <cstdint>

namespace Basics {

// Room for any float that AppendGeneral4 writes: "-1.235e+38" and "-0.0001235" are the longest.
constexpr std::size_t kGeneral4MaxLength = 10;

// Writes value as a stream at precision 4 in default notation prints it (printf's "%.4g"), except
// that every NaN is "nan" whatever its sign bit; no terminating NUL. Returns the end.
//
// Per-frame text: most values are scaled in double precision and rounded in place. A value whose
// scaled error could change its fourth digit (within 1e-9 of a half) or whose power of ten is not
// exact in double is left to snprintf, so the text never differs from it. That bound holds where
// double arithmetic rounds once (VFP, SSE2), not through x87's wider registers or -ffast-math.
char* AppendGeneral4(char* out, float value);

// One line built into a caller's buffer without allocating, cut and terminated as snprintf cuts
// it: at most size - 1 characters and a NUL, the full length counted all the same.
class FixedText {
  public:
    FixedText(char* buffer, std::size_t size) : buffer(buffer), size(size) {}

    void Append(char character);
    void Append(const char* text);
    void Append(std::int64_t value);
    void AppendGeneral4(float value);

    // Terminates the text; the length it would have had uncut, as snprintf returns.
    int Finish();

  private:
    void append(const char* text, std::size_t length);

    char* buffer;
    std::size_t size;
    std::size_t length = 0;
};

}  // namespace Basics
