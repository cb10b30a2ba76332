#include "tools/sim/model/GameModel.h"

#include <algorithm>
#include <cmath>

namespace TalvexSim {
namespace {

// A jittered frame is never cheaper than this share of its nominal work, nor dearer than the
// other bound (hitches come on top).
constexpr double kLeastWorkShare = 0.2;
constexpr double kMostWorkShare = 3.0;

}  // namespace

GameModel::GameModel(const GameParams& params_, int refreshRate_Hz, std::uint64_t seed)
    : params(params_),
      minFramePeriod_ms(1000.0 / std::min(params_.targetFps, static_cast<double>(refreshRate_Hz))),
      random(seed) {}

double GameModel::WorkFactorAt(double time_s) const {
    double factor = 1.0;
    bool inScene = false;
    for (const HeavyScene& scene : params.heavyScenes) {
        if (time_s >= scene.start_s && time_s < scene.start_s + scene.duration_s) {
            factor = inScene ? std::max(factor, scene.workFactor) : scene.workFactor;
            inScene = true;
        }
    }
    return factor;
}

double GameModel::NextWorkMs(double time_s) {
    const double nominal = params.workMs * WorkFactorAt(time_s);
    double work = nominal * (1.0 + params.jitter * random.Normal());
    work = std::clamp(work, nominal * kLeastWorkShare, nominal * kMostWorkShare);
    if (params.spikeChance > 0.0 && random.Uniform() < params.spikeChance) {
        work *= params.spikeFactor;
    }
    return work;
}

FrameWork GameModel::NextWork(double time_s) {
    const double work_ms = NextWorkMs(time_s);
    // A stage as long as the nominal work keeps the frame's own figure, to the last bit.
    const auto stage = [&](double stage_ms) {
        return stage_ms == params.workMs ? work_ms : work_ms / params.workMs * stage_ms;
    };
    return {stage(params.cpuMs), stage(params.gpuMs), RelativeWork(work_ms)};
}

std::array<std::uint64_t, 4> GameModel::CpuReadings(double busyShare) const {
    const double share = std::clamp(busyShare, 0.0, 1.0);
    std::array<std::uint64_t, 4> readings{};
    for (size_t i = 0; i < readings.size(); ++i) {
        readings[i] = static_cast<std::uint64_t>(std::llround(share * params.cpuUtilFullLoad[i]));
    }
    return readings;
}

}  // namespace TalvexSim
