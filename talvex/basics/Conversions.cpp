#include "talvex/basics/Conversions.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <stdexcept>

namespace Basics {
namespace {

bool allCharactersIn(const std::string& text, const char* characterSet) {
    return text.find_first_not_of(characterSet) == std::string::npos;
}

}  // namespace

std::int32_t SaturatingTruncate(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 2147483648.0) return INT32_MAX;
    if (value <= -2147483648.0) return INT32_MIN;
    return static_cast<std::int32_t>(value);
}

std::int32_t SaturatingTruncateNanToMinusOne(double value) {
    return std::isnan(value) ? -1 : SaturatingTruncate(value);
}

bool IsAllElementDigit(const std::string& text) { return allCharactersIn(text, "0123456789"); }

bool IsInteger(const std::string& text) { return allCharactersIn(text, "-0123456789"); }

bool IsRealNumber(const std::string& text) { return allCharactersIn(text, "-.e0123456789"); }

std::vector<std::string> SplitString(const std::string& text, char delimiter) {
    std::vector<std::string> pieces;
    std::size_t begin = 0;
    while (begin < text.size()) {
        std::size_t end = text.find(delimiter, begin);
        if (end == std::string::npos) end = text.size();
        if (!(delimiter == ' ' && end == begin)) pieces.emplace_back(text, begin, end - begin);
        begin = end + 1;
    }
    return pieces;
}

std::vector<int> SplitStringToInt(const std::string& text, char delimiter) {
    std::string spaced = text;
    for (char& c : spaced) {
        if (c == delimiter) c = ' ';
    }
    std::istringstream stream(spaced);
    std::vector<int> values;
    int value = 0;
    while (stream >> value) values.push_back(value);
    return values;
}

std::string StripSpecialCharactors(const std::string& text) {
    std::string result;
    result.reserve(text.size());
    for (char c : text) {
        if (c != '\n' && c != '\r') result += c;
    }
    return result;
}

std::string GetFileNameExtension(const std::string& fileName) {
    const std::vector<std::string> pieces = SplitString(fileName, '.');
    if (pieces.size() < 2) return "";
    return pieces.back();
}

template <typename T>
void ConvertStringToValue(const std::string& sourceString_, T& targetValue_) {
    std::stringstream stream(sourceString_, std::ios_base::in | std::ios_base::out);
    stream >> targetValue_;
    if (stream.fail() || stream.bad()) {
        throw std::invalid_argument(
            "\n\nError occur while ConvertStringToValue():\n"
            "Cannot convert sourceString_ to targetValue_:\n"
            "\t sourceString_ = '" +
            sourceString_ + "'\n");
    }
}

template void ConvertStringToValue<int>(const std::string&, int&);
template void ConvertStringToValue<unsigned int>(const std::string&, unsigned int&);
template void ConvertStringToValue<float>(const std::string&, float&);
template void ConvertStringToValue<bool>(const std::string&, bool&);

namespace internal {

std::string FloatingToString(double value) {
    // A 0/0 on x86-64 carries the sign bit; texts of the library show it as "nan".
    if (std::isnan(value)) return "nan";
    char buffer[32];
    std::snprintf(buffer, sizeof(buffer), "%g", value);
    return buffer;
}

}  // namespace internal

int GetKeyOfMaxValue(const std::map<int, unsigned int>& dictionary_) {
    if (dictionary_.empty()) {
        throw std::out_of_range(
            "\nError occur in GetKeyOfMaxValue(const DictionaryType& dictionary_):\n"
            "\t The input Dictionary may be Empty!");
    }
    auto best = dictionary_.begin();
    for (auto it = dictionary_.begin(); it != dictionary_.end(); ++it) {
        if (it->second > best->second) best = it;
    }
    return best->first;
}

}  // namespace Basics
