#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <functional>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "kavo/motion_planning/environment/environment.h"

namespace kavo::testing {

using Path = std::vector<Eigen::VectorXd>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

inline bool Free(const Eigen::VectorXd&) { return true; }

//! An environment that hands out prepared samples, judges by a function, and remembers what it was asked.
class ScriptedEnvironment : public planning::Environment {
 public:
  using Validity = std::function<bool(const Eigen::VectorXd&)>;

  ScriptedEnvironment(int dimension, Path samples, Validity is_valid = Free, int num_at_once = 1)
      : Environment(num_at_once),
        limits_(Eigen::VectorXd::Constant(dimension, -1e9), Eigen::VectorXd::Constant(dimension, 1e9)),
        samples_(std::move(samples)),
        is_valid_(std::move(is_valid)) {}

  int CSpaceDimension() const override { return static_cast<int>(limits_.Dimension()); }
  const kinematics::ConfigurationLimits& CSpaceCoordLimits() const override { return limits_; }
  const planning::DistanceMetric& CSpaceDistanceMetric() const override { return metric_; }
  bool IsValidConfiguration(const Eigen::VectorXd& q) const override {
    questions.push_back(q);
    return is_valid_(q);
  }
  std::optional<Eigen::VectorXd> SampleConfiguration() const override {
    return num_samples < samples_.size() ? std::optional(samples_[num_samples++]) : std::nullopt;
  }

  mutable Path questions;
  mutable std::size_t num_samples = 0;

 private:
  kinematics::ConfigurationLimits limits_;
  planning::DistanceMetric metric_ = planning::L2Norm;
  Path samples_;
  Validity is_valid_;
};

}  // namespace kavo::testing
