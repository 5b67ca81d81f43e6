#pragma once

#include <map>
#include <optional>
#include <string>

#include "kavo/formats/yaml_value_internal.h"
#include "kavo/math/pose3.h"

namespace kavo::formats {

//! The joint values by name of a robot state: `joint_state: {name: [...], position: [...]}`. Empty without.
std::map<std::string, double> ReadJointState(const YamlValue& robot_state);

//! The pose of the robot base in the world: that in `multi_dof_joint_state: {transforms: [...]}`. A second
//! one is an error.
std::optional<Pose3> ReadBasePose(const YamlValue& robot_state);

//! The frame that something is given in, from its `header`, without a leading slash. Empty without.
std::string ReadFrameName(const YamlValue& stamped);

}  // namespace kavo::formats
