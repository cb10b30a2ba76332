#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "talvex/math/ClearableFrameLengthsQueue.h"

namespace {

using Math::ClearableFrameLengthsQueue;

TEST(ClearableFrameLengthsQueue, DumpRowsShowConstructionFirstFrameAndReset) {
    EXPECT_EQ(ClearableFrameLengthsQueue::GetDumpedFileHeader(),
              "quota_count,quota_avgFPS,quota_minAvgFPS,quota_maxFrameLength");
    EXPECT_EQ(ClearableFrameLengthsQueue::GetDumpedFileEmptyContent(), "-1,nan,nan,nan");
    ClearableFrameLengthsQueue queue;
    EXPECT_EQ(queue.GetDumpedFileInfo(), "0,nan,inf,-1000");
    EXPECT_TRUE(queue.IsReady());
    queue.Update(1.0f / 60, 60.0f);
    EXPECT_EQ(queue.GetDumpedFileInfo(), "1,60,inf,-1000");
    char row[8];  // too short: cut as snprintf cuts, the full length returned
    EXPECT_EQ(queue.FormatDumpedFileInfo(row, sizeof(row)), 14);
    EXPECT_EQ(std::string(row), "1,60,in");
    queue.Reset();
    EXPECT_EQ(queue.GetDumpedFileInfo(), "0,0,inf,0");
}

// Feeds runs of equal frames and checks the frame that cleared the window (0: none)
// and the dump row of the frame before it (or of the last frame).
TEST(ClearableFrameLengthsQueue, ClearingRules) {
    struct Row {
        const char* story;
        std::vector<std::pair<int, float>> runs;
        float fps;
        int clearedAt;
        std::string rowBefore;  // its ending
    } rows[] = {
        {"on target", {{20, 1.0f / 60}}, 60, 10, "9,60,inf,-1000"},
        // The bounds follow the exact rate, the average rate the truncated one.
        {"on target at 59.9", {{20, 1.0f / 59.9f}}, 59.9f, 10, "9,59,inf,-1000"},
        // The expiry test that follows sees the cleared window, not the ten frames.
        {"on target at 20", {{20, 0.05f}}, 20, 10, "9,20,inf,-1000"},
        {"within half a frame below", {{20, 1.0f / 59.55f}}, 60, 10, "9,59.55,inf,-1000"},
        {"within half a frame above", {{20, 1.0f / 60.45f}}, 60, 10, "9,60.45,inf,-1000"},
        {"55 FPS: not more than 5 below", {{40, 1.0f / 55}}, 60, 30, "29,55,inf,-1000"},
        {"steady 50 FPS", {{300, 0.02f}}, 60, 0, "300,50,50,20"},
        {"57 FPS: neither", {{40, 1.0f / 57}}, 60, 30, "29,57,inf,-1000"},
        {"expiry from the last drop", {{5, 0.02f}, {40, 1.0f / 57}}, 60, 35, ",50,20"},
        {"a longer frame moves it",
         {{5, 0.02f}, {10, 1.0f / 57}, {1, 0.025f}, {40, 1.0f / 57}},
         60,
         46,
         ",50,25"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.story);
        struct CountingQueue : ClearableFrameLengthsQueue {
            void Reset() override {  // the window is cleared through the virtual Reset
                ++resets;
                ClearableFrameLengthsQueue::Reset();
            }
            int resets = 0;
        } queue;
        int frame = 0;
        std::string before;
        for (const auto& [count, frameLength_s] : row.runs) {
            for (int i = 0; i < count && queue.resets == 0; ++i, ++frame) {
                before = queue.GetDumpedFileInfo();
                queue.Update(frameLength_s, row.fps);
            }
        }
        const int clearedAt = queue.resets > 0 ? frame : 0;
        if (clearedAt == 0) before = queue.GetDumpedFileInfo();
        EXPECT_EQ(clearedAt, row.clearedAt);
        EXPECT_LE(queue.resets, 1);
        EXPECT_THAT(before, ::testing::EndsWith(row.rowBefore));
        EXPECT_NEAR(queue.GetQuota(), clearedAt != 0 ? 0.0 : 300 * (1.0 / 60 - 0.02), 1e-4);
    }
}

TEST(ClearableFrameLengthsQueue, RejectedFramesStillSetTheLengthAndRate) {
    ClearableFrameLengthsQueue queue;
    queue.Update(0.016f, 60.0f);
    queue.Update(-1.0f, 60.0f);
    EXPECT_EQ(queue.GetQuotaCounts(), 1u);
    EXPECT_EQ(queue.GetDebugInfo(),
              "In ClearableFrameLengthsQueue:\n"
              "\t EFPS = 60\n"
              "\t currentFrameLength = -1\n"
              "\t totalQuota_s = 0.000666666\n");  // 1/60 - 0.016f, in double
    queue.Update(0.0183f, 60.0f);
    EXPECT_TRUE(queue.IsLastFrameLong(5.0f));
    EXPECT_FALSE(queue.IsLastFrameLong(10.0f));
    queue.Update(0.0183f, std::numeric_limits<float>::quiet_NaN());
    EXPECT_FALSE(queue.IsLastFrameLong(5.0f));
    queue.Update(0.016f, 0.0f);
    EXPECT_EQ(queue.GetQuotaCounts(), 2u);
    EXPECT_NE(queue.GetDebugInfo().find("\t EFPS = 0\n\t currentFrameLength = 0.016\n"),
              std::string::npos);
    EXPECT_EQ(queue.GetEncryptedInfo(), 0);
    queue.Update(1.5f, 1.0f);  // a target of 1 FPS still has a period
    EXPECT_TRUE(queue.IsLastFrameLong(0.0f));
}

TEST(ClearableFrameLengthsQueue, FastestRateBoundsAReasonableFrame) {
    ClearableFrameLengthsQueue queue;
    EXPECT_TRUE(queue.isFrameLengthReasonable(0.0166f, 60.0f));  // 1 - 59/60
    EXPECT_FALSE(queue.isFrameLengthReasonable(0.0167f, 60.0f));
    queue.SetFastestFPS(120.0f);
    EXPECT_TRUE(queue.isFrameLengthReasonable(0.5f, 61.0f));  // 1 - 60/120
    EXPECT_FALSE(queue.isFrameLengthReasonable(0.501f, 61.0f));
}

}  // namespace
