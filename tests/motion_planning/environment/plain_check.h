#pragma once

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/math/rigid_transform.h"
#include "kavo/math/sphere.h"
#include "kavo/world/world.h"
#include "kavo/world/world_view.h"

namespace kavo::testing {

//! The rule for a valid configuration as it reads: every limit, every sphere, every pair of spheres.
class PlainCheck {
 public:
  PlainCheck(const RobotDescription& robot, World& world, const Pose3& base = {})
      : robot_(dynamic_cast<const RobotDescriptionInternal&>(robot)),
        view_(world.view()),
        view_of_others_(ViewOfOthers(world)),
        base_(base) {}

  bool IsValid(const Eigen::VectorXd& q) const {
    const auto& limits = robot_.jointLimits();
    for (Eigen::Index i = 0; i < q.size(); ++i) {
      const auto [min, max] = limits[static_cast<std::size_t>(i)];
      if (!std::isfinite(q[i]) || q[i] < min || q[i] > max) {
        return false;
      }
    }
    for (const std::string& frame : robot_.collision().frames) {
      const math::RigidTransform pose = base_ * Pose(q, frame);
      const auto& view = robot_.collision().allowedObstaclesOf(frame).empty() ? view_ : view_of_others_;
      for (const math::Sphere& sphere : robot_.collision().spheresOf(frame)) {
        const double reach = sphere.radius + robot_.collision().paddingOf(frame);
        if (view.inCollision(pose * sphere.center, reach)) {
          return false;
        }
      }
    }
    for (const auto& [a, b] : robot_.collision().pairs) {
      const math::RigidTransform pose_a = Pose(q, a);
      const math::RigidTransform pose_b = Pose(q, b);
      const std::vector<math::Sphere> spheres_b = robot_.collision().spheresOf(b);
      for (const math::Sphere& sphere_a : robot_.collision().spheresOf(a)) {
        const Eigen::Vector3d at = pose_a * sphere_a.center;
        for (const math::Sphere& sphere_b : spheres_b) {
          const Eigen::Vector3d d = at - pose_b * sphere_b.center;
          if (std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]) <= sphere_a.radius + sphere_b.radius) {
            return false;
          }
        }
      }
    }
    return true;
  }

  //! How many of the first columns are valid.
  int CountValid(const Eigen::MatrixXd& batch) const {
    int count = 0;
    while (count < batch.cols() && IsValid(batch.col(count))) {
      ++count;
    }
    return count;
  }

 private:
  static WorldView ViewOfOthers(World& world) {
    World others;
    for (const ObstacleHandle obstacle : world.obstacles()) {
      if (world.name(obstacle) != "allowed") {
        others.setPadding(others.add(world.shape(obstacle), world.pose(obstacle)), world.padding(obstacle));
      }
    }
    return others.view();
  }

  math::RigidTransform Pose(const Eigen::VectorXd& q, const std::string& frame) const {
    return robot_.model().transform(q, robot_.model().frame(frame));
  }

  const RobotDescriptionInternal& robot_;
  WorldView view_;
  // For frames that may touch what is named "allowed".
  WorldView view_of_others_;
  math::RigidTransform base_;
};

}  // namespace kavo::testing
