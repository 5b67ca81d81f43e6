#pragma once

#include <Eigen/Core>
#include <initializer_list>
#include <random>
#include <vector>

namespace kavo::testing {

inline Eigen::VectorXd Vec(std::initializer_list<double> entries) {
  Eigen::VectorXd v(static_cast<Eigen::Index>(entries.size()));
  Eigen::Index i = 0;
  for (const double entry : entries) {
    v[i++] = entry;
  }
  return v;
}

//! Entries uniform in [min, max).
inline Eigen::VectorXd RandomVec(std::mt19937& engine, Eigen::Index size, double min, double max) {
  Eigen::VectorXd v(size);
  for (Eigen::Index i = 0; i < size; ++i) {
    v[i] = min + (max - min) * (static_cast<double>(engine()) / 4294967296.0);
  }
  return v;
}

}  // namespace kavo::testing
