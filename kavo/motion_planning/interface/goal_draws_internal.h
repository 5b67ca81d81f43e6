#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/inverse_kinematics.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/interface/goal.h"
#include "kavo/motion_planning/interface/goal_report.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/util/random_generator.h"

namespace kavo::planning::internal {

//! Inverse kinematics of the frames of a robot, each made when it is used first.
class PoseSolvers {
 public:
  explicit PoseSolvers(std::shared_ptr<RobotDescription> robot) : robot_(std::move(robot)) {}

  //! An unknown frame is a fatal error.
  InverseKinematics& Of(const std::string& frame);
  const RobotDescription& Robot() const { return *robot_; }

 private:
  std::shared_ptr<RobotDescription> robot_;
  std::map<std::string, std::unique_ptr<InverseKinematics>> solvers_;
};

//! The goals of one query as configurations, found while a search goes on: see `BiRRT::GoalSource`.
class GoalDraws {
 public:
  //! What is given must outlive it. Fatal without a goal, for a configuration of another length than the
  //! robot's, an unknown frame, a pose that is not finite, and a tolerance or a region that is out of range.
  GoalDraws(const std::vector<Goal>& goals, const Eigen::VectorXd& q_initial,
            const MotionPlannerConfig& config, const RobotEnvironment& environment, PoseSolvers& solvers);

  //! The next configurations, all usable; empty once there will be no more.
  std::optional<std::vector<Eigen::VectorXd>> Draw();

  //! Which goal a configuration belongs to, counted in the order of drawing.
  std::size_t GoalOf(std::size_t drawn) const { return goal_of_drawn_[drawn]; }
  const std::vector<GoalReport>& Reports() const { return reports_; }

 private:
  // A pose goal and how far its draws have come.
  struct Pose {
    std::size_t goal;
    PoseGoal pose;
    InverseKinematics* solver;
    Kinematics::FrameHandle frame;
    // Whether poses are drawn that are not the goal's own.
    bool has_room;
    std::uint64_t num_draws = 0;
    std::uint64_t next_restart = 0;
    // Restarts since a configuration was found that is not known yet, and whether any had the pose.
    std::uint64_t num_idle_restarts = 0;
    bool is_reached = false;
    bool is_exhausted = false;
  };

  // Configurations within limits of their own.
  struct Range {
    std::size_t goal;
    Eigen::VectorXd aim;
    Eigen::VectorXd min;
    Eigen::VectorXd max;
    util::RandomGenerator<double> generator;
    std::uint64_t num_draws = 0;
    bool is_exhausted = false;
  };

  void AddRange(std::size_t goal, const ConfigurationGoal& range);
  bool TakeConfiguration(std::size_t goal, const Eigen::VectorXd& q, std::vector<Eigen::VectorXd>& drawn);
  void DrawRange(Range& range, std::vector<Eigen::VectorXd>& drawn);
  void DrawPose(Pose& pose, std::vector<Eigen::VectorXd>& drawn);
  bool IsUsable(Pose& pose, const Eigen::VectorXd& q);
  bool IsWithin(const Pose& pose, const Eigen::VectorXd& q) const;
  bool IsKnown(const Eigen::VectorXd& q) const;
  void Take(std::size_t goal, const Eigen::VectorXd& q, std::vector<Eigen::VectorXd>& drawn);

  const Eigen::VectorXd& q_initial_;
  const MotionPlannerConfig& config_;
  const RobotEnvironment& environment_;
  std::unique_ptr<Kinematics> kinematics_;
  std::vector<Range> ranges_;
  std::vector<Pose> poses_;
  std::vector<Eigen::VectorXd> drawn_;
  std::vector<std::size_t> goal_of_drawn_;
  std::vector<GoalReport> reports_;
};

}  // namespace kavo::planning::internal
