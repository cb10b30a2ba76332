#include "tools/sim/base/Random.h"

#include <cmath>

namespace TalvexSim {
namespace {

constexpr double kTwoPi = 6.283185307179586;

}  // namespace

double Random::Uniform() {
    // The top 53 bits fill a double's mantissa exactly.
    return static_cast<double>(engine() >> 11) * (1.0 / 9007199254740992.0);
}

double Random::Normal() {
    if (hasSpare) {
        hasSpare = false;
        return spare;
    }
    // Box-Muller; 1 - u keeps the logarithm away from zero.
    const double radius = std::sqrt(-2.0 * std::log(1.0 - Uniform()));
    const double angle = kTwoPi * Uniform();
    spare = radius * std::sin(angle);
    hasSpare = true;
    return radius * std::cos(angle);
}

std::uint64_t DeriveSeed(std::uint64_t seed, RandomStream stream) {
    // splitmix64 of the pair.
    std::uint64_t z = seed + 0x9E3779B97F4A7C15ULL * (static_cast<std::uint64_t>(stream) + 1);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

}  // namespace TalvexSim
