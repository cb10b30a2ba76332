// Kernel nodes that misbehave, for both writers of the library: the FPS manager's efps_max and
// the pacing object's egl_buf. A game's process is often denied its nodes; nothing may be
// thrown, pacing must not change, and the node must come back once it can be written again.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "harness/LogSink.h"
#include "harness/NodeDirectory.h"
#include "harness/Scopes.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/CharacterDevice.h"
#include "talvex/basics/Conversions.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/FpsManager.h"
#include "talvex/pacing/Quillet.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace TalvexTest {

using TalvexHarness::LogSink;
using TalvexHarness::NodeDirectory;
using TalvexHarness::VirtualClock;
namespace {

using android::FpsStabilizer::FpsManager;
using android::FpsStabilizer::SYS_INFO;
using android::Nimbrel::Quillet::Quillet;

constexpr int kPid = 4321;
const char* const kIdleText = "4321,-1,-1";  // no GFPS list, so no GFPS and no SFPS
const char* const kSendWarning = "[Quillet] Error occur while try to send info to Brain:";
const char* const kClearWarning = "[Quillet] Error occur while try to clear the info to Brain:";

// Both refuse writes even to root: the first at the open, the second only at the write.
const char* const kReadOnlyFile = "/proc/sys/kernel/osrelease";
const char* const kWriteFailingFile = "/proc/version";

enum class Fault { MissingDirectory, ReadOnlyNode, DirectoryNode, WriteFailsAfterOpen };

std::string FaultName(const ::testing::TestParamInfo<Fault>& info) {
    const char* const names[] = {"MissingDirectory", "ReadOnlyNode", "DirectoryNode",
                                 "WriteFailsAfterOpen"};
    return names[static_cast<int>(info.param)];
}

// Whether a file refuses to be opened for writing, and whether it refuses the write itself.
bool OpenForWritingFails(const char* path) {
    std::ofstream file(path);
    return !file.is_open();
}
bool WriteFails(const char* path) {
    std::ofstream file(path);
    if (!file.is_open()) return true;
    file << "x";
    file.close();
    return file.fail();
}

class NodeFaultTest : public ::testing::Test {
  protected:
    std::string NodePath(const std::string& node) const { return directory + "/" + node; }

    // Whole content, or "<missing>" when the node is not a file (reading a directory through a
    // stream buffer throws).
    std::string Read(const std::string& node) const {
        std::error_code ignored;
        if (!std::filesystem::is_regular_file(NodePath(node), ignored)) return "<missing>";
        std::ifstream file(NodePath(node), std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    }

    std::string Tick(FpsManager& manager) {
        clock.AdvanceSeconds(1);
        SYS_INFO info{};
        info.temperature_mC = 30000;
        manager.Update(info, 60, 60);
        manager.PostUpdate();
        return Read("efps_max");
    }

    float Frame(Quillet& quillet, int target) {
        quillet.Update(target, 60, 60);
        clock.AdvanceMs(9);
        const float sleep_ms = quillet.CalculateSleepDuration_ms();
        clock.AdvanceMs(sleep_ms + 0.5);
        quillet.PostUpdate();
        return sleep_ms;
    }

    TalvexHarness::SettingsCenterScope emptied;
    TalvexHarness::LogSwitchesScope logSwitches{2};
    VirtualClock clock;
    NodeDirectory nodes;
    LogSink logs;
    std::string directory = nodes.Path();
};

class NodeFault : public NodeFaultTest, public ::testing::WithParamInterface<Fault> {
  protected:
    void SetUp() override {
        if (GetParam() == Fault::ReadOnlyNode && !OpenForWritingFails(kReadOnlyFile)) {
            GTEST_SKIP() << kReadOnlyFile << " takes writes here";
        }
        if (GetParam() == Fault::WriteFailsAfterOpen &&
            (OpenForWritingFails(kWriteFailingFile) || !WriteFails(kWriteFailingFile))) {
            GTEST_SKIP() << kWriteFailingFile << " does not open-then-fail here";
        }
    }

    // Puts the fault in place of the node; components built afterwards meet it.
    void Break(const std::string& node) {
        if (GetParam() == Fault::MissingDirectory) directory = nodes.Path() + "/absent";
        const std::string path = NodePath(node);
        std::filesystem::remove_all(GetParam() == Fault::MissingDirectory ? directory : path);
        switch (GetParam()) {
            case Fault::MissingDirectory:
                Basics::SetNodeDirectory(directory);
                break;
            case Fault::ReadOnlyNode:
                ASSERT_EQ(symlink(kReadOnlyFile, path.c_str()), 0);
                break;
            case Fault::DirectoryNode:
                ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
                break;
            case Fault::WriteFailsAfterOpen:
                ASSERT_EQ(symlink(kWriteFailingFile, path.c_str()), 0);
                break;
        }
    }

    // Leaves the node free to be created.
    void Repair(const std::string& node) {
        const std::string path = NodePath(node);
        switch (GetParam()) {
            case Fault::MissingDirectory:
                ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
                break;
            case Fault::DirectoryNode:
                ASSERT_EQ(rmdir(path.c_str()), 0);
                break;
            case Fault::ReadOnlyNode:
            case Fault::WriteFailsAfterOpen:
                ASSERT_EQ(unlink(path.c_str()), 0);
                break;
        }
    }

    // A node that opens but fails the write is not reported: the stream error stays inside.
    size_t WarningsPerWrite() const { return GetParam() == Fault::WriteFailsAfterOpen ? 0 : 1; }
};

// The device counts a failed write as done and looks again every 10 s: a node repaired in
// between gets the text at the next re-read, not before.
TEST_P(NodeFault, FpsManagerTicksOnAndRewritesTheNodeAtTheNextReread) {
    Break("efps_max");
    auto manager = std::make_unique<FpsManager>(kPid, 60);  // the re-read clock starts here
    EXPECT_NO_THROW({
        for (int second = 1; second <= 3; ++second) Tick(*manager);
        manager->OnPause();
        manager->OnResume(0);
        Tick(*manager);  // 4 s: a new text, one more attempt
    });
    EXPECT_EQ(manager->GetGFPS(), -1);
    EXPECT_EQ(manager->GetSFPS(), -1);

    Repair("efps_max");
    for (int second = 5; second <= 9; ++second) {
        EXPECT_EQ(Tick(*manager), "<missing>") << second << " s";
    }
    EXPECT_EQ(Tick(*manager), kIdleText) << "10 s";
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), 0u);
}

// Pacing goes on exactly as with a healthy node, with one warning per attempted write, and the
// line is back on the first frame after the node is repaired.
TEST_P(NodeFault, QuilletWarnsOncePerWriteAndPacesAsWithAHealthyNode) {
    // Off, held, exploring and held again: each state writes or clears the node its own way.
    const std::vector<int> targets = {60, 60, 60, 0, 0, 45, 45, -60, -60, 45};
    std::vector<float> healthy;
    {
        Quillet reference;
        for (const int target : targets) healthy.push_back(Frame(reference, target));
    }
    ASSERT_GT(healthy[2], 0.0f);

    Break("egl_buf");
    logs.Clear();
    auto quillet = std::make_unique<Quillet>();
    size_t sends = 0;
    for (size_t frame = 0; frame < targets.size(); ++frame) {
        float sleep_ms = -1.0f;
        EXPECT_NO_THROW(sleep_ms = Frame(*quillet, targets[frame]));
        EXPECT_EQ(sleep_ms, healthy[frame]) << "frame " << frame;
        if (targets[frame] != 0) ++sends;
    }
    EXPECT_EQ(logs.Count(ANDROID_LOG_WARN, kSendWarning), sends * WarningsPerWrite());
    // At construction and when the target turned invalid.
    EXPECT_EQ(logs.Count(ANDROID_LOG_WARN, kClearWarning), 2 * WarningsPerWrite());

    Repair("egl_buf");
    Frame(*quillet, 45);
    const std::string line = Read("egl_buf");
    EXPECT_EQ(Basics::SplitString(line, ';').size(), 9u) << line;
    EXPECT_EQ(line.substr(0, 3), "45;");
    EXPECT_EQ(logs.Count(ANDROID_LOG_WARN, kSendWarning), sends * WarningsPerWrite());

    Break("egl_buf");
    EXPECT_NO_THROW(quillet.reset());
    EXPECT_EQ(logs.Count(ANDROID_LOG_WARN, kClearWarning), 3 * WarningsPerWrite());
}

INSTANTIATE_TEST_SUITE_P(Kinds, NodeFault,
                         ::testing::Values(Fault::MissingDirectory, Fault::ReadOnlyNode,
                                           Fault::DirectoryNode, Fault::WriteFailsAfterOpen),
                         FaultName);

// Someone else's text stays at most until the next re-read, 10 s after the last one.
TEST_F(NodeFaultTest, FpsManagerRestoresItsTextAfterAnotherWriter) {
    FpsManager manager(kPid, 60);
    EXPECT_EQ(Tick(manager), kIdleText);
    clock.AdvanceMs(500);
    nodes.Write("efps_max", "77,30,30");
    for (int second = 2; second <= 9; ++second) {
        EXPECT_EQ(Tick(manager), "77,30,30") << second << " s";
    }
    EXPECT_EQ(Tick(manager), kIdleText) << "10 s";
    nodes.Write("efps_max", "77,30,30\n");
    for (int second = 11; second <= 19; ++second) Tick(manager);
    EXPECT_EQ(Tick(manager), kIdleText) << "20 s";
}

// Each line replaces the whole node, whatever another writer left there.
TEST_F(NodeFaultTest, QuilletLineReplacesWhateverAnotherWriterLeft) {
    Quillet quillet;
    Frame(quillet, 60);
    const std::string first = Read("egl_buf");
    ASSERT_EQ(Basics::SplitString(first, ';').size(), 9u) << first;

    nodes.Write("egl_buf", std::string(300, 'x') + "\n" + std::string(300, 'y'));
    Frame(quillet, 60);
    std::string line = Read("egl_buf");
    EXPECT_EQ(line.find_first_of("xy"), std::string::npos) << line;
    EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
    EXPECT_EQ(Basics::SplitString(line, ';').size(), 9u) << line;

    nodes.Remove("egl_buf");
    Frame(quillet, 60);
    line = Read("egl_buf");
    EXPECT_EQ(line.substr(0, 3), "60;") << line;
    EXPECT_EQ(logs.Count(ANDROID_LOG_WARN), 0u);
}

}  // namespace
}  // namespace TalvexTest
