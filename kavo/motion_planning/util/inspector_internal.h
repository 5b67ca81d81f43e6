#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/math/sphere.h"
#include "kavo/motion_planning/util/configuration_inspection.h"
#include "kavo/world/snapshot_internal.h"
#include "kavo/world/world_view.h"

namespace kavo::planning::internal {

//! Looks at one configuration after another, see `InspectConfigurations`.
class Inspector {
 public:
  Inspector(const RobotDescription& robot, const WorldView& world_view);

  //! Without the names of obstacles, which take long to look up.
  ConfigurationInspection Look(const Eigen::VectorXd& q);

  const std::vector<kinematics::JointLimits>& Limits() const { return limits_; }

 private:
  // The spheres of one frame.
  struct Shape {
    std::string frame;
    Kinematics::FrameHandle handle;
    std::vector<math::Sphere> spheres;
    // Whether a coordinate moves it.
    bool is_moved;
    // How far from obstacles they have to stay.
    double padding;
    // Those that they may touch.
    kavo::internal::ObstacleSet allowed;
    // In the world, for the configuration that is looked at.
    std::vector<Eigen::Vector3d> centers;
  };

  std::size_t FindShape(const std::string& frame) const;
  void LookAtLimits(const Eigen::VectorXd& q, ConfigurationInspection& found) const;
  void PlaceSpheres(const Eigen::VectorXd& q);
  void LookAtObstacles(ConfigurationInspection& found) const;
  void LookAtPairs(ConfigurationInspection& found) const;

  std::vector<kinematics::JointLimits> limits_;
  std::unique_ptr<Kinematics> kinematics_;
  std::shared_ptr<const kavo::internal::Snapshot> snapshot_;
  std::vector<Shape> shapes_;
  // Indices of shapes that must not touch each other.
  std::vector<std::pair<std::size_t, std::size_t>> pairs_;
};

}  // namespace kavo::planning::internal
