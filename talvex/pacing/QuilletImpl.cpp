#include "talvex/pacing/QuilletImpl.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "talvex/basics/CharacterDevice.h"
#include "talvex/basics/Clock.h"
#include "talvex/basics/Conversions.h"
#include "talvex/basics/FixedText.h"
#include "talvex/basics/Log.h"
#include "talvex/basics/Trace.h"

namespace android {
namespace Nimbrel {
namespace Quillet {
namespace {

// The product is taken only while the tag is on.
void traceScaled(const char* name, float value, double scale) {
    if (!Basics::IsTraceEnabled()) return;
    atrace_int(TALVEX_TRACE_TAG, name, Basics::SaturatingTruncate(value * scale));
}

void traceMicroseconds(const char* name, float value_ms) { traceScaled(name, value_ms, 1000.0); }

float elapsed_ms(Basics::TimePoint since, Basics::TimePoint now) {
    return static_cast<float>(Basics::ElapsedMs(since, now));
}

// Rounds toward minus infinity, as times before the vsync need.
int64_t floorDivide(int64_t numerator, int64_t denominator) {
    const int64_t quotient = numerator / denominator;
    return quotient * denominator > numerator ? quotient - 1 : quotient;
}

}  // namespace

int FormatInfoLine(char* buffer, std::size_t size, const InfoLine& line) {
    Basics::FixedText text(buffer, size);
    text.AppendGeneral4(line.SFPS);
    text.Append(';');
    text.Append(static_cast<std::int64_t>(line.fastestFPS));
    text.Append(';');
    text.AppendGeneral4(line.frameLength_ms);
    text.Append(';');
    text.Append(line.window);
    for (float value : {line.quota_ms, line.averagedFPS, line.sleepCalibration_ms, line.timeDiff_ms,
                        line.sleepDuration_ms}) {
        text.Append(';');
        text.AppendGeneral4(value);
    }
    text.Append('\n');
    return text.Finish();
}

Quillet::QuilletImpl::QuilletImpl(PacingPolicy policy)
    : policy(policy), infoNodePath(Basics::NodeDirectory() + "/egl_buf") {
    TALVEX_LOGD("[Quillet] clearInfoNode while init");
    clearInfoNode();
    clearSysTraceInfo();
}

Quillet::QuilletImpl::~QuilletImpl() {
    TALVEX_LOGD("[Quillet] clearInfoNode while destruct");
    clearInfoNode();
    clearSysTraceInfo();
}

void Quillet::QuilletImpl::Update(int targetSFPS, int refreshRate, int maxFPS) {
    TALVEX_TRACE_SCOPE("Quillet::Update()");
    const float held = SFPS;
    updateStabilizedFPS(targetSFPS, std::min(refreshRate, maxFPS));
    // A new rate, or frames running free meanwhile, start a new schedule.
    if (isExploring || !(SFPS == held)) deadline = {};
}

void Quillet::QuilletImpl::updateStabilizedFPS(int targetSFPS, int fastest) {
    TALVEX_LOGD("[Quillet][Update] self.SFPS=%f, TARGET_SFPS_=%d, FASTEST_FPS_=%d", SFPS,
                targetSFPS, fastest);
    fastestFPS = fastest;
    if (targetSFPS > -11) {
        isExploring = false;
        TALVEX_LOGD("[Quillet] set isExploring(=%d) to false, due to TARGET_SFPS_=%d.", isExploring,
                    targetSFPS);
        // The calibration itself carries over to the new rate.
        if (!std::isnan(SFPS) && std::roundf(SFPS) != static_cast<float>(targetSFPS)) {
            resetQueues();
            TALVEX_LOGD(
                "[Quillet] clear sleepCalibrator because of targetSFPS change from %f to %d", SFPS,
                targetSFPS);
        }
    } else {
        isExploring = true;
        TALVEX_LOGD("[Quillet] set isExploring(=%d) to true, due to TARGET_SFPS_=%d.", isExploring,
                    targetSFPS);
    }

    if (targetSFPS > fastest) {
        resetQueues();
        SFPS = static_cast<float>(fastest);
        TALVEX_LOGW(
            "[Quillet][updateStabilizedFPS] TargetStabilizedFPS(=%d) > REFRESH_RATE(=%d) "
            "is invalid!",
            targetSFPS, fastest);
    } else if (targetSFPS >= 11) {
        SFPS = static_cast<float>(targetSFPS);
    } else if (isExploring) {
        SFPS = -static_cast<float>(targetSFPS);
    } else if (!std::isnan(SFPS)) {
        SFPS = kNaN;
        TALVEX_LOGD("[Quillet] clearInfoNode because of TARGET_SFPS_=%d not valid.", targetSFPS);
        clearInfoNode();
        clearSysTraceInfo();
    }
}

float Quillet::QuilletImpl::CalculateSleepDuration_ms() {
    TALVEX_TRACE_SCOPE("Quillet::CalculateSleepDuration_ms()");
    sleepsToWakeUp = false;
    return calculateSleep_ms();
}

Basics::TimePoint Quillet::QuilletImpl::CalculateWakeUpTime() {
    TALVEX_TRACE_SCOPE("Quillet::CalculateWakeUpTime()");
    sleepsToWakeUp = true;
    calculateSleep_ms();
    // Pacing off takes no clock read of its own.
    return std::isnan(SFPS) ? Basics::Now() : wakeUp;
}

float Quillet::QuilletImpl::calculateSleep_ms() {
    if (std::isnan(SFPS)) {
        reset();
        return 0.0f;
    }

    const bool toDeadline = pacesToDeadline();
    quota_ms = toDeadline ? deadlineQuota_ms() : clearableQueue.GetQuota() * 1000.0f;
    TALVEX_LOGD("[Quillet][CalculateSleepDuration_ms] quota_ms = %f", quota_ms);
    traceScaled("AI + Quota (us)", quota_ms, 1000.0);
    traceScaled("AI - Quota (us)", quota_ms, -1000.0);
    updateSleepCalibration();

    // Read even when unused, so that a clock source sees the same reads whatever the state.
    const Basics::TimePoint now = Basics::Now();
    float sleep_ms = 0.0f;
    if (lastPostUpdateTime && SFPS > 10.0f) {
        timeDiff_ms = elapsed_ms(*lastPostUpdateTime, now);
        traceMicroseconds("AI TimeDiff (us)", timeDiff_ms);
        sleep_ms = (quota_ms + sleepCalibration_ms) + (1000.0f / SFPS - timeDiff_ms);
    }
    sleepDuration_ms = sleep_ms;
    sleptToDeadline = toDeadline && sleep_ms > 0.0f;
    sendInfoToAI();

    if (!isExploring && sleep_ms > 0.0f) {
        traceMicroseconds("AI Sleep duration (us)", sleep_ms);
        TALVEX_LOGD("[Quillet][CalculateSleepDuration_ms] Finally, sleepDuration_ms = %f",
                    sleep_ms);
        wakeUp = now + std::chrono::nanoseconds(std::llround(static_cast<double>(sleep_ms) * 1e6));
        return sleep_ms;
    }
    atrace_int(TALVEX_TRACE_TAG, "AI Sleep duration (us)", 0);
    TALVEX_LOGD("[Quillet][CalculateSleepDuration_ms] Finally, sleepDuration_ms = 0");
    wakeUp = now;
    return 0.0f;
}

void Quillet::QuilletImpl::updateSleepCalibration() {
    averagedFPS = 1.0f / calibrationQueue.CalculateAveragedFrameLength_s();
    if (pacesToDeadline()) {
        // What the sleep gives up to the oversleep; always within the bounds below.
        sleepCalibration_ms = -oversleep_ms;
    } else if (static_cast<double>(SFPS) + 0.5 < averagedFPS) {
        sleepCalibration_ms = static_cast<float>(sleepCalibration_ms + 0.1);
    } else if (averagedFPS < SFPS) {
        sleepCalibration_ms = static_cast<float>(sleepCalibration_ms - 0.1);
    }
    // At most half a period: the calibration must never swallow a whole frame.
    const float upper_ms = (1000.0f / SFPS) * 0.5f;
    if (sleepCalibration_ms > upper_ms) {
        sleepCalibration_ms = upper_ms;
    } else if (sleepCalibration_ms < -3.0f) {
        sleepCalibration_ms = -3.0f;
    }
    TALVEX_LOGD("[Quillet][updateSleepCalibration] sleepCalibration_ms = %f", sleepCalibration_ms);
    traceMicroseconds("AI SleepCalibration (us)", sleepCalibration_ms);
}

void Quillet::QuilletImpl::PostUpdate() {
    TALVEX_TRACE_SCOPE("Quillet::PostUpdate()");
    const Basics::TimePoint now = Basics::Now();
    if (!lastPostUpdateTime) {
        atrace_int(TALVEX_TRACE_TAG, "AI FrameLength (us)", 0);
        lastPostUpdateTime = std::make_shared<Basics::TimePoint>(Basics::Now());
        return;
    }
    frameLength_ms = elapsed_ms(*lastPostUpdateTime, now);
    clearableQueue.SetFastestFPS(static_cast<float>(fastestFPS));
    clearableQueue.Update(frameLength_ms / 1000.0f, SFPS);
    calibrationQueue.Update(frameLength_ms / 1000.0f, SFPS);
    traceMicroseconds("AI FrameLength (us)", frameLength_ms);
    if (!Basics::IsDefaultTimestamp(deadline)) followSchedule(now);
    // Read again: the time spent on the queues belongs to the next frame.
    *lastPostUpdateTime = Basics::Now();
}

bool Quillet::QuilletImpl::pacesToDeadline() const {
    return policy == PacingPolicy::Deadline && !isExploring && SFPS > 10.0f;
}

std::chrono::nanoseconds Quillet::QuilletImpl::period() const {
    return std::chrono::nanoseconds(std::llround(1e9 / static_cast<double>(SFPS)));
}

// The time in hand against the schedule: how much later than one period after the last frame end
// the deadline falls. With no schedule running, one starts there, or at the first refresh of the
// cadence that leaves the frame a whole period.
float Quillet::QuilletImpl::deadlineQuota_ms() {
    if (!lastPostUpdateTime) return 0.0f;
    const Basics::TimePoint lastEnd = *lastPostUpdateTime;
    const Cadence previous = cadence;
    cadence = displayCadence(lastEnd, previous);
    // Joining or leaving the display's cadence, or a new refresh rate, would hurry a frame by up
    // to half a refresh.
    if (cadence.Follows() != previous.Follows() || cadence.refresh != previous.refresh) {
        deadline = {};
    }
    const Basics::TimePoint unhurried = lastEnd + period();
    if (Basics::IsDefaultTimestamp(deadline)) {
        deadline = cadence.Follows() ? alignedDeadline(lastEnd) : unhurried;
    } else if (cadence.Follows()) {
        // Back onto the refreshes the latest vsync gives, should the display have drifted.
        const std::chrono::nanoseconds margin(latchMargin_ns.load(std::memory_order_relaxed));
        const int64_t offset = (deadline + margin - cadence.vsync).count();
        const int64_t refresh = cadence.refresh.count();
        const int64_t nearest = floorDivide(offset + refresh / 2, refresh);
        deadline = cadence.vsync + nearest * cadence.refresh - margin;
    }
    return elapsed_ms(unhurried, deadline);
}

Quillet::QuilletImpl::Cadence Quillet::QuilletImpl::displayCadence(Basics::TimePoint now,
                                                                   const Cadence& previous) const {
    Basics::TimePoint vsync;
    std::chrono::nanoseconds refresh;
    bool read = false;
    for (int attempt = 0; attempt < kVsyncReadAttempts && !read; ++attempt) {
        read = vsyncs.Read(vsync, refresh);
    }
    // A write outlasting every attempt changes nothing this frame.
    if (!read) return vsyncs.Written() ? previous : Cadence{};
    // Compared this way round so that no vsync time, however far off, overflows.
    if (refresh.count() <= 0 || vsync < now - kVsyncExpiry) return {};
    const double perFrame = 1e9 / static_cast<double>(refresh.count()) / static_cast<double>(SFPS);
    const double whole = std::round(perFrame);
    if (whole < 1.0 || std::fabs(perFrame - whole) > kCadenceTolerance * whole) return {};
    return {vsync, refresh, static_cast<int64_t>(whole)};
}

// The refresh the last frame is latched at, if it was queued in time for the first it could make,
// then the frame's own refreshes later, less the margin.
Basics::TimePoint Quillet::QuilletImpl::alignedDeadline(Basics::TimePoint lastEnd) const {
    const std::chrono::nanoseconds margin(latchMargin_ns.load(std::memory_order_relaxed));
    const int64_t refresh = cadence.refresh.count();
    const int64_t after = (lastEnd + margin - cadence.vsync).count();
    const int64_t latched = -floorDivide(-after, refresh);
    return cadence.vsync + (latched + cadence.refreshesPerFrame) * cadence.refresh - margin;
}

// A frame more than half a period off its deadline starts a new schedule from its end: catching
// up would take a burst of short frames. On the display's cadence, so does a frame that ended
// after the refresh it was meant for, or half a refresh early: it is shown at another refresh.
void Quillet::QuilletImpl::followSchedule(Basics::TimePoint frameEnd) {
    if (sleptToDeadline) {
        // How much later than meant the sleep ended. A caller told milliseconds is measured
        // against the deadline, as it always was, so that its frames keep their nanoseconds.
        const float shown_ms = sleepsToWakeUp ? elapsed_ms(wakeUp, frameEnd)
                                              : elapsed_ms(deadline, frameEnd) + oversleep_ms;
        oversleep_ms +=
            (std::clamp(shown_ms, 0.0f, kMaxOversleep_ms) - oversleep_ms) * kOversleepWeight;
        sleptToDeadline = false;
    }
    const std::chrono::nanoseconds late = frameEnd - deadline;
    if (cadence.Follows()) {
        const std::chrono::nanoseconds margin(latchMargin_ns.load(std::memory_order_relaxed));
        const bool missed = late > margin || late < -cadence.refresh / 2;
        deadline =
            missed ? Basics::TimePoint{} : deadline + cadence.refreshesPerFrame * cadence.refresh;
        return;
    }
    const std::chrono::nanoseconds step = period();
    deadline = late > step / 2 || late < -step / 2 ? Basics::TimePoint{} : deadline + step;
}

void Quillet::QuilletImpl::OnVsync(Basics::TimePoint vsync, std::chrono::nanoseconds period) {
    vsyncs.Write(vsync, period);
}

void Quillet::QuilletImpl::SetLatchMargin(std::chrono::nanoseconds margin) {
    const std::chrono::nanoseconds kept =
        std::clamp<std::chrono::nanoseconds>(margin, std::chrono::nanoseconds(0), kMostLatchMargin);
    latchMargin_ns.store(kept.count(), std::memory_order_relaxed);
}

void Quillet::QuilletImpl::VsyncTimeline::Write(Basics::TimePoint vsync,
                                                std::chrono::nanoseconds period) {
    // Odd while a write is under way; a second writer waits for the first.
    uint32_t even = sequence.load(std::memory_order_relaxed) & ~1u;
    while (!sequence.compare_exchange_weak(even, even + 1, std::memory_order_acquire,
                                           std::memory_order_relaxed)) {
        even &= ~1u;
    }
    // Released so that a reader who sees either value also sees the odd count before it.
    vsync_ns.store(vsync.time_since_epoch().count(), std::memory_order_release);
    period_ns.store(period.count(), std::memory_order_release);
    sequence.store(even + 2, std::memory_order_release);
}

bool Quillet::QuilletImpl::VsyncTimeline::Written() const {
    return sequence.load(std::memory_order_relaxed) != 0;
}

bool Quillet::QuilletImpl::VsyncTimeline::Read(Basics::TimePoint& vsync,
                                               std::chrono::nanoseconds& period) const {
    const uint32_t before = sequence.load(std::memory_order_acquire);
    if (before == 0 || (before & 1u) != 0) return false;
    // Acquired, not fenced: the count is read again only after both values.
    vsync = Basics::TimePoint(std::chrono::nanoseconds(vsync_ns.load(std::memory_order_acquire)));
    period = std::chrono::nanoseconds(period_ns.load(std::memory_order_acquire));
    return sequence.load(std::memory_order_relaxed) == before;
}

void Quillet::QuilletImpl::reset() {
    sleepCalibration_ms = -1.0f;
    timeDiff_ms = kNaN;
    quota_ms = kNaN;
    averagedFPS = kNaN;
}

void Quillet::QuilletImpl::resetQueues() {
    clearableQueue.Reset();
    calibrationQueue.Reset();
}

void Quillet::QuilletImpl::sendInfoToAI() {
    const uint32_t quotaCount = clearableQueue.GetQuotaCounts();
    if (Basics::IsTraceEnabled()) {
        atrace_int(TALVEX_TRACE_TAG, "AI_Egl QuotaCounts", static_cast<int32_t>(quotaCount));
    }

    // Opened before the line is built: a node that cannot be written costs no formatting.
    const int node = openInfoNode();
    if (node < 0) {
        warnUnwritableNode("send info to Brain");
        return;
    }
    char window[96];
    clearableQueue.FormatDumpedFileInfo(window, sizeof(window));
    const InfoLine line{isExploring ? -SFPS : SFPS,
                        fastestFPS,
                        frameLength_ms,
                        window,
                        quota_ms,
                        averagedFPS,
                        sleepCalibration_ms,
                        timeDiff_ms,
                        isExploring ? 0.0f : sleepDuration_ms};
    char text[256];
    const int length = FormatInfoLine(text, sizeof(text), line);
    writeAndClose(node, text,
                  length < 0 ? 0 : std::min(static_cast<std::size_t>(length), sizeof(text) - 1));
}

void Quillet::QuilletImpl::clearInfoNode() {
    const int node = openInfoNode();
    if (node < 0) {
        warnUnwritableNode("clear the info to Brain");
        return;
    }
    writeAndClose(node, "\n", 1);
}

void Quillet::QuilletImpl::clearSysTraceInfo() {
    if (!Basics::IsTraceEnabled()) return;
    for (const char* counter :
         {"AI_Egl QuotaCounts", "AI + Quota (us)", "AI - Quota (us)", "AI SleepCalibration (us)",
          "AI FrameLength (us)", "AI TimeDiff (us)"}) {
        atrace_int(TALVEX_TRACE_TAG, counter, 0);
    }
}

int Quillet::QuilletImpl::openInfoNode() const {
    // Created, when missing, as a stream opened for writing would create it.
    return ::open(infoNodePath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}

void Quillet::QuilletImpl::writeAndClose(int node, const char* text, std::size_t length) {
    // Failures after the open go unreported, like a stream's failed write or close.
    std::size_t written = 0;
    while (written < length) {
        const ssize_t result = ::write(node, text + written, length - written);
        if (result < 0 && errno == EINTR) continue;
        if (result <= 0) break;
        written += static_cast<std::size_t>(result);
    }
    ::close(node);
}

void Quillet::QuilletImpl::warnUnwritableNode(const char* attempt) const {
    TALVEX_LOGW(
        "[Quillet] Error occur while try to %s:\n\t Failed to write info to node: '%s'\n"
        "Please check the Kernel Version and wheter the node is valid.\n",
        attempt, infoNodePath.c_str());
}

}  // namespace Quillet
}  // namespace Nimbrel
}  // namespace android
