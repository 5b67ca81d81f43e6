#include "kavo/kinematics/interface/robot_description_internal.h"

#include <utility>

#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/util/log_message.h"

namespace kavo {

RobotDescriptionInternal::RobotDescriptionInternal(Data data) : data_(std::move(data)) {}

RobotDescriptionInternal::~RobotDescriptionInternal() = default;

std::size_t RobotDescriptionInternal::numCSpaceCoords() const { return data_.kinematics.numCSpaceCoords(); }

std::string RobotDescriptionInternal::cSpaceCoordName(std::size_t coord_index) const {
  KAVO_CHECK(coord_index < numCSpaceCoords(), "kinematics/interface/robot_description_internal", 17)
      << "Invalid coord_index";
  return data_.coordinate_names[coord_index];
}

Eigen::VectorXd RobotDescriptionInternal::defaultCSpaceConfiguration() const {
  return data_.default_configuration;
}

std::unique_ptr<Kinematics> RobotDescriptionInternal::kinematics() const {
  return std::make_unique<KinematicsInternal>(data_.kinematics);
}

}  // namespace kavo
