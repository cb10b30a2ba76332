// Any text either loads as a scenario, which then runs (cut to its first seconds, so that no
// input takes long), or is refused with an InputError that names the file, the line and the
// column of the fault. Nothing else may leave the loader or the loop.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>

#include "FuzzEnvironment.h"
#include "talvex/basics/Log.h"
#include "tools/sim/base/InputError.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/loop/Simulation.h"

namespace {

constexpr char kSource[] = "fuzz.json";
constexpr double kLongestRun_s = 10.0;

// "fuzz.json:LINE:COLUMN: ..." with both numbers present.
bool placed(const char* message) {
    const size_t prefix = std::strlen(kSource);
    if (std::strncmp(message, kSource, prefix) != 0 || message[prefix] != ':') return false;
    const char* at = message + prefix + 1;
    for (int field = 0; field < 2; ++field) {
        if (!std::isdigit(static_cast<unsigned char>(*at))) return false;
        while (std::isdigit(static_cast<unsigned char>(*at))) ++at;
        if (*at++ != ':') return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Basics::Log::SetLogLevel(-1);
    // The settings center lists what it forgets on standard output.
    const FuzzEnvironment::QuietStdout quiet;
    const std::string text(reinterpret_cast<const char*>(data), size);
    TalvexSim::Scenario scenario;
    try {
        scenario = TalvexSim::LoadScenarioText(text, kSource, "fuzz");
    } catch (const TalvexSim::InputError& error) {
        if (!placed(error.what())) __builtin_trap();
        return 0;
    }
    scenario.duration_s = std::min(scenario.duration_s, kLongestRun_s);
    TalvexSim::RunOptions options;
    options.frameDetail = TalvexSim::FrameDetail::None;
    try {
        TalvexSim::RunClosedLoop(scenario, options);
    } catch (const TalvexSim::InputError& error) {
        // The library refused one of the initial settings, named where it was written.
        if (!placed(error.what())) __builtin_trap();
    }
    return 0;
}
