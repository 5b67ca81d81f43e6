#include "kavo/motion_planning/rrt/find_path.h"

#include <utility>

#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/distance_metrics.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

std::unique_ptr<Tree> PlainTree(const std::shared_ptr<Environment>& environment, bool finds_ids) {
  KAVO_CHECK(environment != nullptr, "motion_planning/rrt/find_path", 20);
  return CreateBasicTree(static_cast<unsigned long>(environment->CSpaceDimension()),
                         environment->CSpaceDistanceMetric(), finds_ids);
}

// What a planner finds, and leaves in its trees, shortened in steps of one edge length.
FoundPath Search(RRT& planner, const std::unique_ptr<Tree>& tree, const std::unique_ptr<Tree>* other_tree,
                 const std::shared_ptr<Environment>& environment, double edge_length,
                 const Eigen::VectorXd& q_start, const Eigen::VectorXd& target,
                 const FindPathOptions& options) {
  planner.SetStopCondition(options.stop_condition);
  const auto nodes = planner.TryToFindPath(q_start, target);

  FoundPath found;
  found.status = planner.LastStatus();
  found.num_iterations = planner.LastNumIterations();
  found.num_nodes = tree->NumNodes() + (other_tree != nullptr ? (*other_tree)->NumNodes() : 0);
  if (nodes) {
    found.path = ConvertToConfigurations(*nodes);
    found.num_raw_waypoints = found.path.size();
    // A start that is at its target already is a path by itself.
    if (options.shorten && found.path.size() > 1) {
      ShortenedPath shortened =
          ShortCircuitPathUntil(options.stop_condition, found.path, environment, edge_length,
                                options.num_short_cuts, options.short_cut_seed);
      found.path = std::move(shortened.path);
      found.was_shortening_stopped = shortened.was_stopped;
    }
  }
  return found;
}

}  // namespace

FoundPath FindPath(const std::shared_ptr<Environment>& environment, const RRTConnectConfig& config,
                   const Eigen::VectorXd& q_start, const Eigen::VectorXd& q_target,
                   const FindPathOptions& options) {
  std::unique_ptr<Tree> trees[] = {PlainTree(environment, false), PlainTree(environment, false)};
  const std::shared_ptr<RRT> planner = CreateRRTConnect(config, environment, trees[0], trees[1]);
  return Search(*planner, trees[0], &trees[1], environment, config.edge_length, q_start, q_target, options);
}

FoundPath FindPath(const std::shared_ptr<Environment>& environment, const BasicRRTConfig& config,
                   const Eigen::VectorXd& q_start, const Eigen::VectorXd& q_target,
                   const FindPathOptions& options) {
  std::unique_ptr<Tree> tree = PlainTree(environment, false);
  const std::shared_ptr<RRT> planner = CreateBasicRRT(config, environment, tree);
  return Search(*planner, tree, nullptr, environment, config.edge_length, q_start, q_target, options);
}

FoundPath FindPath(const std::shared_ptr<RobotEnvironment>& environment, const JtRRTConfig& config,
                   const Eigen::VectorXd& q_start, const Eigen::Vector3d& x_target,
                   const FindPathOptions& options) {
  std::unique_ptr<Tree> c_space_tree = PlainTree(environment, true);
  std::unique_ptr<Tree> task_space_tree = CreateBasicTree(3, L2Norm, true);
  const std::shared_ptr<RRT> planner = CreateJtRRT(config, environment, c_space_tree, task_space_tree);
  return Search(*planner, c_space_tree, &task_space_tree, environment, config.edge_length, q_start, x_target,
                options);
}

FoundPath FindPath(const std::shared_ptr<Environment>& environment, const BiRRTConfig& config,
                   const Eigen::VectorXd& q_start, const Eigen::VectorXd& q_target,
                   const FindPathOptions& options) {
  const std::shared_ptr<BiRRT> planner = CreateBiRRT(config, environment);
  planner->SetStopCondition(options.stop_condition);
  std::optional<BiRRT::Connection> connection = planner->TryToConnect({q_start}, {q_target});

  FoundPath found;
  found.status = planner->LastStatus();
  found.num_iterations = planner->LastNumIterations();
  found.num_nodes = planner->NumNodes()[0] + planner->NumNodes()[1];
  if (connection) {
    found.num_raw_waypoints = connection->path.size();
    ShortenedPath shortened =
        ShortenByMotions(std::move(connection->path), *environment,
                         {options.shorten ? options.effort : 0, config.resolution, options.stop_condition});
    found.path = std::move(shortened.path);
    found.was_shortening_stopped = shortened.was_stopped;
  }
  return found;
}

}  // namespace kavo::planning
