#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/collision_model.h"
#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/kinematics/kinematics.h"
#include "kavo/util/export.h"

namespace kavo {

//! The one implementation of `RobotDescription`: a record filled by `RobotDescriptionBuilder`, which has
//! checked it.
class KAVO_EXPORT RobotDescriptionInternal : public RobotDescription {
 public:
  //! All that a robot is, in coordinate order where it is about coordinates.
  struct Data {
    //! The kinematic model, all frames included.
    kinematics::Kinematics kinematics;
    //! The names of the joints that are coordinates.
    std::vector<std::string> coordinate_names;
    //! Closed ranges: radians or metres.
    std::vector<kinematics::JointLimits> joint_limits;
    //! Within the limits.
    Eigen::VectorXd default_configuration;
    //! Spheres of frames, pairs of frames that must not touch, paddings and what may touch what.
    CollisionModel collision;
    //! Ascending.
    std::vector<Eigen::Index> periodic_coordinates = {};
    //! In the order attached: the last frames of the kinematics.
    std::vector<AttachedBody> attached = {};
  };

  //! From a record whose parts fit each other; nothing is checked.
  explicit RobotDescriptionInternal(Data data);
  ~RobotDescriptionInternal() override;

  std::size_t numCSpaceCoords() const override;
  std::string cSpaceCoordName(std::size_t coord_index) const override;
  Eigen::VectorXd defaultCSpaceConfiguration() const override;
  std::unique_ptr<Kinematics> kinematics() const override;

  //! The collision geometry; empty of pairs for most robots.
  const CollisionModel& collision() const { return data_.collision; }
  //! See `ExtractPeriodicCoordinates`.
  const std::vector<Eigen::Index>& periodicCoordinates() const { return data_.periodic_coordinates; }
  //! The kinematic model.
  const kinematics::Kinematics& model() const { return data_.kinematics; }
  //! The limits of the joints, in coordinate order.
  const std::vector<kinematics::JointLimits>& jointLimits() const { return data_.joint_limits; }
  //! All of it.
  const Data& data() const { return data_; }

 private:
  Data data_;
};

}  // namespace kavo
