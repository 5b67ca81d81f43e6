#pragma once

#include <yaml-cpp/yaml.h>

#include <Eigen/Core>
#include <string>

#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"

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

//! A value by its name, as `ToString` gives it.
template <typename T, T... values>
struct NamedValueConversion {
  static bool decode(const Node& node, T& value) {
    const auto is_named = [&](T candidate) {
      const bool is_it = node.IsScalar() && node.Scalar() == ToString(candidate);
      value = is_it ? candidate : value;
      return is_it;
    };
    return (is_named(values) || ...);
  }
};

template <>
struct convert<kavo::planning::CSpacePlanner>
    : NamedValueConversion<kavo::planning::CSpacePlanner, kavo::planning::CSpacePlanner::kRrtConnect,
                           kavo::planning::CSpacePlanner::kBiRrt> {};

template <>
struct convert<kavo::planning::BiRRTConfig::Samples>
    : NamedValueConversion<kavo::planning::BiRRTConfig::Samples,
                           kavo::planning::BiRRTConfig::Samples::kLowDiscrepancy,
                           kavo::planning::BiRRTConfig::Samples::kEnvironment> {};

}  // namespace YAML

namespace kavo::planning::internal {

//! The root of a file. yaml-cpp alone opens a directory like a file, fails to read it, and loses its buffer.
YAML::Node LoadYaml(const std::string& file);

}  // namespace kavo::planning::internal
