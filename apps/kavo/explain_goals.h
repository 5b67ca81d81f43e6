#pragma once

#include <Eigen/Core>
#include <string>
#include <vector>

#include "apps/kavo/situation.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/interface/goal_report.h"
#include "kavo/motion_planning/interface/stage.h"

namespace kavo::command {

//! A goal for a reader: "configuration 0,1,2", "pose of 'tool'", "position of 'tool'".
std::string Describe(const Goal& goal);

//! Why a goal was of no use to a search, as a clause; empty if it was of use.
std::string Explain(const GoalReport& report, const Goal& goal, const RobotDescription& robot);

//! Why a line ends early, as a clause: "after 62 % joint4 would have to jump".
std::string Explain(const planning::LineMotion& line, const RobotDescription& robot);

//! How far a frame is from a pose that it was to have, as a clause.
std::string ExplainEnd(const PoseGoal& goal, const Eigen::VectorXd& q, const RobotDescription& robot);

//! What came of the stages of a query, in lines: how each ended, goals that were left out and why. Nothing
//! for a stage with one goal that is done.
std::string ExplainStages(const Query& query, const std::vector<StagedResults::Part>& parts,
                          const std::vector<Eigen::VectorXd>& path, const RobotDescription& robot);

}  // namespace kavo::command
