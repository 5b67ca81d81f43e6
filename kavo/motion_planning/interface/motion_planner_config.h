#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/rrt/bi_rrt.h"
#include "kavo/motion_planning/rrt/rrt.h"
#include "kavo/motion_planning/tree/tesk_tree_util.h"
#include "kavo/motion_planning/util/motion_shortening.h"
#include "kavo/util/export.h"

namespace YAML {
class Node;
}  // namespace YAML

namespace kavo::planning {

//! What answers queries to a configuration.
enum class CSpacePlanner {
  //! RRT-Connect in steps of `step_size`, see `CreateRRTConnect`.
  kRrtConnect,
  //! Trees of whole motions, see `CreateBiRRT`.
  kBiRrt,
};

//! "rrt_connect" or "bi_rrt", the value of the setting `planner`.
KAVO_EXPORT const char* ToString(CSpacePlanner planner);

//! All settings of a `MotionPlanner`. A plain value.
struct KAVO_EXPORT MotionPlannerConfig {
  //! The defaults for a robot; a fatal error without one.
  explicit MotionPlannerConfig(const std::shared_ptr<RobotDescription>& robot_description);

  //! From the root of a YAML document; see examples/planner.yaml for its keys. All but `tesk_tree_params`,
  //! `max_nodes`, `planner`, `bi_rrt_params` with all in it, `effort` and `pose_planning_params` with all in
  //! it are required. Throws yaml-cpp's `YAML::TypedBadConversion` for a key that is missing or does not
  //! convert, `YAML::InvalidNode` for a key of a map that is missing; a seed, step size, weight or limit out
  //! of range is a fatal error.
  explicit MotionPlannerConfig(const YAML::Node& node);

  //! The settings of such a document as they stand, for those who ask `FindSettingFault` what is wrong with
  //! them before they make a planner: nothing is out of range here. Exceptions of yaml-cpp as above.
  static MotionPlannerConfig ReadUnchecked(const YAML::Node& node);

  //! Seeds all random choices.
  int seed = 1234;
  //! Length of an extension step and of the steps in which paths are checked and resampled.
  double step_size = 0.1;
  //! Extensions allowed for one query.
  std::size_t max_iterations = 10000;
  //! Random configurations tried for one sample.
  std::size_t max_sampling = 10000;
  //! Weights of the squared distance between configurations, one for each coordinate.
  Eigen::VectorXd distance_metric_weights;
  //! The frame of task-space targets.
  std::string task_space_frame_name;
  //! Box of random task-space positions: x, y, z relative to the robot base, metres.
  std::vector<MotionPlanner::Limit> task_space_limits = std::vector<MotionPlanner::Limit>(3, {-1.0, 1.0});
  //! Engaged: the trees of c-space queries are asked from `CreateTeskTree`; else they are plain `BasicTree`s.
  std::optional<TeskTreeConfig> tesk_tree_config;
  //! Share of c-space extensions towards random configurations.
  double c_space_exploration_fraction = 0.5;
  //! Half-widths of the zone around a task-space target, 3 entries, metres.
  Eigen::VectorXd x_target_zone_tolerance = Eigen::VectorXd::Constant(3, 0.01);
  //! Distance at which the refinement towards a task-space target ends, metres.
  double x_target_final_tolerance = 1e-5;
  //! Share of task-space iterations that pull towards the target.
  double task_space_exploitation_fraction = 0.4;
  //! Share of task-space iterations towards random positions.
  double task_space_exploration_fraction = 0.1;
  //! Nodes that the trees of one query may hold together.
  std::uint64_t max_nodes = kDefaultMaxNodes;
  //! What answers queries to a configuration.
  CSpacePlanner planner = CSpacePlanner::kRrtConnect;
  //! Of these the range, balance, domain and samples; the others follow from the settings above.
  BiRRTConfig bi_rrt;
  //! Work that its paths are shortened with, see `ShortenByMotions`.
  int effort = kDefaultEffort;
  //! Tolerance of the position of pose goals that have none of their own, metres; the next one is of their
  //! orientation.
  double pose_position_tolerance = 1e-4;
  //! Radians.
  double pose_orientation_tolerance = 1e-3;
  //! Configurations that one pose goal stands for in a search, at most.
  std::size_t max_pose_configurations = 64;

 private:
  MotionPlannerConfig(const YAML::Node& node, bool checks_ranges);
};

//! Warns where weights other than one have no effect on queries to a configuration, because accelerator trees
//! measure the plain distance. Whether it did.
KAVO_EXPORT bool WarnOfIdleWeights(const MotionPlannerConfig& config);

//! The settings that a newly enabled accelerator tree has.
KAVO_EXPORT TeskTreeConfig DefaultTeskTreeConfig(int dimension);

}  // namespace kavo::planning

namespace kavo {

//! A planner with these settings. What `MotionPlanner` needs of them is a fatal error where it is missing;
//! see `planning::FindSettingFault`.
KAVO_EXPORT std::unique_ptr<MotionPlanner> CreateMotionPlanner(
    const planning::MotionPlannerConfig& config, std::shared_ptr<RobotDescription> robot_description,
    const WorldView& world_view);

}  // namespace kavo
