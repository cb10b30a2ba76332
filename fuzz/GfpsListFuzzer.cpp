// The GFPS list parser refuses bad texts with the library's argument exception or the
// conversion's standard one; nothing else may escape, and an accepted list is sorted.
#include <cstdint>
#include <stdexcept>

#include "FuzzInput.h"
#include "talvex/basics/Exceptions.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/FpsCandidates.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Basics::Log::SetLogLevel(-1);
    FuzzInput input(data, size);
    const int fastest = input.Byte();
    const std::string text = input.Rest();
    try {
        const std::vector<int> list =
            android::FpsStabilizer::ParseGfpsListFromString(text, fastest);
        for (size_t i = 1; i < list.size(); ++i) {
            if (list[i] < list[i - 1]) __builtin_trap();
        }
    } catch (const Basics::InvalidArgumentException&) {
    } catch (const std::invalid_argument&) {
    }
    return 0;
}
