#pragma once

#include <Eigen/Core>
#include <cmath>
#include <limits>

// Sums run over the coordinates in order: Eigen's own reductions group their terms by the vector width of the
// target, and so differ in the last bit from machine to machine.

namespace kavo::math {

inline double SquaredDistance(const Eigen::VectorXd& a, const Eigen::VectorXd& b) {
  double sum = 0.0;
  for (Eigen::Index i = 0; i < b.size(); ++i) {
    const double difference = a[i] - b[i];
    sum += difference * difference;
  }
  return sum;
}

inline double Distance(const Eigen::VectorXd& a, const Eigen::VectorXd& b) {
  return std::sqrt(SquaredDistance(a, b));
}

inline double Norm(const Eigen::VectorXd& v) {
  double sum = 0.0;
  for (Eigen::Index i = 0; i < v.size(); ++i) {
    sum += v[i] * v[i];
  }
  return std::sqrt(sum);
}

inline bool IsFinite(const Eigen::VectorXd& v) {
  for (Eigen::Index i = 0; i < v.size(); ++i) {
    if (!std::isfinite(v[i])) {
      return false;
    }
  }
  return true;
}

//! Makes `v` `length` times its unit vector. Where `v` has no direction (its squared length is not positive)
//! it takes the place of the unit vector.
inline void SetLength(double length, Eigen::VectorXd& v) {
  double squared_length = 0.0;
  for (Eigen::Index i = 0; i < v.size(); ++i) {
    squared_length += v[i] * v[i];
  }
  const double norm = squared_length > 0.0 ? std::sqrt(squared_length) : 1.0;
  for (Eigen::Index i = 0; i < v.size(); ++i) {
    v[i] = length * (v[i] / norm);
  }
}

//! The same of a copy.
inline Eigen::VectorXd WithLength(Eigen::VectorXd v, double length) {
  SetLength(length, v);
  return v;
}

//! The step of that length from one point towards another.
inline Eigen::VectorXd StepToward(const Eigen::VectorXd& from, const Eigen::VectorXd& to, double length) {
  return WithLength(to - from, length);
}

//! Adds `step` to `q`. False when a walk must end there: the step is too short to change any coordinate, so
//! that it would never end, or leads beyond the finite numbers.
inline bool Advance(const Eigen::VectorXd& step, Eigen::VectorXd& q) {
  double* const coordinates = q.data();
  const double* const steps = step.data();
  double change = 0.0;
  for (Eigen::Index i = 0; i < q.size(); ++i) {
    const double next = coordinates[i] + steps[i];
    change += std::fabs(next - coordinates[i]);
    coordinates[i] = next;
  }
  // Infinite or NaN if a coordinate is.
  return change > 0.0 && change <= std::numeric_limits<double>::max();
}

}  // namespace kavo::math
