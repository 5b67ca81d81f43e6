#include "kavo/util/to_string.h"

#include <gtest/gtest.h>

#include <limits>

namespace kavo::util {
namespace {

TEST(ToString, WritesEntriesInTheStreamsDefaultFormat) {
  EXPECT_EQ(ToString(Eigen::VectorXd()), "[]");
  EXPECT_EQ(ToString(Eigen::VectorXd::Constant(1, 0.1)), "[0.1]");
  EXPECT_EQ(ToString(Eigen::Vector3d(1.0, -0.5, 2e-7)), "[1 -0.5 2e-07]");
  EXPECT_EQ(ToString(Eigen::Vector4d(1.0 / 3.0, 1234567.0, -0.0, 123456.0)),
            "[0.333333 1.23457e+06 -0 123456]");
  EXPECT_EQ(ToString(Eigen::Vector2d(std::numeric_limits<double>::quiet_NaN(),
                                     -std::numeric_limits<double>::infinity())),
            "[nan -inf]");
}

TEST(ToString, ReadsPartsOfAMatrix) {
  Eigen::Matrix3d matrix;
  matrix << 1, 2, 3, 4, 5, 6, 7, 8, 9;
  EXPECT_EQ(ToString(matrix.col(1)), "[2 5 8]");
  EXPECT_EQ(ToString(matrix.row(1).transpose()), "[4 5 6]");
}

}  // namespace
}  // namespace kavo::util
