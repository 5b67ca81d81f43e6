#include "kavo/kinematics/lane_sweep_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/kinematics_internal.h"
#include "tests/kinematics/random_robot.h"
#include "tests/support/every_target.h"
#include "tests/support/vectors.h"

namespace kavo::kinematics::internal {
namespace {

using testing::RandomVec;

using LaneSweepTest = testing::EveryTargetTest;

// The largest error of a random point of each frame, as a share of what is stated.
double WorstShare(const LaneSweep& sweep, std::size_t lane, const std::vector<math::RigidTransform>& exact,
                  std::mt19937& engine) {
  double worst = 0.0;
  for (std::size_t f = 0; f < exact.size(); ++f) {
    const auto& [part, offset] = sweep.frames()[f];
    const Eigen::Vector3d point = RandomVec(engine, 3, -0.5, 0.5);
    const Eigen::Vector3d in_part = offset * point;
    const double stated = static_cast<double>(part->shift_error) +
                          static_cast<double>(part->turn_error) * in_part.cwiseAbs().sum();
    const Eigen::Vector3d expected = exact[f] * point;
    for (std::size_t row = 0; row < 3; ++row) {
      double placed = static_cast<double>(part->at(row, 3)[lane]);
      for (std::size_t column = 0; column < 3; ++column) {
        placed +=
            static_cast<double>(part->at(row, column)[lane]) * in_part[static_cast<Eigen::Index>(column)];
      }
      const double error = std::fabs(placed - expected[static_cast<Eigen::Index>(row)]);
      worst = std::max(worst, error / stated);
    }
  }
  return worst;
}

TEST_P(LaneSweepTest, PlacesWithinTheStatedError) {
  std::mt19937 engine(7);
  double worst = 0.0;
  for (int round = 0; round < 300; ++round) {
    const testing::RandomRobot robot(engine, 1 + round % 14);
    const auto description = robot.description();
    const auto kinematics = description->kinematics();
    std::vector<kavo::Kinematics::FrameHandle> handles;
    std::vector<int> indices;
    for (const Joint& joint : robot.joints()) {
      handles.push_back(kinematics->frame(joint.child_frame));
      indices.push_back(handles.back().index());
    }
    LaneSweep lanes(dynamic_cast<const KinematicsInternal&>(*kinematics).model().plan(indices));
    math::RigidTransform base;
    if (round % 2 == 0) {
      const Eigen::VectorXd v = RandomVec(engine, 7, -2.0, 2.0);
      base = math::RigidTransform(Pose3(Eigen::Quaterniond(v[0], v[1], v[2], v[3]), v.tail<3>()));
      lanes.setBase(base);
    }
    const auto sweep = kinematics->frameSweep(handles);
    const auto n = static_cast<int>(description->numCSpaceCoords());
    for (const std::size_t num_lanes : {std::size_t{4}, math::kNumLanes}) {
      // Joints that follow others turn by up to 1.5 times as much and a quarter.
      const Eigen::VectorXd coordinates = RandomVec(engine, n * Eigen::Index{math::kNumLanes}, -5.1, 5.1);
      EXPECT_EQ(lanes.compute(coordinates.data(), num_lanes), 0u);
      for (std::size_t lane = 0; lane < num_lanes; ++lane) {
        Eigen::VectorXd q(n);
        for (Eigen::Index c = 0; c < n; ++c) {
          q[c] =
              coordinates[c * static_cast<Eigen::Index>(math::kNumLanes) + static_cast<Eigen::Index>(lane)];
        }
        std::vector<math::RigidTransform> exact = sweep->compute(q);
        for (math::RigidTransform& frame : exact) {
          frame = base * frame;
        }
        worst = std::max(worst, WorstShare(lanes, lane, exact, engine));
      }
    }
  }
  EXPECT_LT(worst, 0.5);
  // What is stated is no wild guess either.
  EXPECT_GT(worst, 0.01);
}

TEST_P(LaneSweepTest, TellsWhereAJointIsBeyondItsRange) {
  RobotDescriptionBuilder builder("base");
  builder.addJoint({"turn", JointType::kRevolute, "base", "arm", {}, {0.0, 0.0, 1.0}, {{-1e9, 1e9}}});
  builder.addJoint({"slide", JointType::kPrismatic, "arm", "cart", {}, {1.0, 0.0, 0.0}, {{-1e9, 1e9}}});
  const auto kinematics = builder.build()->kinematics();
  LaneSweep lanes(
      dynamic_cast<const KinematicsInternal&>(*kinematics).model().plan({kinematics->frame("cart").index()}));
  const double coordinates[] = {8.0, -8.0,  8.1, -1e6, 0.0, 1e300, 0.0, 1.0,  //
                                0.0, -8.25, 0.0, 0.0,  8.0, 0.0,   9.0, -8.0};
  EXPECT_EQ(lanes.compute(coordinates, 8), 0b01101110u);
  EXPECT_EQ(lanes.compute(coordinates, 4), 0b1110u);
}

KAVO_INSTANTIATE_FOR_EVERY_TARGET(LaneSweepTest);

}  // namespace
}  // namespace kavo::kinematics::internal
