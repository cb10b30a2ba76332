#include "tools/sim/report/EffectiveFloor.h"

#include <climits>
#include <cstddef>
#include <exception>
#include <memory>

#include "harness/LogSink.h"
#include "talvex/basics/Conversions.h"
#include "talvex/brain_src/fps_stabilizer/GfpsEvaluator.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace TalvexSim {
namespace {

using android::FpsStabilizer::GfpsEvaluator;
using UserSettings::UserSettingsCenter;

// Process IDs are positive and -1 means none, so no game's actions are filed under this one.
constexpr int kScratchPid = INT_MIN;

UserSettingsCenter& center() { return UserSettingsCenter::GetInstance(); }

// A GFPS evaluator whose setting actions live under the scratch PID exactly as long as it does.
// No copy or move: the center's actions point at the evaluator.
class ScratchEvaluator {
  public:
    explicit ScratchEvaluator(int refreshRate_Hz) : refreshRate_Hz(refreshRate_Hz) {
        center().OnCurrentBrainResume(kScratchPid);
        try {
            evaluator = std::make_unique<GfpsEvaluator>(refreshRate_Hz);
        } catch (...) {
            center().OnCurrentBrainDie(kScratchPid);
            throw;
        }
        center().SetActionsOwner(kScratchPid, evaluator.get());
        // Gives the center a record to forget: forgetting a PID with none is reported, with a
        // listing on standard output.
        Apply({"stabilizer", "gfps", "reset"});
    }
    ~ScratchEvaluator() { center().ReleaseActionsOf(kScratchPid, evaluator.get()); }
    ScratchEvaluator(const ScratchEvaluator&) = delete;
    ScratchEvaluator& operator=(const ScratchEvaluator&) = delete;

    // Through the center, as the FPS manager hands records on: one meant for another component
    // finds no action here and changes nothing.
    void Apply(const UserSettings::UserSetting& setting) {
        center().OnUserSettingParameter(setting);
    }

    // -1 when the settings give none.
    int Floor(int gfps) {
        evaluator->Update(gfps, refreshRate_Hz);
        return evaluator->GetSfpsLowerBound();
    }

    // The candidates up to `gfps`, ascending: every candidate is the nearest GFPS of an EFPS
    // equal to it, and the nearest GFPS never falls as the EFPS rises.
    std::vector<int> CandidatesUpTo(int gfps) {
        std::vector<int> found;
        for (int efps = 1; efps <= gfps; ++efps) {
            evaluator->Update(efps, refreshRate_Hz);
            const int nearest = evaluator->GetNearestGFPS();
            if (nearest > 0 && nearest <= gfps && (found.empty() || found.back() != nearest)) {
                found.push_back(nearest);
            }
        }
        return found;
    }

  private:
    // Declared first: it outlives the evaluator's last message.
    TalvexHarness::LogSink quiet{TalvexHarness::LogSink::Mode::Discard};
    int refreshRate_Hz;
    std::unique_ptr<GfpsEvaluator> evaluator;
};

std::string describe(const UserSettings::UserSetting& setting) {
    return setting.category + "," + setting.key + "," + setting.value;
}

// Where the floor comes from, when the evaluator says the GFPS is one of its candidates.
void explain(ScratchEvaluator& evaluator, const std::string& recordValue, SfpsFloor& floor) {
    const std::vector<int> candidates = evaluator.CandidatesUpTo(floor.gfps);
    if (candidates.empty() || candidates.back() != floor.gfps) return;
    const size_t index = candidates.size() - 1;
    if (index > 0) floor.candidateBelow = candidates[index - 1];
    std::vector<int> entries;
    try {
        entries = Basics::SplitStringToInt(recordValue, '-');
    } catch (const std::exception&) {
        return;
    }
    // A GFPS list has the GFPS itself there, above any floor.
    if (index < entries.size() && entries[index] <= *floor.floor) {
        floor.configured = entries[index];
    }
}

}  // namespace

std::vector<SfpsFloor> EffectiveSfpsFloors(const std::vector<UserSettings::UserSetting>& settings,
                                           int refreshRate_Hz, const std::vector<int>& gfpsHeld) {
    ScratchEvaluator evaluator(refreshRate_Hz);
    std::vector<SfpsFloor> floors;
    std::vector<int> last(gfpsHeld.size(), -1);
    std::vector<size_t> origin(gfpsHeld.size(), settings.size());
    for (size_t record = 0; record < settings.size(); ++record) {
        evaluator.Apply(settings[record]);
        for (size_t i = 0; i < gfpsHeld.size(); ++i) {
            const int floor = evaluator.Floor(gfpsHeld[i]);
            if (floor == last[i]) continue;
            last[i] = floor;
            origin[i] = record;
        }
    }
    for (size_t i = 0; i < gfpsHeld.size(); ++i) {
        SfpsFloor floor;
        floor.gfps = gfpsHeld[i];
        if (last[i] >= 0) {
            floor.floor = last[i];
            floor.record = describe(settings[origin[i]]);
            explain(evaluator, settings[origin[i]].value, floor);
        }
        floors.push_back(floor);
    }
    return floors;
}

}  // namespace TalvexSim
