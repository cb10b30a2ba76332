// Included first and alone: the umbrella header must compile on its own.
#include <gtest/gtest.h>
#include <talvex/Talvex.h>

TEST(UmbrellaHeader, DeclaresThePublicInterface) {
    EXPECT_EQ(Basics::ToString(7), "7");
    EXPECT_FALSE(Basics::IsDefaultTimestamp(Basics::Now()));
}
