#pragma once

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/motion_queries_internal.h"
#include "kavo/motion_planning/rrt/jt_rrt.h"
#include "kavo/motion_planning/rrt/rrt.h"
#include "kavo/motion_planning/tree/tree.h"

namespace kavo::planning {

//! The implementation of `MotionPlanner`: owns the settings and everything that is built from them.
class KAVO_INTERNAL_EXPORT MotionPlannerInternal final : public MotionPlanner {
 public:
  //! No robot, a number of weights that is not the robot's number of coordinates, a frame that the robot does
  //! not have, or a wrong number of limits or zone tolerances is a fatal error.
  MotionPlannerInternal(const MotionPlannerConfig& motion_planner_config,
                        std::shared_ptr<RobotDescription> robot_description, const WorldView& world_view);

  bool setParam(const std::string& param_name, ParamValue value) override;
  void updateWorldView() override;
  Results planToCSpaceTarget(const Eigen::VectorXd& q_initial, const Eigen::VectorXd& q_target,
                             bool generate_interpolated_path) override;
  Results planToTaskSpaceTarget(const Eigen::VectorXd& q_initial, const Eigen::Vector3d& x_target,
                                bool generate_interpolated_path) override;
  QueryReport queryReport() const override { return report_; }
  void setStopCondition(StopCondition stop_condition) override;
  std::shared_ptr<RobotDescription> robot() const override { return robot_description_; }
  void setRobot(std::shared_ptr<RobotDescription> robot_description) override;
  void attach(const AttachedObject& object) override;
  AttachedObject detach(const std::string& name) override;
  Results planToGoals(const Eigen::VectorXd& q_initial, const std::vector<Goal>& goals,
                      bool generate_interpolated_path) override;
  planning::LineMotion planLine(const Eigen::VectorXd& q_initial, const PoseGoal& goal,
                                const planning::LineOptions& options) override;
  StagedResults planStages(const Eigen::VectorXd& q_initial, const std::vector<Stage>& stages) override;
  void setSearchObserver(SearchObserver observer) override { search_observer_ = std::move(observer); }

 private:
  void validateMotionPlannerConfig() const;
  void rebuild();
  void createRobotEnvironment();
  std::unique_ptr<Tree> createCSpaceRrtTree() const;
  void createRrtConnect();
  void createJtRrt();
  std::shared_ptr<RobotEnvironment> makeRobotEnvironment(int c_space_seed) const;

  Results plan(RRT& planner, const Eigen::VectorXd& q_initial, const Eigen::VectorXd& target,
               std::array<const std::unique_ptr<Tree>*, 2> trees, bool generate_interpolated_path);
  Results generateResults(const std::optional<std::vector<std::shared_ptr<Node>>>& nodes,
                          bool generate_interpolated_path);
  void showSearch(const RRT& planner, const Eigen::VectorXd& q_initial,
                  const std::optional<std::vector<std::shared_ptr<Node>>>& nodes) const;
  // That of the planner by motions, made when it is asked for first.
  internal::MotionQueries& byMotions();
  // Has it answer a query, and takes over its report.
  template <typename Query>
  auto ask(const Query& query);

  WorldView world_view_;
  std::shared_ptr<RobotDescription> robot_description_;
  // What it holds, where that is known by its shape.
  std::vector<AttachedObject> attached_objects_;
  MotionPlannerConfig motion_planner_config_;
  // Seeds are dealt in the order of building: two to the environment, one to the Jacobian-transpose planner.
  int next_seed_;
  std::shared_ptr<RobotEnvironment> robot_environment_;
  // The planners refer to the trees, which are declared, and so live, before them.
  std::array<std::unique_ptr<Tree>, 2> rrt_connect_trees_;
  std::shared_ptr<RRT> rrt_connect_;
  std::unique_ptr<Tree> jt_rrt_c_space_tree_;
  std::unique_ptr<Tree> jt_rrt_task_space_tree_;
  std::shared_ptr<JtRRT> jt_rrt_;
  // Made when it is used first. With an environment apart, so that the others' random choices stay as they
  // are.
  std::optional<internal::MotionQueries> by_motions_;
  bool needs_rebuild_ = false;
  bool has_warned_of_weights_ = false;
  StopCondition stop_condition_;
  SearchObserver search_observer_;
  QueryReport report_;
};

}  // namespace kavo::planning
