#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "kavo/kinematics/angle_internal.h"

namespace kavo::kinematics::internal {
namespace {

TEST(AngleTest, IsThatOfTheSystemToSomeUnitsInTheLastPlace) {
  std::mt19937 random(3);
  const auto some = [&] {
    return std::ldexp(static_cast<double>(random()) / 2147483648.0 - 1.0,
                      static_cast<int>(random() % 300) - 150);
  };
  for (int i = 0; i < 20000; ++i) {
    const double x = some();
    const double y = i % 2 == 0 ? some() : x * some();
    ASSERT_NEAR(Angle(y, x), std::atan2(y, x), 1e-15 * std::fabs(std::atan2(y, x))) << y << " " << x;
  }
  EXPECT_EQ(Angle(0.0, -1.0), std::atan2(0.0, -1.0));
  EXPECT_EQ(Angle(0.0, 0.0), 0.0);
  EXPECT_TRUE(std::isnan(Angle(std::nan(""), 1.0)));
}

}  // namespace
}  // namespace kavo::kinematics::internal
