#include <gtest/gtest.h>

#include <cmath>

#include "tools/sim/base/Random.h"
#include "tools/sim/base/Text.h"

namespace TalvexSim {
namespace {

TEST(RandomTest, SameSeedSameNumbersAndTheNormalHasUnitSpread) {
    Random a(42);
    Random b(42);
    Random c(43);
    bool differs = false;
    for (int i = 0; i < 100; ++i) {
        const double x = a.Uniform();
        EXPECT_EQ(x, b.Uniform());
        differs = differs || x != c.Uniform();
        EXPECT_GE(x, 0.0);
        EXPECT_LT(x, 1.0);
    }
    EXPECT_TRUE(differs);

    double sum = 0.0;
    double squares = 0.0;
    const int n = 20000;
    for (int i = 0; i < n; ++i) {
        const double z = a.Normal();
        sum += z;
        squares += z * z;
    }
    EXPECT_NEAR(sum / n, 0.0, 0.05);
    EXPECT_NEAR(std::sqrt(squares / n), 1.0, 0.05);
    EXPECT_NE(DeriveSeed(1, RandomStream::Game), DeriveSeed(1, RandomStream::Device));
    EXPECT_NE(DeriveSeed(1, RandomStream::Game), DeriveSeed(2, RandomStream::Game));
}

}  // namespace
}  // namespace TalvexSim
