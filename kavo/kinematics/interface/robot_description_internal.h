#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/kinematics/kinematics.h"
#include "kavo/math/sphere.h"
#include "kavo/util/export.h"

namespace kavo {

//! The one implementation of `RobotDescription`: a record filled by `RobotDescriptionBuilder`, which has
//! checked it.
class KAVO_EXPORT RobotDescriptionInternal : public RobotDescription {
 public:
  //! All that a robot is, in coordinate order where it is about coordinates.
  struct Data {
    kinematics::Kinematics kinematics;
    std::vector<std::string> coordinate_names;
    std::vector<kinematics::JointLimits> joint_limits;
    Eigen::VectorXd default_configuration;
    //! Frames that carry spheres, in the order in which each got its first one.
    std::vector<std::string> collision_frame_names;
    //! Centres in the frame's own coordinates.
    std::unordered_map<std::string, std::vector<math::Sphere>> collision_spheres;
    //! Frames that must not touch each other, each pair once.
    std::vector<std::pair<std::string, std::string>> collision_pairs = {};
    //! Ascending.
    std::vector<Eigen::Index> periodic_coordinates = {};
  };

  explicit RobotDescriptionInternal(Data data);
  ~RobotDescriptionInternal() override;

  std::size_t numCSpaceCoords() const override;
  std::string cSpaceCoordName(std::size_t coord_index) const override;
  Eigen::VectorXd defaultCSpaceConfiguration() const override;
  std::unique_ptr<Kinematics> kinematics() const override;

  //! The frames that carry collision spheres.
  const std::vector<std::string>& collisionFrameNames() const { return data_.collision_frame_names; }
  //! The spheres of a frame, centres in the frame's coordinates; empty for a frame that has none.
  std::vector<math::Sphere> collisionSpheres(const std::string& frame_name) const;
  //! The pairs of frames that must not touch each other, in the order added; empty for most robots.
  const std::vector<std::pair<std::string, std::string>>& collisionPairs() const {
    return data_.collision_pairs;
  }
  //! See `ExtractPeriodicCoordinates`.
  const std::vector<Eigen::Index>& periodicCoordinates() const { return data_.periodic_coordinates; }
  //! The same robot with other pairs, which the caller has checked.
  std::unique_ptr<RobotDescription> withCollisionPairs(
      std::vector<std::pair<std::string, std::string>> pairs) const;
  //! The kinematic model.
  const kinematics::Kinematics& model() const { return data_.kinematics; }
  //! The limits of the joints, in coordinate order.
  const std::vector<kinematics::JointLimits>& jointLimits() const { return data_.joint_limits; }

 private:
  Data data_;
};

}  // namespace kavo
