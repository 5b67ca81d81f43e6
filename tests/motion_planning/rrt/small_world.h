#pragma once

#include <Eigen/Core>
#include <random>
#include <vector>

#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/vectors.h"

namespace kavo::testing {

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
    if (!(q.array() >= 0.0).all() || !(q.array() <= 1.0).all()) {
      return false;
    }
    for (const Eigen::VectorXd& center : centers) {
      if ((q - center).norm() <= 0.2) {
        return false;
      }
    }
    return true;
  }

  std::shared_ptr<ScriptedEnvironment> MakeEnvironment() const {
    return std::make_shared<ScriptedEnvironment>(
        dimension, samples, [world = *this](const Eigen::VectorXd& q) { return world.IsFree(q); });
  }

  int dimension;
  std::vector<Eigen::VectorXd> centers;
  std::vector<Eigen::VectorXd> samples;
  Eigen::VectorXd start;
  Eigen::VectorXd goal;
  double step;
};

//! A tree as two lists, with its operations spelled out.
struct ReferenceTree {
  void Reset(const Eigen::VectorXd& root) {
    points = {root};
    parents = {-1};
  }

  int Add(const Eigen::VectorXd& q, int parent) {
    points.push_back(q);
    parents.push_back(parent);
    return static_cast<int>(points.size()) - 1;
  }

  int Nearest(const Eigen::VectorXd& q) const {
    int best = 0;
    for (int i = 1; i < static_cast<int>(points.size()); ++i) {
      if (Distance(points[static_cast<std::size_t>(i)], q) <
          Distance(points[static_cast<std::size_t>(best)], q)) {
        best = i;
      }
    }
    return best;
  }

  //! Points from the root to the given one.
  std::vector<Eigen::VectorXd> Chain(int index) const {
    std::vector<Eigen::VectorXd> chain;
    for (; index >= 0; index = parents[static_cast<std::size_t>(index)]) {
      chain.insert(chain.begin(), points[static_cast<std::size_t>(index)]);
    }
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

  std::vector<Eigen::VectorXd> points;
  std::vector<int> parents;
};

}  // namespace kavo::testing
