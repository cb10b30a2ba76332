#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Basics {

// Membership tests only, not the shape of a number: "--5-" is an integer, "" is all three.
bool IsAllElementDigit(const std::string& text);
bool IsInteger(const std::string& text);
bool IsRealNumber(const std::string& text);

// Pieces up to each delimiter, as a line-reading loop gives them: empty inner pieces are kept,
// a trailing delimiter adds none. With a space as the delimiter, empty pieces are dropped.
std::vector<std::string> SplitString(const std::string& text, char delimiter);

// Integers separated by the delimiter, read until the first token that is not one.
std::vector<int> SplitStringToInt(const std::string& text, char delimiter);

// Removes line feeds and carriage returns.
std::string StripSpecialCharactors(const std::string& text);

std::string GetFileNameExtension(const std::string& fileName);

// Truncation toward zero that saturates at the int32 range, as the target processor's conversion
// does, instead of being undefined outside it. NaN gives 0.
std::int32_t SaturatingTruncate(double value);
// The same, except that NaN gives -1, for values where -1 already means "none".
std::int32_t SaturatingTruncateNanToMinusOne(double value);

// Reads one T with formatted stream extraction; throws std::invalid_argument when it fails.
// Instantiated for int, unsigned int, float and bool.
template <typename T>
void ConvertStringToValue(const std::string& sourceString_, T& targetValue_);

extern template void ConvertStringToValue<int>(const std::string&, int&);
extern template void ConvertStringToValue<unsigned int>(const std::string&, unsigned int&);
extern template void ConvertStringToValue<float>(const std::string&, float&);
extern template void ConvertStringToValue<bool>(const std::string&, bool&);

namespace internal {
std::string FloatingToString(double value);
}  // namespace internal

// Integers in decimal; floating point as a stream prints it by default (6 significant digits),
// NaN always as "nan"; bool as 1 or 0; strings as they are; pairs as "(first, second)".
template <typename T>
std::string ToString(const T& value) {
    if constexpr (std::is_same_v<T, bool>) {
        return value ? "1" : "0";
    } else if constexpr (std::is_integral_v<T>) {
        return std::to_string(value);
    } else if constexpr (std::is_floating_point_v<T>) {
        return internal::FloatingToString(static_cast<double>(value));
    } else {
        static_assert(std::is_convertible_v<T, std::string>, "no text form for this type");
        return std::string(value);
    }
}

template <typename First, typename Second>
std::string ToString(const std::pair<First, Second>& value) {
    return "(" + ToString(value.first) + ", " + ToString(value.second) + ")";
}

// The layout debug dumps embed verbatim: "\t[\n\t  a, b, c\n\t]\n", with a line break after
// every elementsPerLine elements (at least 1).
template <typename Container>
std::string ContainerToString(const Container& container, unsigned int elementsPerLine) {
    std::string text = "\t[\n\t  ";
    const std::size_t count = container.size();
    std::size_t position = 0;
    for (const auto& element : container) {
        text += ToString(element);
        if (position + 1 != count) text += ", ";
        if ((position + 1) % elementsPerLine == 0) text += "\n\t  ";
        ++position;
    }
    text += "\n\t]\n";
    return text;
}

// The key with the largest value; the smallest such key among equals. Throws std::out_of_range
// on an empty dictionary.
int GetKeyOfMaxValue(const std::map<int, unsigned int>& dictionary_);

}  // namespace Basics
