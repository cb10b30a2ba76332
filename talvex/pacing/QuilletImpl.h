#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "talvex/basics/Clock.h"
#include "talvex/math/ClearableFrameLengthsQueue.h"
#include "talvex/math/FixedLengthFrameLengthsQueue.h"
#include "talvex/pacing/Quillet.h"

namespace android {
namespace Nimbrel {
namespace Quillet {

// The values of one line of the pacing node, as they are printed.
struct InfoLine {
    float SFPS;  // negated while exploring
    int32_t fastestFPS;
    float frameLength_ms;
    const char* window;  // the dump row of the frame window
    float quota_ms;
    float averagedFPS;
    float sleepCalibration_ms;
    float timeDiff_ms;
    float sleepDuration_ms;  // 0 while exploring
};

// Nine ";"-separated fields and a line end, into a caller's buffer without allocating, cut as
// snprintf cuts. Floats read as a standard stream at precision 4 prints them, except that every
// NaN is "nan" (a 0/0 on x86-64 carries the sign bit). Returns the uncut length.
int FormatInfoLine(char* buffer, std::size_t size, const InfoLine& line);

// Per frame nothing here allocates except the first PostUpdate, and the only system calls are
// the node's open, write and close once per calculated frame.
class Quillet::QuilletImpl {
  public:
    explicit QuilletImpl(PacingPolicy policy);
    ~QuilletImpl();
    QuilletImpl(const QuilletImpl&) = delete;
    QuilletImpl& operator=(const QuilletImpl&) = delete;

    void Update(int targetSFPS, int refreshRate, int maxFPS);
    float CalculateSleepDuration_ms();
    Basics::TimePoint CalculateWakeUpTime();
    void PostUpdate();
    void OnVsync(Basics::TimePoint vsync, std::chrono::nanoseconds period);
    void SetLatchMargin(std::chrono::nanoseconds margin);

  private:
    // Written from any thread and read on the render thread: a sequence lock whose reader never
    // waits and whose writers wait only for each other.
    class VsyncTimeline {
      public:
        void Write(Basics::TimePoint vsync, std::chrono::nanoseconds period);
        // False while a write is under way or before the first.
        bool Read(Basics::TimePoint& vsync, std::chrono::nanoseconds& period) const;
        bool Written() const;

      private:
        std::atomic<uint32_t> sequence{0};
        std::atomic<int64_t> vsync_ns{0};
        std::atomic<int64_t> period_ns{0};
    };
    static_assert(std::atomic<int64_t>::is_always_lock_free, "vsyncs must not take a lock");

    // The display's refreshes that frames of the held rate are scheduled against; none when the
    // rate does not divide the refresh rate or no recent vsync is known.
    struct Cadence {
        Basics::TimePoint vsync{};
        std::chrono::nanoseconds refresh{0};
        int64_t refreshesPerFrame = 0;
        bool Follows() const { return refreshesPerFrame > 0; }
    };

    float calculateSleep_ms();
    void updateStabilizedFPS(int targetSFPS, int fastestFPS);
    void updateSleepCalibration();
    void reset();
    void resetQueues();

    bool pacesToDeadline() const;
    std::chrono::nanoseconds period() const;
    float deadlineQuota_ms();
    Cadence displayCadence(Basics::TimePoint now, const Cadence& previous) const;
    Basics::TimePoint alignedDeadline(Basics::TimePoint lastEnd) const;
    void followSchedule(Basics::TimePoint frameEnd);

    void sendInfoToAI();
    void clearInfoNode();
    void clearSysTraceInfo();
    // Opens the node truncated for writing, for one open-write-close cycle; -1 when it cannot.
    int openInfoNode() const;
    static void writeAndClose(int node, const char* text, std::size_t length);
    // attempt completes "Error occur while try to ...".
    void warnUnwritableNode(const char* attempt) const;

    static constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    // A sleep does not end early, and more than 2 ms late is the scheduler's doing, not the
    // sleep's. Each frame weighs 1/16, so one preempted sleep moves the estimate little.
    static constexpr float kMaxOversleep_ms = 2.0f;
    static constexpr float kOversleepWeight = 1.0f / 16.0f;
    // Refresh rates within 1 % of a multiple of the held rate count as that multiple (59.94 Hz
    // panels); a vsync older than a second means the display stopped reporting.
    static constexpr double kCadenceTolerance = 0.01;
    static constexpr std::chrono::seconds kVsyncExpiry{1};
    static constexpr int kVsyncReadAttempts = 8;
    // No panel latches a second ahead; the bound keeps the arithmetic on times in range.
    static constexpr std::chrono::seconds kMostLatchMargin{1};

    const PacingPolicy policy;

    const std::string infoNodePath;
    float SFPS = kNaN;
    Math::ClearableFrameLengthsQueue clearableQueue;
    std::shared_ptr<Basics::TimePoint> lastPostUpdateTime;
    Math::FixedLengthFrameLengthsQueue calibrationQueue{10};
    int32_t fastestFPS = 0;
    float quota_ms = kNaN;
    float averagedFPS = kNaN;
    float sleepCalibration_ms = -1.0f;
    float timeDiff_ms = kNaN;
    float sleepDuration_ms = kNaN;
    float frameLength_ms = kNaN;
    bool isExploring = false;
    // When the frame under way should stop sleeping: the clock read of its calculation plus the
    // sleep returned.
    Basics::TimePoint wakeUp{};
    // Deadline only: when the frame under way should end (default while no schedule runs),
    // whether its sleep was computed against that, and the oversleep learned so far.
    Basics::TimePoint deadline{};
    bool sleptToDeadline = false;
    bool sleepsToWakeUp = false;  // the caller asked for a wake-up time, not milliseconds
    float oversleep_ms = 0.0f;
    Cadence cadence;
    VsyncTimeline vsyncs;
    std::atomic<int64_t> latchMargin_ns{1000000};
};

}  // namespace Quillet
}  // namespace Nimbrel
}  // namespace android
