#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Reads typed values off the front of a fuzz input; returns zeros once it runs dry.
class FuzzInput {
  public:
    FuzzInput(const uint8_t* data, size_t size) : data(data), size(size) {}

    bool Empty() const { return size == 0; }

    uint8_t Byte() {
        if (size == 0) return 0;
        --size;
        return *data++;
    }

    template <typename T>
    T Value() {
        T value{};
        uint8_t* out = reinterpret_cast<uint8_t*>(&value);
        for (size_t i = 0; i < sizeof(T); ++i) out[i] = Byte();
        return value;
    }

    // A string whose length is given by the next byte.
    std::string ShortString() {
        const size_t length = Byte();
        std::string text;
        for (size_t i = 0; i < length && size > 0; ++i) text += static_cast<char>(Byte());
        return text;
    }

    std::string Rest() {
        std::string text(reinterpret_cast<const char*>(data), size);
        data += size;
        size = 0;
        return text;
    }

  private:
    const uint8_t* data;
    size_t size;
};
