#pragma once

#include <Eigen/Core>
#include <memory>
#include <optional>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/interface/goal.h"
#include "kavo/motion_planning/interface/goal_draws_internal.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/query_report.h"
#include "kavo/motion_planning/interface/search_record.h"
#include "kavo/motion_planning/interface/stage.h"
#include "kavo/motion_planning/rrt/bi_rrt.h"
#include "kavo/motion_planning/util/line_motion.h"
#include "kavo/motion_planning/util/stop_condition.h"

namespace kavo::planning::internal {

//! The queries of a `MotionPlanner` that are answered by whole motions, each proven free: by trees of them,
//! and along lines.
class MotionQueries {
 public:
  using Results = MotionPlanner::Results;

  //! \param config Must outlive this object; most of it counts when this is made, what a query looks at in
  //!     the query.
  //! \param environment Of the robot, asked by nobody else.
  //! \param search_observer Of the planner; must outlive this object, and may change between queries.
  MotionQueries(const MotionPlannerConfig& config, std::shared_ptr<RobotDescription> robot,
                std::shared_ptr<RobotEnvironment> environment, const StopCondition& stop_condition,
                const SearchObserver& search_observer);

  //! Without a change where the robot is refused.
  void SetRobot(const std::shared_ptr<RobotDescription>& robot);
  void SetStopCondition(const StopCondition& stop_condition);

  //! As the operations of these names of `MotionPlanner`.
  Results PlanToConfiguration(const Eigen::VectorXd& q_initial, const Eigen::VectorXd& q_target,
                              bool generate_interpolated_path);
  Results PlanToGoals(const Eigen::VectorXd& q_initial, const std::vector<Goal>& goals,
                      bool generate_interpolated_path);
  LineMotion PlanLine(const Eigen::VectorXd& q_initial, const PoseGoal& goal, const LineOptions& options);
  StagedResults PlanStages(const Eigen::VectorXd& q_initial, const std::vector<Stage>& stages);

  //! Of the last query. It has no status if an exception has ended that.
  const QueryReport& Report() const { return report_; }

 private:
  // Asks for a connection by a function.
  template <typename Connect>
  Results Plan(const Connect& connect, bool generate_interpolated_path);
  LineMotion Follow(const Eigen::VectorXd& q_initial, const PoseGoal& goal, const LineOptions& options,
                    PoseSolvers& solvers);

  // Shows the trees, if there are any.
  void ShowTrees(std::vector<Eigen::VectorXd> raw_path) const;

  const MotionPlannerConfig& config_;
  std::shared_ptr<RobotDescription> robot_;
  std::shared_ptr<RobotEnvironment> environment_;
  std::shared_ptr<BiRRT> bi_rrt_;
  PoseSolvers pose_solvers_;
  StopCondition stop_condition_;
  const SearchObserver& search_observer_;
  QueryReport report_;
};

}  // namespace kavo::planning::internal
