#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>

#include "kavo/motion_planning/rrt/rrt.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/vectors.h"

namespace kavo::testing {

inline std::optional<Path> Plan(planning::RRT& rrt, const Eigen::VectorXd& start,
                                const Eigen::VectorXd& goal) {
  const auto nodes = rrt.TryToFindPath(start, goal);
  return nodes ? std::optional(planning::ConvertToConfigurations(*nodes)) : std::nullopt;
}

//! A random set of balls in a unit box, as a validity test and a list of samples: a planning problem without
//! a robot.
struct SmallWorld {
  explicit SmallWorld(unsigned int seed, int dimension_in) : dimension(dimension_in) {
    std::mt19937 engine(seed);
    const std::size_t num_balls = engine() % 8;
    for (std::size_t i = 0; i < num_balls; ++i) {
      centers.push_back(RandomVec(engine, dimension, 0.1, 0.9));
    }
    for (int i = 0; i < 40; ++i) {
      const Eigen::VectorXd q = RandomVec(engine, dimension, 0.0, 1.0);
      if (IsFree(q)) {
        samples.push_back(q);
      }
    }
    start = RandomVec(engine, dimension, 0.0, 1.0);
    goal = RandomVec(engine, dimension, 0.0, 1.0);
    step = 0.02 + 0.2 * RandomVec(engine, 1, 0.0, 1.0)[0];
  }

  bool IsFree(const Eigen::VectorXd& q) const {
    return (q.array() >= 0.0).all() && (q.array() <= 1.0).all() &&
           std::none_of(centers.begin(), centers.end(),
                        [&](const Eigen::VectorXd& center) { return (q - center).norm() <= 0.2; });
  }

  //! The same for a reference planner, which leaves its questions behind.
  bool Ask(const Eigen::VectorXd& q) const {
    questions.push_back(q);
    return IsFree(q);
  }

  std::shared_ptr<ScriptedEnvironment> MakeEnvironment(int num_at_once = 1) const {
    return std::make_shared<ScriptedEnvironment>(
        dimension, samples, [world = *this](const Eigen::VectorXd& q) { return world.IsFree(q); },
        num_at_once);
  }

  int dimension;
  Path centers;
  Path samples;
  Eigen::VectorXd start;
  Eigen::VectorXd goal;
  double step;
  mutable Path questions;
};

//! A reference tree: two lists.
struct ReferenceTree {
  std::size_t Add(const Eigen::VectorXd& q, std::size_t parent) {
    points.push_back(q);
    parents.push_back(parent);
    return points.size() - 1;
  }

  //! The first of the nearest points.
  std::size_t Nearest(const Eigen::VectorXd& q) const {
    const auto nearer = [&](const auto& a, const auto& b) { return Distance(a, q) < Distance(b, q); };
    return static_cast<std::size_t>(std::min_element(points.begin(), points.end(), nearer) - points.begin());
  }

  //! Points from the root to the given one.
  Path Chain(std::size_t index) const {
    Path chain = index == 0 ? Path{} : Chain(parents[index]);
    chain.push_back(points[index]);
    return chain;
  }

  static double Distance(const Eigen::VectorXd& a, const Eigen::VectorXd& b) {
    double sum = 0.0;
    for (Eigen::Index i = 0; i < a.size(); ++i) {
      sum += (a[i] - b[i]) * (a[i] - b[i]);
    }
    return std::sqrt(sum);
  }

  //! The step of length `length` from one point towards another, or none where they coincide.
  static Eigen::VectorXd Step(const Eigen::VectorXd& from, const Eigen::VectorXd& to, double length) {
    const double distance = Distance(to, from);
    Eigen::VectorXd step = to - from;
    for (Eigen::Index i = 0; i < step.size() && distance > 0.0; ++i) {
      step[i] = length * (step[i] / distance);
    }
    return step;
  }

  Path points;
  std::vector<std::size_t> parents;
};

}  // namespace kavo::testing
