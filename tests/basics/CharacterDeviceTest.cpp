#include <gtest/gtest.h>
#include <sys/stat.h>

#include "harness/NodeDirectory.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/CharacterDevice.h"

namespace {

class CharacterDeviceTest : public ::testing::Test {
  protected:
    // Marks the node with content the device would never write, so a later read shows whether
    // it was written.
    void Poison() { nodes.Write("efps_max", "untouched"); }

    TalvexHarness::VirtualClock clock;
    TalvexHarness::NodeDirectory nodes;
    Basics::CharacterDevice device{nodes.NodePath("efps_max")};
};

TEST(NodeDirectory, DefaultsToTheModuleParameters) {
    EXPECT_EQ(Basics::NodeDirectory(), "/sys/module/tarrow/parameters");
    Basics::SetNodeDirectory("/tmp/x");
    EXPECT_EQ(Basics::NodeDirectory(), "/tmp/x");
    Basics::SetNodeDirectory("/sys/module/tarrow/parameters");
}

TEST_F(CharacterDeviceTest, NoTargetMeansNoWrite) {
    for (int i = 0; i < 30; ++i) {
        device.Update();
        clock.AdvanceSeconds(1);
    }
    EXPECT_FALSE(nodes.Exists("efps_max"));
}

TEST_F(CharacterDeviceTest, WritesOnlyOnChange) {
    nodes.Write("efps_max", "0");
    device.SetTargetStatus("60");
    EXPECT_EQ(nodes.Read("efps_max"), "60");
    Poison();
    device.SetTargetStatus("60");  // same target, device known to hold it
    device.Update();
    EXPECT_EQ(nodes.Read("efps_max"), "untouched");
    device.SetTargetStatus("45");
    EXPECT_EQ(nodes.Read("efps_max"), "45");
}

TEST_F(CharacterDeviceTest, MatchingNodeIsNotRewritten) {
    nodes.Write("efps_max", "60\n");  // the read stops at whitespace
    device.SetTargetStatus("60");
    EXPECT_EQ(nodes.Read("efps_max"), "60\n");
}

TEST_F(CharacterDeviceTest, RereadsEveryTenSecondsAndRestoresTheTarget) {
    device.SetTargetStatus("1,60,60");
    nodes.Write("efps_max", "30");
    clock.AdvanceMs(9999);
    device.Update();
    EXPECT_EQ(nodes.Read("efps_max"), "30");
    clock.AdvanceMs(1);
    device.Update();
    EXPECT_EQ(nodes.Read("efps_max"), "1,60,60");
    nodes.Write("efps_max", "31");
    clock.AdvanceMs(9999);
    device.Update();
    EXPECT_EQ(nodes.Read("efps_max"), "31");
}

TEST_F(CharacterDeviceTest, MissingNodeIsRetriedOnlyAfterTheReread) {
    const std::string blocker = nodes.NodePath("efps_max");
    ASSERT_EQ(mkdir(blocker.c_str(), 0700), 0);  // cannot be opened as a file
    EXPECT_NO_THROW(device.SetTargetStatus("60"));
    ASSERT_EQ(rmdir(blocker.c_str()), 0);
    clock.AdvanceSeconds(5);
    device.Update();
    EXPECT_FALSE(nodes.Exists("efps_max"));  // counted as written
    clock.AdvanceSeconds(5);
    device.Update();  // re-read finds nothing, writes again
    EXPECT_EQ(nodes.Read("efps_max"), "60");
}

}  // namespace
