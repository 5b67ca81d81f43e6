#pragma once

#include <gtest/gtest.h>

#include <Eigen/Core>
#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "kavo/motion_planning/environment/environment.h"
#include "tests/motion_planning/scripted_environment.h"

namespace kavo::testing {

//! Balls in a box: motions are judged exactly, and only from a margin on. It remembers those that are valid.
class Balls final : public planning::Environment {
 public:
  Balls(const Eigen::VectorXd& min, const Eigen::VectorXd& max, std::vector<Eigen::Index> periodic = {})
      : Environment(1, std::move(periodic)), limits_(min, max) {}

  int CSpaceDimension() const override { return static_cast<int>(limits_.Dimension()); }
  const kinematics::ConfigurationLimits& CSpaceCoordLimits() const override { return limits_; }
  const planning::DistanceMetric& CSpaceDistanceMetric() const override { return metric_; }
  bool IsValidConfiguration(const Eigen::VectorXd& q) const override { return IsFree(q, q, 0.0); }
  std::optional<Eigen::VectorXd> SampleConfiguration() const override { return std::nullopt; }
  bool IsValidMotion(const Eigen::Ref<const Eigen::VectorXd>& q_start,
                     const Eigen::Ref<const Eigen::VectorXd>& q_end, double) const override {
    ++num_motions;
    const bool is_valid = IsFree(q_start, q_end, 0.01);
    if (is_valid) {
      valid.insert(Key(q_start, q_end));
    }
    return is_valid;
  }

  static std::vector<double> Key(const Eigen::VectorXd& q_start, const Eigen::VectorXd& q_end) {
    std::vector<double> key(q_start.begin(), q_start.end());
    key.insert(key.end(), q_end.begin(), q_end.end());
    return key;
  }

  std::vector<std::pair<Eigen::VectorXd, double>> balls;
  mutable int num_motions = 0;
  mutable std::set<std::vector<double>> valid;

 private:
  bool IsFree(const Eigen::VectorXd& a, const Eigen::VectorXd& b, double margin) const {
    const auto is_within = [&](const Eigen::VectorXd& q) {
      return (q.array() >= limits_.Min().array()).all() && (q.array() <= limits_.Max().array()).all();
    };
    return is_within(a) && is_within(b) && std::none_of(balls.begin(), balls.end(), [&](const auto& ball) {
             const Eigen::VectorXd way = b - a;
             const double t = way.isZero(0.0) ? 0.0 : (ball.first - a).dot(way) / way.squaredNorm();
             return (a + std::clamp(t, 0.0, 1.0) * way - ball.first).norm() <= ball.second + margin;
           });
  }

  kinematics::ConfigurationLimits limits_;
  planning::DistanceMetric metric_ = planning::L2Norm;
};

inline std::shared_ptr<Balls> UnitBox(int dimension) {
  return std::make_shared<Balls>(Eigen::VectorXd::Zero(dimension), Eigen::VectorXd::Ones(dimension));
}

//! That every motion of a path was found valid, in that direction and by just these numbers.
inline void ExpectValid(const Balls& balls, const Path& path) {
  for (std::size_t i = 1; i < path.size(); ++i) {
    EXPECT_EQ(balls.valid.count(Balls::Key(path[i - 1], path[i])), 1u) << i;
  }
}

}  // namespace kavo::testing
