#pragma once

#include <Eigen/Core>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "apps/kavo/scope.h"
#include "kavo/formats/robot_file.h"
#include "kavo/motion_planning/interface/attached_object.h"
#include "kavo/motion_planning/interface/stage.h"
#include "kavo/world/world.h"

namespace kavo::command {

//! The robot among its obstacles, as a query finds them.
struct Situation {
  //! With the joints that are not planned for where the request and the scenes put them, holding what these
  //! and the options attach to it, under their rules of contact.
  std::shared_ptr<const formats::LoadedRobot> robot;
  //! What is attached, by its shapes.
  std::vector<AttachedObject> held;
  //! In the frame of the robot's base.
  World world;
  //! Pose of the robot base in the world of the files.
  Pose3 base_pose;
  Eigen::VectorXd start;
  Scope scope;
  //! That the scenes and the request name.
  std::vector<std::string> mesh_files;
};

//! What one planning run is asked.
struct Query {
  Eigen::VectorXd start;
  //! At least one, each with a goal; poses are relative to the robot's base.
  std::vector<Stage> stages;
};

//! The names of the coordinates in order.
std::vector<std::string> JointNames(const RobotDescription& robot);

//! The joints that are not planned for and do not stand where they rest, and where they do.
std::map<std::string, double> HeldJoints(const formats::LoadedRobot& robot);

//! A line about them; empty without any.
std::string HeldJointsText(const formats::LoadedRobot& robot);

//! Euclidean, in c-space.
double Length(const std::vector<Eigen::VectorXd>& path);

}  // namespace kavo::command
