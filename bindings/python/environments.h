#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <variant>

#include "bindings/python/bindings.h"
#include "kavo/motion_planning/environment/environment.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/tree/distance_metrics.h"

namespace kavo::python {

//! "euclidean", "squared", the weights of the squared distance, or a function of two configurations.
using MetricChoice =
    std::variant<std::string, Eigen::VectorXd, std::function<double(Eigen::VectorXd, Eigen::VectorXd)>>;

planning::DistanceMetric ToMetric(const MetricChoice& choice, Eigen::Index dimension);

//! What Python has of an environment: a guard of its scratch memory beside it.
struct PythonEnvironment {
  explicit PythonEnvironment(std::shared_ptr<planning::Environment> environment_in)
      : environment(std::move(environment_in)) {}

  std::shared_ptr<planning::Environment> environment;
  std::atomic<bool> is_in_use = false;

  Eigen::Index Dimension() const { return environment->CSpaceDimension(); }
};

struct RobotPythonEnvironment : PythonEnvironment {
  using PythonEnvironment::PythonEnvironment;

  planning::RobotEnvironment& Get() const { return static_cast<planning::RobotEnvironment&>(*environment); }
};

}  // namespace kavo::python
