#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "harness/LogSink.h"
#include "talvex/brain_src/fps_stabilizer/GfpsEvaluator.h"
#include "talvex/user_settings/UserSettingsCenter.h"
#include "tools/sim/report/EffectiveFloor.h"
#include "tools/sim/report/Report.h"

namespace TalvexSim {
namespace {

// One running second, held at `held`, cool, at the game's cap unless told otherwise.
TimelineRow second(double time_s, int held, int ofps) {
    TimelineRow row;
    row.time_s = time_s;
    row.heldFps = held;
    row.rateHeld = held < 60;
    row.ofps = ofps;
    row.gfps = 60;
    row.deviceTemperature_C = 35.0;
    return row;
}

ReportContext context(double running_s) {
    ReportContext context;
    context.scenario = "hand-made";
    context.policy = "talvex";
    context.running_s = running_s;
    context.gameCapFps = 60;
    return context;
}

const Finding* find(const Report& report, const std::string& kind) {
    for (const Finding& finding : report.diagnostics) {
        if (finding.kind == kind) return &finding;
    }
    return nullptr;
}

double evidence(const Finding& finding, const std::string& name) {
    for (const auto& [key, value] : finding.evidence) {
        if (key == name) return value;
    }
    ADD_FAILURE() << "no evidence named " << name;
    return -1.0;
}

TEST(ReportTest, StabilitySkipsTheStartAndThreeSecondsAroundEveryEvent) {
    ReportBuilder builder;
    for (int t = 1; t <= 45; ++t) {
        const int held = t < 20 ? 60 : 45;  // the held rate changes at 20
        int ofps = held;
        if (t == 5 || t == 18 || t == 37) ofps = 30;  // start, before the change, after resume
        if (t == 25) ofps = 40;                       // steady and off
        if (t == 12) ofps = 59;                       // steady and within 1
        TimelineRow row = second(t, held, ofps);
        row.paused = t >= 31 && t <= 35;  // paused at 31, resumed at 36
        builder.Add(row);
    }
    const Report report = builder.Finish(context(40), FrameHistogram());
    // Steady: 11-16, 24-27 and 40-45; off among them: 25 alone.
    EXPECT_DOUBLE_EQ(report.steady_s, 16.0);
    ASSERT_TRUE(report.fpsStability.has_value());
    EXPECT_DOUBLE_EQ(*report.fpsStability, 15.0 / 16.0);
    EXPECT_FALSE(ReportBuilder().Finish(context(0), FrameHistogram()).fpsStability.has_value());
}

TEST(ReportTest, AGameRunningFreeBelowItsCapIsJudgedAgainstItsMedianRate) {
    // Nothing holds a rate; the game reaches 44 or 45 of its 60, and once 30.
    ReportBuilder slow;
    ReportBuilder atCap;
    for (int t = 1; t <= 40; ++t) {
        const int ofps = t == 25 ? 30 : 44 + t % 2;
        TimelineRow row = second(t, 60, ofps);
        row.shownIntervals_ms.assign(static_cast<size_t>(ofps), 1000.0f / static_cast<float>(ofps));
        slow.Add(row);
        TimelineRow fast = second(t, 60, t == 25 ? 30 : 60);
        fast.shownIntervals_ms.assign(60, 1000.0f / 60.0f);
        atCap.Add(fast);
    }
    const Report report = slow.Finish(context(40), FrameHistogram());
    ASSERT_TRUE(report.fpsStability.has_value());
    // Steady: 11-40; the median is 44 or 45, and every second but 25 is within one of it.
    EXPECT_DOUBLE_EQ(*report.fpsStability, 29.0 / 30.0);
    ASSERT_TRUE(report.cadenceMatch.has_value());
    EXPECT_GT(*report.cadenceMatch, 0.95);
    // A game that reaches its cap is judged against the cap.
    EXPECT_DOUBLE_EQ(*atCap.Finish(context(40), FrameHistogram()).fpsStability, 29.0 / 30.0);
}

TEST(ReportTest, DisplayedRatesThatMissTheirCadenceOrHalveAreFindings) {
    // 30 held on a fixed 60 Hz panel, its frames alternating one refresh early and one late.
    ReportBuilder alternating;
    // 60 aimed at, 30 shown for 20 s, the governor lowering the clock for the last 8 of them.
    ReportBuilder halving;
    for (int t = 1; t <= 60; ++t) {
        TimelineRow row = second(t, 30, 30);
        for (int i = 0; i < 28; ++i) row.shownIntervals_ms.push_back(i % 4 == 0 ? 50.0f : 33.3f);
        row.shownFrames = 30;
        alternating.Add(row);
        TimelineRow full = second(t, 60, t > 20 && t <= 40 ? 30 : 60);
        full.shownFrames = full.ofps;
        full.governorState = t > 32 && t <= 40 ? 1 : 0;
        halving.Add(full);
    }
    ReportContext fixed60 = context(60);
    DisplayParams panel;
    fixed60.display = panel;
    const Report alternated = alternating.Finish(fixed60, FrameHistogram());
    const Finding* alternates = find(alternated, "pacing_alternates");
    ASSERT_NE(alternates, nullptr);
    EXPECT_DOUBLE_EQ(evidence(*alternates, "off_cadence_share"), 0.25);
    EXPECT_EQ(find(alternated, "display_judder"), nullptr);
    EXPECT_EQ(find(alternated, "display_halved"), nullptr);  // 30 is what it aims at
    // On a variable-refresh panel nothing is off a cadence the panel cannot keep.
    fixed60.display.mode = DisplayMode::Vrr;
    EXPECT_EQ(find(alternating.Finish(fixed60, FrameHistogram()), "pacing_alternates"), nullptr);

    const Report halvedReport = halving.Finish(context(60), FrameHistogram());
    const Finding* halved = find(halvedReport, "display_halved");
    ASSERT_NE(halved, nullptr);
    EXPECT_DOUBLE_EQ(evidence(*halved, "halved_s"), 20.0);
    EXPECT_DOUBLE_EQ(evidence(*halved, "halved_while_throttled_s"), 8.0);
    EXPECT_DOUBLE_EQ(evidence(*halved, "first_halved_s"), 21.0);
    EXPECT_NE(halved->text.find("(30 FPS or fewer on the 60 Hz panel)"), std::string::npos);
}

TEST(ReportTest, ADeviceOfPartsReportsItsClocksPowersCapAndDie) {
    ReportBuilder builder;
    for (int t = 1; t <= 4; ++t) {
        TimelineRow row = second(t, 60, 60);
        row.paused = t == 4;
        row.cpu_MHz = t == 4 ? 408.0 : 1000.0 + 100.0 * t;  // running: 1100, 1200, 1300
        row.gpu_MHz = 600.0;
        row.cpuPower_W = 0.5;
        row.gpuPower_W = t == 4 ? 0.1 : 1.5;
        row.dieTemperature_C = 40.0 + t;
        row.capped = t == 2 || t == 4;
        builder.Add(row);
    }
    const Report report = builder.Finish(context(3), FrameHistogram());
    EXPECT_DOUBLE_EQ(*report.meanCpu_MHz, 1200.0);  // running rows only
    EXPECT_DOUBLE_EQ(*report.meanGpu_MHz, 600.0);
    EXPECT_DOUBLE_EQ(*report.gpuPower_W, (1.5 * 3 + 0.1) / 4.0);  // every row
    EXPECT_DOUBLE_EQ(*report.timeCapped_s, 2.0);
    EXPECT_DOUBLE_EQ(*report.peakDieTemperature_C, 44.0);
    // The older model has no clocks: nothing to report.
    ReportBuilder older;
    older.Add(second(1, 60, 60));
    EXPECT_FALSE(older.Finish(context(1), FrameHistogram()).meanCpu_MHz.has_value());
}

TEST(ReportTest, SfpsReversalsBetweenTwoValuesAreADither) {
    ReportBuilder builder;
    std::vector<int> sfps = {-1, 50, 49, 48, 47};
    for (int i = 0; i < 30; ++i) sfps.push_back(i % 2 == 0 ? 48 : 47);  // 30 reversals
    sfps.insert(sfps.end(), {-48, 48, -1, 40, 45, 40});  // exploring is skipped; -1 ends it
    for (size_t i = 0; i < sfps.size(); ++i) {
        TimelineRow row = second(static_cast<double>(i + 1), 60, 60);
        row.sfps = sfps[i];
        builder.Add(row);
    }
    const Report report = builder.Finish(context(600), FrameHistogram());
    // 3 steps down, 30 alternations, 47->48 after exploring, then 40->45->40 anew.
    EXPECT_DOUBLE_EQ(report.sfpsChangesPer10Min, 3 + 30 + 1 + 2);
    EXPECT_DOUBLE_EQ(report.sfpsReversalsPer10Min, 30 + 1 + 1);
    const Finding* dither = find(report, "sfps_dither");
    ASSERT_NE(dither, nullptr);
    EXPECT_EQ(evidence(*dither, "reversals"), 31);
    EXPECT_EQ(evidence(*dither, "low_sfps"), 47);
    EXPECT_EQ(evidence(*dither, "high_sfps"), 48);
    EXPECT_NE(dither->text.find("reversed 31 times between 47 and 48"), std::string::npos);
}

TEST(ReportTest, GfpsFlapsWithTheRateReachedAndAPauseBreaksTheChain) {
    ReportBuilder builder;
    double t = 0;
    for (int i = 0; i < 40; ++i) {
        TimelineRow row = second(++t, 30, i % 2 == 0 ? 28 : 31);
        row.gfps = i % 2 == 0 ? 25 : 30;
        builder.Add(row);
    }
    TimelineRow paused = second(++t, 30, 0);
    paused.paused = true;
    builder.Add(paused);
    for (int i = 0; i < 5; ++i) {
        TimelineRow row = second(++t, 40, 40);
        row.gfps = 40;
        builder.Add(row);
    }
    ReportContext ctx = context(1200);
    ctx.efpsMaxWrites = 123;
    const Report report = builder.Finish(ctx, FrameHistogram());
    EXPECT_DOUBLE_EQ(report.gfpsChangesPer10Min, 39.0 / 2.0);  // 30 -> 40 across the pause is none
    const Finding* flap = find(report, "gfps_flapping");
    ASSERT_NE(flap, nullptr);
    EXPECT_EQ(evidence(*flap, "low_gfps"), 25);
    EXPECT_EQ(evidence(*flap, "high_gfps"), 30);
    EXPECT_EQ(evidence(*flap, "gfps_changes"), 39);
    EXPECT_DOUBLE_EQ(evidence(*flap, "mean_ofps_while_flapping"), 29.5);
    EXPECT_EQ(evidence(*flap, "efps_max_writes"), 123);
    // Too rare to be a finding: the same 39 changes over ten hours.
    ReportBuilder rare;
    for (int i = 0; i < 40; ++i) {
        TimelineRow row = second(i + 1, 30, 30);
        row.gfps = i % 2 == 0 ? 25 : 30;
        rare.Add(row);
    }
    EXPECT_EQ(find(rare.Finish(context(36000), FrameHistogram()), "gfps_flapping"), nullptr);
}

TEST(ReportTest, RecoveryIsTimedFromTheLastFallBelowTheLowerBound) {
    ReportBuilder builder;
    const auto add = [&builder](double t, double temperature_C, int sfps) {
        TimelineRow row = second(t, 60, 60);
        row.deviceTemperature_C = temperature_C;
        row.sfps = sfps;
        builder.Add(row);
    };
    add(1, 38, -1);
    add(2, 41, 60);
    add(3, 46, 50);     // first decrease
    add(4, 39, 48);     // cool ...
    add(5, 40.5, 48);   // ... warm again
    add(6, 39.5, 48);   // cool from here
    add(7, 39.0, -48);  // exploring: neither ends nor breaks it
    add(26, 38.0, 60);  // back at the GFPS
    add(27, 46.0, 45);  // a second episode is not reported
    add(28, 30.0, -1);
    const Report report = builder.Finish(context(28), FrameHistogram());
    EXPECT_EQ(report.timeToFirstDecrease_s, 3.0);
    EXPECT_EQ(report.timeToRecover_s, 20.0);

    // Cooled during a pause: the manager starts afresh, which is no recovery.
    ReportBuilder never;
    TimelineRow hot = second(1, 45, 45);
    hot.sfps = 45;
    hot.deviceTemperature_C = 47;
    never.Add(hot);
    TimelineRow paused = second(2, 45, 0);
    paused.paused = true;
    paused.deviceTemperature_C = 30;
    never.Add(paused);
    never.Add(second(3, 60, 60));
    EXPECT_FALSE(never.Finish(context(2), FrameHistogram()).timeToRecover_s.has_value());
}

UserSettings::UserSetting record(const std::string& key, const std::string& value) {
    return {"stabilizer", key, value};
}

TEST(ReportTest, FloorComesFromTheEvaluatorAndLeavesOtherActionsInPlace) {
    const TalvexHarness::LogSink log;
    auto& center = UserSettings::UserSettingsCenter::GetInstance();
    // Another game's evaluator, registered before and used after.
    center.OnCurrentBrainResume(4321);
    android::FpsStabilizer::GfpsEvaluator other(60);

    const std::vector<UserSettings::UserSetting> settings = {
        record("gfps", "30-60-90-max"),
        record("sfps", "0-0-60-110"),
        {"sfps_temperature", "max_temperature", "46"},  // for another component
        record("ofps_max", "0-0-60-80")};               // replaces the list
    const std::vector<SfpsFloor> floors = EffectiveSfpsFloors(settings, 120, {60, 90, 120});
    ASSERT_EQ(floors.size(), 3u);
    EXPECT_EQ(floors[0].floor, 0);
    EXPECT_EQ(floors[1].floor, 75);
    EXPECT_EQ(floors[2].floor, 105);
    EXPECT_EQ(floors[2].record, "stabilizer,ofps_max,0-0-60-80");
    EXPECT_EQ(floors[2].configured, 80);
    EXPECT_EQ(floors[2].candidateBelow, 90);
    EXPECT_EQ(floors[1].record, "stabilizer,sfps,0-0-60-110");  // unchanged by the last one
    EXPECT_FALSE(EffectiveSfpsFloors({}, 60, {60})[0].floor.has_value());

    center.OnCurrentBrainResume(4321);
    center.OnUserSettingParameter(record("gfps", "30-60"));
    other.Update(60, 60);
    EXPECT_EQ(other.GetNearestGFPS(), 60);
    center.OnCurrentBrainDie(4321);
}

TEST(ReportTest, HotAtTheFloorNamesTheSettingThatSetsTheFloor) {
    ReportBuilder builder;
    for (int t = 1; t <= 300; ++t) {
        TimelineRow row = second(t, 105, 105);
        row.gfps = 120;
        row.sfps = 105;
        row.deviceTemperature_C = 52.0;
        row.upperBound_C = 46.0;
        row.power_W = 1.0 / 3.0;
        builder.Add(row);
    }
    ReportContext ctx = context(300);
    ctx.refreshRate_Hz = 120;
    ctx.settings = {record("gfps", "30-60-90-120"), record("sfps", "0-0-60-80")};
    const Report report = builder.Finish(ctx, FrameHistogram());
    const Finding* hot = find(report, "hot_at_sfps_floor");
    ASSERT_NE(hot, nullptr);
    EXPECT_EQ(evidence(*hot, "time_above_upper_bound_at_floor_s"), 300);
    EXPECT_EQ(evidence(*hot, "configured_sfps_lower_bound"), 80);
    EXPECT_NE(hot->text.find("'stabilizer,sfps,0-0-60-80': its entry 80 for GFPS 120 is raised "
                             "to 105"),
              std::string::npos)
        << hot->text;

    EXPECT_EQ(report.effectiveSfpsFloor.at(0).floor, 105);
    EXPECT_EQ(report.timeAboveUpperBound_s, 300.0);
    EXPECT_NEAR(report.meanPower_W, 1.0 / 3.0, 1e-12);
}

TEST(ReportTest, SummaryFiguresComeFromRunningRowsOnly) {
    auto row = [](double time_s, int sfps, bool paused = false) {
        TimelineRow r = second(time_s, 60, sfps > 0 ? sfps : 60);
        r.sfps = sfps;
        r.paused = paused;
        return r;
    };
    ReportBuilder builder;
    for (const TimelineRow& r :
         {row(1, -1), row(2, 60), row(3, 55), row(4, 50), row(5, 40, true), row(6, -35)}) {
        builder.Add(r);
    }
    FrameHistogram frames;
    for (int i = 0; i < 300; ++i) frames.Add(20.0f);
    ReportContext summaryContext = context(5.0);
    summaryContext.hostTicks = 10;
    summaryContext.exploringTicks = 1;
    const Report report = builder.Finish(summaryContext, frames);
    EXPECT_EQ(report.timeToFirstDecrease_s, 3.0);  // 60 of 60 is no decrease
    EXPECT_EQ(report.lowestSfps, 50);              // the paused row does not count
    EXPECT_DOUBLE_EQ(report.heldShare, 3.0 / 5.0);
    EXPECT_DOUBLE_EQ(report.exploringShare, 0.1);
    EXPECT_DOUBLE_EQ(report.meanFps, 60.0);
    EXPECT_EQ(report.frameP99_ms, 20.0);

    ReportBuilder replay;
    for (const TimelineRow& r : {row(1, -1), row(2, -1)}) replay.Add(r);
    const Report open = replay.Finish(context(1.0), {});
    EXPECT_FALSE(open.timeToFirstDecrease_s.has_value());
    EXPECT_FALSE(open.lowestSfps.has_value());
    EXPECT_DOUBLE_EQ(open.meanFps, 60.0);  // the mean OFPS without frames
}

}  // namespace
}  // namespace TalvexSim
