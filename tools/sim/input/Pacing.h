#pragma once

#include <optional>
#include <string>

#include "talvex/pacing/Quillet.h"

namespace TalvexSim {

// How the pacing object paces a held rate. DeadlineVsync is the Deadline policy as a game with a
// vsync callback uses it: every refresh is handed to the pacer, and the game sleeps to the
// wake-up time it is given rather than for a duration.
enum class Pacing { Quota, Deadline, DeadlineVsync };

inline android::Nimbrel::Quillet::PacingPolicy LibraryPolicy(Pacing pacing) {
    return pacing == Pacing::Quota ? android::Nimbrel::Quillet::PacingPolicy::Quota
                                   : android::Nimbrel::Quillet::PacingPolicy::Deadline;
}

inline bool FeedsVsync(Pacing pacing) { return pacing == Pacing::DeadlineVsync; }

// "quota", "deadline" or "deadline-vsync", as a scenario's "pacing" writes it.
inline std::optional<Pacing> PacingNamed(const std::string& name) {
    if (name == "quota") return Pacing::Quota;
    if (name == "deadline") return Pacing::Deadline;
    if (name == "deadline-vsync") return Pacing::DeadlineVsync;
    return std::nullopt;
}

}  // namespace TalvexSim
