#include <algorithm>

#include "tools/sim/base/Units.h"
#include "tools/sim/loop/RowBuilder.h"
#include "tools/sim/loop/Session.h"
#include "tools/sim/loop/Simulation.h"

namespace TalvexSim {

RunResult RunReplay(const Scenario& scenario, const std::vector<ReplayTick>& ticks,
                    const RunOptions& options) {
    RunResult result;
    if (ticks.empty()) return result;
    Session session(scenario, options, ticks.front().refreshRate_Hz, true);
    constexpr std::int64_t kRow_ns = 1'000'000'000;
    RowBuilder rows(options, session, nullptr, kRow_ns, result);
    size_t nextEvent = 0;
    for (const ReplayTick& tick : ticks) {
        const std::int64_t time = SecondsToNs(tick.time_s);
        while (nextEvent < scenario.events.size() &&
               SecondsToNs(scenario.events[nextEvent].at_s) <= time) {
            const ScenarioEvent& event = scenario.events[nextEvent++];
            if (event.type == EventType::Settings) {
                session.AdvanceClock(SecondsToNs(event.at_s));
                session.ApplyEvent(event, result);
            }
        }
        session.AdvanceClock(time);
        android::FpsStabilizer::SYS_INFO info{};
        info.electricCurrent_uA = tick.current_uA;
        info.temperature_mC = tick.temperature_mC;
        std::copy(tick.cpuUtils.begin(), tick.cpuUtils.end(), info.cpuUtils);

        const std::optional<int> efps = session.Tick(info, tick.ofps, tick.refreshRate_Hz, true);
        rows.CountTick(session.Sfps());
        RowMoment moment;
        moment.time_ns = time;
        moment.time_s = tick.time_s;
        moment.temperature_C = tick.temperature_mC / 1000.0;
        moment.current_mA = tick.current_uA / 1000.0;
        moment.node = session.NodeText();
        session.TakeNodeWrites();
        rows.Emit(rows.TakeStretch(tick.ofps, efps), moment);
    }
    result.simulated_s = ticks.back().time_s - ticks.front().time_s;
    result.running_s = result.simulated_s;
    session.End(result);
    return result;
}

}  // namespace TalvexSim
