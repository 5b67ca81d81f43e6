#include "kavo/util/to_string.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kavo::util {
namespace {

TEST(ToString, WritesEntriesInTheStreamsDefaultFormat) {
  EXPECT_EQ(ToString(Eigen::VectorXd()), "[]");
  EXPECT_EQ(ToString(Eigen::Vector4d(1.0 / 3.0, 1234567.0, -0.0, 2e-7)), "[0.333333 1.23457e+06 -0 2e-07]");
  EXPECT_EQ(ToString(Eigen::Vector2d(std::nan(""), -HUGE_VAL)), "[nan -inf]");
  const Eigen::Matrix2d matrix{{1, 2}, {3, 4}};
  EXPECT_EQ(ToString(matrix.row(1).transpose()), "[3 4]");
}

}  // namespace
}  // namespace kavo::util
