#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "SimTestSupport.h"
#include "tools/sim/input/Policy.h"
#include "tools/sim/input/Scenario.h"

namespace TalvexSim {
namespace {

std::string refusal(const std::string& name) {
    try {
        ParsePolicy(name);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "<accepted>";
}

TEST(PacingTest, AScenarioNamesItsPacingAndAPolicyNameMayOverrideIt) {
    const struct {
        const char* word;
        Pacing pacing;
    } words[] = {{"quota", Pacing::Quota},
                 {"deadline", Pacing::Deadline},
                 {"deadline-vsync", Pacing::DeadlineVsync}};
    for (const auto& w : words) {
        const Scenario scenario = LoadScenarioText(
            TalvexSimTest::ScenarioText(std::string("  \"pacing\": \"") + w.word + "\",\n"),
            "s.json", "s");
        EXPECT_EQ(scenario.pacing, w.pacing) << w.word;
    }
    const Scenario plain = LoadScenarioText(TalvexSimTest::ScenarioText(), "s.json", "s");
    EXPECT_EQ(plain.pacing, Pacing::Quota);
    EXPECT_FALSE(plain.pacingLatchMargin_ms.has_value());
    EXPECT_EQ(LoadScenarioText(TalvexSimTest::ScenarioText("  \"pacing_latch_margin_ms\": 4.5,\n"),
                               "s.json", "s")
                  .pacingLatchMargin_ms,
              4.5);
    EXPECT_NE(
        TalvexSimTest::LoadError(TalvexSimTest::ScenarioText("  \"pacing_latch_margin_ms\": -1,\n"))
            .find("pacing_latch_margin_ms"),
        std::string::npos);

    const struct {
        const char* name;
        PolicyKind kind;
        std::optional<Pacing> pacing;
    } policies[] = {
        {"talvex", PolicyKind::Library, std::nullopt},
        {"talvex+deadline", PolicyKind::Library, Pacing::Deadline},
        {"talvex+deadline-vsync", PolicyKind::Library, Pacing::DeadlineVsync},
        // A fixed cap keeps the scenario's pacing.
        {"fixed:30", PolicyKind::Fixed, std::nullopt},
    };
    for (const auto& p : policies) {
        const Policy policy = ParsePolicy(p.name);
        EXPECT_EQ(policy.kind, p.kind) << p.name;
        EXPECT_EQ(policy.pacing, p.pacing) << p.name;
        EXPECT_EQ(policy.name, p.name);
    }
}

TEST(PacingTest, ANameThatIsNoPolicyIsRefusedWithTheListOfPolicies) {
    for (const char* name : {"deadline-vsync", "talvex+vsync", "talvex+deadline-vsync2",
                             "talvex+quota", "fixed:30+deadline-vsync"}) {
        const std::string message = refusal(name);
        EXPECT_NE(message.find(std::string("'") + name + "' is not"), std::string::npos) << message;
    }
    EXPECT_NE(refusal("talvex+vsync").find("talvex+deadline, talvex+deadline-vsync, swap-interval"),
              std::string::npos);
}

}  // namespace
}  // namespace TalvexSim
