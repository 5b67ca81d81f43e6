#include "kavo/motion_planning/rrt/find_path.h"

#include <utility>

#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

FoundPath FindPath(const std::shared_ptr<Environment>& environment, const RRTConnectConfig& config,
                   const Eigen::VectorXd& q_start, const Eigen::VectorXd& q_target,
                   const FindPathOptions& options) {
  KAVO_CHECK(environment != nullptr, "motion_planning/rrt/find_path", 20);
  std::unique_ptr<Tree> trees[2];
  for (std::unique_ptr<Tree>& tree : trees) {
    tree = CreateBasicTree(static_cast<unsigned long>(environment->CSpaceDimension()),
                           environment->CSpaceDistanceMetric(), false);
  }
  const std::shared_ptr<RRT> planner = CreateRRTConnect(config, environment, trees[0], trees[1]);
  planner->SetStopCondition(options.stop_condition);
  const auto nodes = planner->TryToFindPath(q_start, q_target);

  FoundPath found;
  found.status = planner->LastStatus();
  found.num_iterations = planner->LastNumIterations();
  found.num_nodes = trees[0]->NumNodes() + trees[1]->NumNodes();
  if (nodes) {
    found.path = ConvertToConfigurations(*nodes);
    found.num_raw_waypoints = found.path.size();
    if (options.shorten) {
      ShortenedPath shortened =
          ShortCircuitPathUntil(options.stop_condition, found.path, environment, config.edge_length,
                                options.num_short_cuts, options.short_cut_seed);
      found.path = std::move(shortened.path);
      found.was_shortening_stopped = shortened.was_stopped;
    }
  }
  return found;
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
