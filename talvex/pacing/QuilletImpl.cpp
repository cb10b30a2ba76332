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
        return sleep_ms;
    }
    atrace_int(TALVEX_TRACE_TAG, "AI Sleep duration (us)", 0);
    TALVEX_LOGD("[Quillet][CalculateSleepDuration_ms] Finally, sleepDuration_ms = 0");
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
// the deadline falls. With no schedule running, one starts there.
float Quillet::QuilletImpl::deadlineQuota_ms() {
    if (!lastPostUpdateTime) return 0.0f;
    const Basics::TimePoint unhurried = *lastPostUpdateTime + period();
    if (Basics::IsDefaultTimestamp(deadline)) deadline = unhurried;
    return elapsed_ms(unhurried, deadline);
}

// A frame more than half a period off its deadline starts a new schedule from its end: catching
// up would take a burst of short frames.
void Quillet::QuilletImpl::followSchedule(Basics::TimePoint frameEnd) {
    if (sleptToDeadline) {
        // The frame's length less the one intended, since the sleep was shortened by the estimate.
        const float shown_ms = elapsed_ms(deadline, frameEnd) + oversleep_ms;
        oversleep_ms +=
            (std::clamp(shown_ms, 0.0f, kMaxOversleep_ms) - oversleep_ms) * kOversleepWeight;
        sleptToDeadline = false;
    }
    const std::chrono::nanoseconds late = frameEnd - deadline;
    const std::chrono::nanoseconds step = period();
    deadline = late > step / 2 || late < -step / 2 ? Basics::TimePoint{} : deadline + step;
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
