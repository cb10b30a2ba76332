#pragma once

#include <cstdint>
#include <random>

namespace TalvexSim {

// Seeded randomness whose output is the same on every standard library: std::mt19937_64 is
// fully specified, the distributions are not, so they are written out here.
class Random {
  public:
    explicit Random(std::uint64_t seed) : engine(seed) {}

    double Uniform();  // [0, 1)
    double Uniform(double low, double high) { return low + (high - low) * Uniform(); }
    double Normal();  // mean 0, standard deviation 1

  private:
    std::mt19937_64 engine;
    bool hasSpare = false;
    double spare = 0.0;
};

// Independent streams from one scenario seed, so that a model drawing more numbers does not
// shift what another model draws. The numbers are part of every seed's results: never reuse one.
enum class RandomStream : std::uint64_t { Game = 1, Device = 2, Sleep = 3, Storm = 4 };
std::uint64_t DeriveSeed(std::uint64_t seed, RandomStream stream);

}  // namespace TalvexSim
