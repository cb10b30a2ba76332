// Conversions accept any text: only the two documented standard exceptions may leave them.
#include <cstdint>
#include <map>
#include <stdexcept>

#include "FuzzInput.h"
#include "talvex/basics/Conversions.h"

namespace {

template <typename T>
void convert(const std::string& text) {
    T value{};
    try {
        Basics::ConvertStringToValue(text, value);
    } catch (const std::invalid_argument&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const char delimiter = static_cast<char>(input.Byte());
    const std::string text = input.Rest();

    convert<int>(text);
    convert<unsigned int>(text);
    convert<float>(text);
    convert<bool>(text);

    const std::vector<std::string> pieces = Basics::SplitString(text, delimiter);
    if (pieces.size() > text.size()) __builtin_trap();
    Basics::SplitStringToInt(text, delimiter);
    Basics::IsAllElementDigit(text);
    Basics::IsInteger(text);
    Basics::IsRealNumber(text);
    Basics::StripSpecialCharactors(text);
    Basics::GetFileNameExtension(text);
    Basics::ContainerToString(pieces, 1 + static_cast<unsigned char>(delimiter) % 12);

    std::map<int, unsigned int> histogram;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        histogram[static_cast<signed char>(text[i])] += static_cast<unsigned char>(text[i + 1]);
    }
    try {
        Basics::GetKeyOfMaxValue(histogram);
    } catch (const std::out_of_range&) {
        if (!histogram.empty()) __builtin_trap();
    }
    return 0;
}
