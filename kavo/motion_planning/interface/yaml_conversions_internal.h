#pragma once

#include <yaml-cpp/yaml.h>

#include <Eigen/Core>
#include <string>

#include "kavo/motion_planning/interface/motion_planner.h"

namespace YAML {

//! A sequence of exactly two numbers: lower, upper.
template <>
struct convert<kavo::MotionPlanner::Limit> {
  static bool decode(const Node& node, kavo::MotionPlanner::Limit& limit) {
    if (!node.IsSequence() || node.size() != 2) {
      return false;
    }
    limit.lower = node[0].as<double>();
    limit.upper = node[1].as<double>();
    return true;
  }
};

//! A sequence of exactly three numbers: x, y, z.
template <>
struct convert<Eigen::Vector3d> {
  static bool decode(const Node& node, Eigen::Vector3d& vector) {
    if (!node.IsSequence() || node.size() != 3) {
      return false;
    }
    for (std::size_t i = 0; i < 3; ++i) {
      vector[static_cast<Eigen::Index>(i)] = node[i].as<double>();
    }
    return true;
  }
};

}  // namespace YAML

namespace kavo::planning::internal {

//! The root of a file. yaml-cpp alone opens a directory like a file, fails to read it, and loses its buffer.
YAML::Node LoadYaml(const std::string& file);

}  // namespace kavo::planning::internal
