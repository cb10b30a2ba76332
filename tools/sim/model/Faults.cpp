#include "tools/sim/model/Faults.h"

#include <algorithm>
#include <cmath>

namespace TalvexSim {
namespace {

using android::FpsStabilizer::SYS_INFO;

constexpr std::int64_t kSecond_ns = 1'000'000'000;
constexpr std::int64_t kRewritePeriod_ns = kSecond_ns;

// Records the library refuses, each with one ERROR and no change.
const UserSettings::UserSetting kInvalidRecords[] = {
    {"stabilizer", "no_such_key", "1"},
    {"stabilizer", "explore_buffer_size", "1"},
    {"sfps_temperature", "max_temperature", "hot"},
    {"no_such_category", "gfps", "30"},
};

std::int64_t toNs(double seconds) { return std::llround(seconds * 1e9); }

// A host whose read fails stores its -1 in the record's unsigned field.
template <typename Field>
constexpr Field unreadable() {
    return std::numeric_limits<Field>::max();
}

// Raised, and kept below the unreadable value so that a spike never reads as a failed read.
template <typename Field>
Field raised(Field value, double by) {
    const Field half = unreadable<Field>() / 2;
    const auto ceiling = static_cast<double>(half);
    const double result = static_cast<double>(value) + by;
    return result >= ceiling ? static_cast<Field>(ceiling)
                             : static_cast<Field>(std::llround(result));
}

// What another writer puts in a node: another game's request, or a line of its own.
std::string othersText(const std::string& node, int pid) {
    return node == "efps_max" ? std::to_string(pid + 1) + ",30,60" : "0,0,0\n";
}

}  // namespace

FaultInjector::FaultInjector(const Scenario& scenario, TalvexHarness::NodeDirectory& nodes_)
    : nodes(nodes_), pid(scenario.pid), random(DeriveSeed(scenario.seed, RandomStream::Storm)) {
    for (const FaultEvent& event : scenario.faults) {
        const std::int64_t start = toNs(event.at_s);
        State state;
        state.event = &event;
        state.start_ns = start;
        state.end_ns = toNs(event.End_s());
        state.next_ns = start;
        states.push_back(state);
        FaultOutcome outcome;
        outcome.type = event.kind == FaultKind::Sensor      ? "sensor_fault"
                       : event.kind == FaultKind::Node      ? "node_fault"
                       : event.kind == FaultKind::HostStall ? "host_stall"
                                                            : "settings_storm";
        outcome.detail = event.Detail();
        outcome.where = event.where;
        outcome.at_s = event.at_s;
        outcome.duration_s = event.duration_s;
        outcomes.push_back(std::move(outcome));
    }
    updateNextDue();
}

bool FaultInjector::RunDue(std::int64_t time, const LibraryCounts& counts,
                           const std::function<void(const SettingList&)>& send) {
    bool efpsMaxChanged = false;
    while (nextDue_ns <= time) {
        // One step of the earliest; ties go to the event listed first, so that one that ends
        // frees its node or sensor before the next one of the same takes it.
        size_t index = 0;
        for (size_t i = 0; i < states.size(); ++i) {
            if (!states[i].over && states[i].next_ns == nextDue_ns) {
                index = i;
                break;
            }
        }
        State& state = states[index];
        const bool periodic =
            state.event->kind == FaultKind::SettingsStorm ||
            (state.event->kind == FaultKind::Node && state.event->nodeMode == NodeMode::Rewritten);
        const bool onEfpsMax =
            state.event->kind == FaultKind::Node && state.event->node == "efps_max";
        if (!state.started) {
            start(index, counts);
            state.next_ns = periodic ? state.start_ns : state.end_ns;
            efpsMaxChanged = efpsMaxChanged || onEfpsMax;
        } else if (state.next_ns >= state.end_ns) {
            end(index, counts);
            efpsMaxChanged = efpsMaxChanged || onEfpsMax;
        } else {
            efpsMaxChanged = act(state, send) || efpsMaxChanged;
        }
        updateNextDue();
    }
    return efpsMaxChanged;
}

void FaultInjector::start(size_t index, const LibraryCounts& counts) {
    State& state = states[index];
    const FaultEvent& event = *state.event;
    state.started = true;
    state.atStart = counts;
    active.push_back(index);
    switch (event.kind) {
        case FaultKind::Sensor:
            sensorFaults.push_back(index);
            break;
        case FaultKind::Node:
            if (event.nodeMode == NodeMode::ReadOnly) nodes.MakeReadOnly(event.node);
            if (event.nodeMode == NodeMode::Missing) nodes.MakeMissing(event.node);
            break;
        case FaultKind::HostStall:
            ++stalls;
            break;
        case FaultKind::SettingsStorm:
            break;
    }
}

void FaultInjector::end(size_t index, const LibraryCounts& counts) {
    State& state = states[index];
    const FaultEvent& event = *state.event;
    state.over = true;
    active.erase(std::find(active.begin(), active.end(), index));
    const auto sensor = std::find(sensorFaults.begin(), sensorFaults.end(), index);
    if (sensor != sensorFaults.end()) sensorFaults.erase(sensor);
    if (event.kind == FaultKind::HostStall) --stalls;
    // A node that someone else rewrote stays as they left it; the library has to notice.
    if (event.kind == FaultKind::Node && event.nodeMode != NodeMode::Rewritten) {
        nodes.Repair(event.node);
    }

    FaultOutcome& outcome = outcomes[index];
    outcome.errors = counts.errors - state.atStart.errors;
    outcome.warnings = counts.warnings - state.atStart.warnings;
    outcome.escapedExceptions = counts.escapedExceptions - state.atStart.escapedExceptions;
    if (event.kind == FaultKind::SettingsStorm) {
        outcome.detail += ": " + std::to_string(state.sent) + " sent, " +
                          std::to_string(state.invalid) + " invalid";
    }
    awaitingNode.push_back(index);
}

bool FaultInjector::act(State& state, const std::function<void(const SettingList&)>& send) {
    const FaultEvent& event = *state.event;
    ++state.sent;
    if (event.kind == FaultKind::SettingsStorm) {
        const bool invalid = random.Uniform() < event.invalidShare;
        if (invalid) {
            constexpr size_t kChoices = sizeof kInvalidRecords / sizeof kInvalidRecords[0];
            const auto pick =
                std::min(kChoices - 1, static_cast<size_t>(random.Uniform() * kChoices));
            ++state.invalid;
            send({kInvalidRecords[pick]});
        } else {
            // In the order they were written, so that aliases end each round as they stand.
            const auto& inForce = event.settingsInForce;
            send({inForce[(state.sent - state.invalid - 1) % inForce.size()]});
        }
        state.next_ns = state.start_ns + std::llround(static_cast<double>(state.sent) * 1e9 /
                                                      event.recordsPerSecond);
    } else {
        nodes.WriteAsOther(event.node, othersText(event.node, pid));
        state.next_ns = state.start_ns + static_cast<std::int64_t>(state.sent) * kRewritePeriod_ns;
    }
    state.next_ns = std::min(state.next_ns, state.end_ns);
    return event.kind == FaultKind::Node && event.node == "efps_max";
}

void FaultInjector::alterSensors(SYS_INFO& info) {
    for (const size_t index : sensorFaults) {
        State& state = states[index];
        const FaultEvent& event = *state.event;
        if (event.sensorMode == SensorMode::Stuck && !state.holding) {
            state.held = info;
            state.holding = true;
        }
        const double by = event.magnitude;
        switch (event.sensor) {
            case SensorKind::Temperature:
                info.temperature_mC = event.sensorMode == SensorMode::Nan
                                          ? unreadable<std::uint32_t>()
                                      : event.sensorMode == SensorMode::Stuck
                                          ? state.held.temperature_mC
                                          : raised(info.temperature_mC, by * 1000.0);
                break;
            case SensorKind::Current:
                info.electricCurrent_uA = event.sensorMode == SensorMode::Nan
                                              ? unreadable<std::uint32_t>()
                                          : event.sensorMode == SensorMode::Stuck
                                              ? state.held.electricCurrent_uA
                                              : raised(info.electricCurrent_uA, by * 1000.0);
                break;
            case SensorKind::Cpu:
                for (size_t i = 0; i < 4; ++i) {
                    info.cpuUtils[i] =
                        event.sensorMode == SensorMode::Nan     ? unreadable<std::uint64_t>()
                        : event.sensorMode == SensorMode::Stuck ? state.held.cpuUtils[i]
                                                                : raised(info.cpuUtils[i], by);
                }
                break;
        }
    }
}

void FaultInjector::checkNode(std::int64_t time, int sfps, int gfps) {
    const std::string managers =
        std::to_string(pid) + "," + std::to_string(sfps) + "," + std::to_string(gfps);
    if (nodes.Read("efps_max") != managers) return;
    for (const size_t index : awaitingNode) {
        outcomes[index].nodeRestored_s = static_cast<double>(time) / 1e9;
    }
    awaitingNode.clear();
}

void FaultInjector::updateNextDue() {
    nextDue_ns = kNever;
    for (const State& state : states) {
        if (!state.over) nextDue_ns = std::min(nextDue_ns, state.next_ns);
    }
}

std::vector<FaultOutcome> FaultInjector::Finish(const LibraryCounts& counts) {
    for (size_t index = 0; index < states.size(); ++index) {
        if (states[index].started && !states[index].over) end(index, counts);
    }
    return std::move(outcomes);
}

}  // namespace TalvexSim
