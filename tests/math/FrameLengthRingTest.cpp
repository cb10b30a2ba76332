#include <gtest/gtest.h>

#include <deque>
#include <vector>

#include "talvex/basics/Conversions.h"
#include "talvex/math/FrameLengthRing.h"

namespace {

std::vector<float> contents(const Math::FrameLengthRing& ring) {
    return std::vector<float>(ring.begin(), ring.end());
}

TEST(FrameLengthRing, BehavesAsADequeAcrossWrapsAndGrowth) {
    Math::FrameLengthRing ring(3);
    std::deque<float> reference;
    // Pushes outrun pops now and then, so the ring wraps at every capacity it grows through.
    for (int step = 0; step < 200; ++step) {
        ring.push_back(static_cast<float>(step));
        reference.push_back(static_cast<float>(step));
        if (step % 3 != 0) {
            ring.pop_front();
            reference.pop_front();
        }
        ASSERT_EQ(ring.size(), reference.size());
        ASSERT_EQ(ring.front(), reference.front());
        ASSERT_EQ(ring.back(), reference.back());
        ASSERT_EQ(contents(ring), std::vector<float>(reference.begin(), reference.end()));
    }
}

TEST(FrameLengthRing, KeepsItsStorageWhenFullOrCleared) {
    Math::FrameLengthRing ring(4);
    for (int step = 0; step < 100; ++step) {
        ring.push_back(1.0f);
        if (ring.size() > 3) ring.pop_front();
    }
    EXPECT_EQ(ring.capacity(), 4u);
    ring.clear();
    EXPECT_TRUE(ring.empty());
    EXPECT_EQ(ring.capacity(), 4u);
    ring.pop_front();  // harmless on an empty ring
    EXPECT_EQ(ring.size(), 0u);
    ring.push_back(2.0f);
    EXPECT_EQ(contents(ring), std::vector<float>{2.0f});
}

TEST(FrameLengthRing, GrowsFromNothing) {
    Math::FrameLengthRing ring;
    EXPECT_EQ(ring.capacity(), 0u);
    EXPECT_EQ(ring.begin(), ring.end());
    for (int i = 0; i < 40; ++i) ring.push_back(static_cast<float>(i));
    EXPECT_EQ(ring.size(), 40u);
    EXPECT_EQ(ring.front(), 0.0f);
    EXPECT_EQ(ring.back(), 39.0f);
}

TEST(FrameLengthRing, PrintsLikeAnyContainer) {
    Math::FrameLengthRing ring(2);
    for (float value : {0.5f, 0.25f, 0.125f}) {
        ring.push_back(value);
        if (ring.size() > 2) ring.pop_front();
    }
    EXPECT_EQ(Basics::ContainerToString(ring, 10), "\t[\n\t  0.25, 0.125\n\t]\n");
}

}  // namespace
