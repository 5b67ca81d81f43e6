#pragma once

#include <Eigen/Core>
#include <string>
#include <variant>
#include <vector>

#include "apps/kavo/scene_options.h"
#include "kavo/formats/request.h"
#include "kavo/formats/result_file.h"
#include "kavo/formats/robot_file.h"

namespace kavo::command {

//! What one planning run is asked.
struct Query {
  Eigen::VectorXd start;
  //! A configuration, or a position relative to the robot's base; an empty frame is the planner's.
  std::variant<Eigen::VectorXd, formats::PlanRecord::PositionTarget> target;
};

//! One query for each goal of the request. Joints that it does not name start where the scene says, else in
//! the default configuration, and stay there. Throws `UnusableInput` without a goal, for one that names none
//! of the robot's joints, and for one that is more than joint values or one position: a planner takes one of
//! them.
//! \param file Where the request is from, for errors.
std::vector<Query> QueriesOf(const formats::Request& request, const std::string& file,
                             const formats::LoadedRobot& robot, const LoadedScene& scene);

//! Euclidean, in c-space.
double Length(const std::vector<Eigen::VectorXd>& path);

}  // namespace kavo::command
