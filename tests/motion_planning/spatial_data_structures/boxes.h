#pragma once

#include <initializer_list>
#include <random>
#include <vector>

#include "kavo/motion_planning/spatial_data_structures/bounding_box.h"
#include "tests/support/vectors.h"

namespace kavo::testing {

inline planning::BoundingBox Box(const Eigen::VectorXd& min, const Eigen::VectorXd& max) {
  return planning::BoundingBox(kinematics::ConfigurationLimits(min, max));
}

inline planning::BoundingBox Box(std::initializer_list<double> min, std::initializer_list<double> max) {
  return Box(Vec(min), Vec(max));
}

inline planning::BoundingBox Point(std::initializer_list<double> q) { return Box(q, q); }

//! A box with corners on a coarse lattice or anywhere, often a point.
inline planning::BoundingBox RandomBox(std::mt19937& engine, int dimension) {
  const bool lattice = engine() % 2 == 0;
  Eigen::VectorXd min = RandomVec(engine, dimension, -2.0, 2.0);
  if (lattice) {
    min = min.array().round();
  }
  if (engine() % 3 == 0) {
    return Box(min, min);
  }
  Eigen::VectorXd max = min + RandomVec(engine, dimension, 0.0, 2.0);
  if (lattice) {
    max = max.array().ceil();
  }
  return Box(min, max);
}

}  // namespace kavo::testing
