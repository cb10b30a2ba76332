#include <gtest/gtest.h>

#include "harness/NodeDirectory.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/CharacterDevice.h"

namespace {

class CharacterDeviceTest : public ::testing::Test {
  protected:
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

// Writing only on a change, the re-read every 10 s and a node that cannot be written are the
// node-fault suite's, through the FPS manager.
TEST_F(CharacterDeviceTest, MatchingNodeIsNotRewritten) {
    nodes.Write("efps_max", "60\n");  // the read stops at whitespace
    device.SetTargetStatus("60");
    EXPECT_EQ(nodes.Read("efps_max"), "60\n");
}

}  // namespace
