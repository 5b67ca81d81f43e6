#include "kavo/math/pose3.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "kavo/math/rigid_transform.h"
#include "tests/support/vectors.h"

namespace kavo {
namespace {

using testing::RandomVec;

Pose3 RandomPose(std::mt19937& engine) {
  const Eigen::VectorXd v = RandomVec(engine, 7, -1.0, 1.0);
  return Pose3(Eigen::Quaterniond(v[0], v[1], v[2], v[3]), 3.0 * v.tail<3>());
}

Eigen::Isometry3d Reference(const Pose3& pose) {
  return Eigen::Translation3d(pose.translation()) * pose.rotation();
}

double Difference(const Eigen::Isometry3d& a, const Pose3& b) {
  return (a.matrix() - Reference(b).matrix()).cwiseAbs().maxCoeff();
}

TEST(Pose3, AgreesWithMatrices) {
  std::mt19937 engine(1);
  for (int round = 0; round < 300; ++round) {
    const Pose3 a = RandomPose(engine);
    const Pose3 b = RandomPose(engine);
    const Eigen::Vector3d point = RandomVec(engine, 3, -5.0, 5.0);
    const math::RigidTransform product = math::RigidTransform(a) * math::RigidTransform(b);

    EXPECT_LT(Difference(Reference(a) * Reference(b), a * b), 1e-14);
    EXPECT_LT(Difference(Eigen::Isometry3d::Identity(), a * a.inverse()), 1e-14);
    EXPECT_LT(Difference(Eigen::Isometry3d::Identity(), a.inverse() * a), 1e-14);
    EXPECT_LT(Difference(Reference(a), a * Pose3::Identity()), 1e-14);
    EXPECT_LT((Reference(a) * point - a * point).norm(), 1e-14);
    EXPECT_NEAR((a * b).rotation().norm(), 1.0, 1e-15);
    EXPECT_LT((product.rotation - Reference(a * b).linear()).cwiseAbs().maxCoeff(), 1e-14);
    EXPECT_LT(Difference(Reference(product.pose()), a * b), 1e-14);
    EXPECT_EQ(a * point, math::RigidTransform(a) * point);
    EXPECT_EQ(product.translation, math::RigidTransform(a) * b.translation());
  }
}

TEST(Pose3, ScalesQuaternionsAndShowsUnusableOnes) {
  const Pose3 quarter_about_z(Eigen::Quaterniond(5.0, 0.0, 0.0, 5.0), {1.0, 2.0, 3.0});
  EXPECT_TRUE(quarter_about_z.isFinite());
  EXPECT_LT((quarter_about_z * Eigen::Vector3d(1.0, 0.0, 0.0) - Eigen::Vector3d(1.0, 3.0, 3.0)).norm(),
            1e-15);
  EXPECT_EQ(Pose3::FromRotation(Eigen::Quaterniond(0.0, 0.0, 5.0, 0.0)).rotation().y(), 1.0);
  // Also where squares overflow or vanish.
  for (const double length : {1.7e308, 1e155, 1e-170, 1e-310}) {
    const Eigen::Quaterniond rotation =
        Pose3::FromRotation(Eigen::Quaterniond(0.6 * length, 0.0, -0.8 * length, 0.0)).rotation();
    EXPECT_NEAR(rotation.w(), 0.6, 1e-12) << length;
    EXPECT_NEAR(rotation.y(), -0.8, 1e-12) << length;
  }
  for (const double bad : {0.0, HUGE_VAL, std::nan("")}) {
    EXPECT_FALSE(Pose3::FromRotation(Eigen::Quaterniond(bad, 0.0, 0.0, 0.0)).isFinite());
    EXPECT_FALSE(Pose3::FromRotation(Eigen::Quaterniond(bad, 1e200 * bad, 0.0, 0.0)).isFinite());
  }
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(Pose3::FromTranslation(Eigen::Vector3d::Unit(i) * HUGE_VAL).isFinite());
  }
}

}  // namespace
}  // namespace kavo
