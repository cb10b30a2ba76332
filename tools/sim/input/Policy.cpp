#include "tools/sim/input/Policy.h"

#include <cerrno>
#include <cstdlib>
#include <stdexcept>

namespace TalvexSim {
namespace {

// The pacing object holds 11 FPS and above; a higher cap than any screen is a typing error.
constexpr long kLeastFixedFps = 11;
constexpr long kMostFixedFps = 1000;

}  // namespace

Policy ParsePolicy(const std::string& text) {
    Policy policy;
    policy.name = text;
    if (text == "talvex") {
        policy.kind = PolicyKind::Library;
    } else if (text == "talvex+deadline") {
        policy.kind = PolicyKind::Library;
        policy.pacing = Pacing::Deadline;
    } else if (text == "talvex+deadline-vsync") {
        policy.kind = PolicyKind::Library;
        policy.pacing = Pacing::DeadlineVsync;
    } else if (text == "swap-interval") {
        policy.kind = PolicyKind::SwapInterval;
    } else if (text == "governor") {
        policy.kind = PolicyKind::Governor;
    } else if (text == "none") {
        policy.kind = PolicyKind::None;
    } else if (text.rfind("fixed:", 0) == 0) {
        const std::string number = text.substr(6);
        char* end = nullptr;
        errno = 0;
        const long fps = std::strtol(number.c_str(), &end, 10);
        if (number.empty() || number[0] == '+' || number[0] == ' ' || *end != '\0' ||
            errno == ERANGE || fps < kLeastFixedFps || fps > kMostFixedFps) {
            throw std::invalid_argument(
                "'" + text + "' is not fixed:N with N a whole number from " +
                std::to_string(kLeastFixedFps) + " to " + std::to_string(kMostFixedFps));
        }
        policy.kind = PolicyKind::Fixed;
        policy.fixedFps = static_cast<int>(fps);
    } else {
        throw std::invalid_argument("'" + text +
                                    "' is not a policy (talvex, talvex+deadline, "
                                    "talvex+deadline-vsync, swap-interval, governor, fixed:N, "
                                    "none)");
    }
    return policy;
}

std::vector<Policy> ParsePolicyList(const std::string& text) {
    if (text.empty()) {
        return {ParsePolicy("talvex"), ParsePolicy("swap-interval"), ParsePolicy("governor"),
                ParsePolicy("none")};
    }
    std::vector<Policy> policies;
    size_t start = 0;
    while (true) {
        const size_t comma = text.find(',', start);
        const Policy policy = ParsePolicy(text.substr(start, comma - start));
        for (const Policy& earlier : policies) {
            if (earlier.name == policy.name) {
                throw std::invalid_argument("'" + policy.name + "' is listed twice");
            }
        }
        policies.push_back(policy);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return policies;
}

}  // namespace TalvexSim
