#include "kavo/math/pose3.h"

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <cmath>
#include <limits>
#include <random>

#include "kavo/math/rigid_transform.h"
#include "tests/support/vectors.h"

namespace kavo {
namespace {

using math::RigidTransform;
using testing::RandomVec;

Pose3 RandomPose(std::mt19937& engine) {
  const Eigen::VectorXd v = RandomVec(engine, 7, -1.0, 1.0);
  return Pose3(Eigen::Quaterniond(v[0], v[1], v[2], v[3]), 3.0 * v.tail<3>());
}

Eigen::Isometry3d Reference(const Pose3& pose) {
  return Eigen::Translation3d(pose.translation()) * pose.rotation();
}

double Difference(const Pose3& a, const Pose3& b) {
  return (Reference(a).matrix() - Reference(b).matrix()).cwiseAbs().maxCoeff();
}

TEST(Pose3, ObeysTheLawsOfAGroupAndAgreesWithMatrices) {
  std::mt19937 engine(1);
  for (int round = 0; round < 300; ++round) {
    const Pose3 a = RandomPose(engine);
    const Pose3 b = RandomPose(engine);
    const Pose3 c = RandomPose(engine);
    const Eigen::Vector3d point = RandomVec(engine, 3, -5.0, 5.0);

    EXPECT_LT(Difference((a * b) * c, a * (b * c)), 1e-14);
    EXPECT_LT(Difference(a * a.inverse(), Pose3::Identity()), 1e-14);
    EXPECT_LT(Difference(a.inverse() * a, Pose3::Identity()), 1e-14);
    EXPECT_LT(Difference(a * Pose3::Identity(), a), 1e-14);
    EXPECT_LT(((Reference(a) * Reference(b)).matrix() - Reference(a * b).matrix()).cwiseAbs().maxCoeff(),
              1e-14);
    EXPECT_LT((Reference(a) * point - a * point).norm(), 1e-14);
    EXPECT_NEAR((a * b).rotation().norm(), 1.0, 1e-15);
  }
}

TEST(Pose3, MatrixFormIsTheSameTransform) {
  std::mt19937 engine(2);
  for (int round = 0; round < 300; ++round) {
    const Pose3 a = RandomPose(engine);
    const Pose3 b = RandomPose(engine);
    const Eigen::Vector3d point = RandomVec(engine, 3, -5.0, 5.0);
    const RigidTransform product = RigidTransform(a) * RigidTransform(b);

    EXPECT_LT((product.rotation - Reference(a * b).linear()).cwiseAbs().maxCoeff(), 1e-14);
    EXPECT_LT(Difference(product.pose(), a * b), 1e-14);
    EXPECT_EQ(a * point, RigidTransform(a) * point);
    EXPECT_EQ(product.translation, RigidTransform(a) * b.translation());
  }
}

TEST(Pose3, TurnsByTheRightHandRule) {
  const Pose3 quarter_about_z(Eigen::Quaterniond(1.0, 0.0, 0.0, 1.0), {1.0, 2.0, 3.0});
  const Eigen::Vector3d image = quarter_about_z * Eigen::Vector3d(1.0, 0.0, 0.0);
  EXPECT_LT((image - Eigen::Vector3d(1.0, 3.0, 3.0)).norm(), 1e-15);
}

TEST(Pose3, ScalesQuaternionsAndShowsUnusableOnes) {
  const Pose3 scaled(Eigen::Quaterniond(0.0, 0.0, 5.0, 0.0), Eigen::Vector3d::Zero());
  EXPECT_EQ(scaled.rotation().y(), 1.0);
  EXPECT_TRUE(scaled.isFinite());
  EXPECT_FALSE(Pose3::FromRotation(Eigen::Quaterniond(0.0, 0.0, 0.0, 0.0)).isFinite());
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(Pose3::FromTranslation(Eigen::Vector3d::Unit(i) * HUGE_VAL).isFinite());
  }
}

}  // namespace
}  // namespace kavo
