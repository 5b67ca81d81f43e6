#pragma once

#include <cstdint>
#include <memory>

#include "kavo/motion_planning/environment/environment.h"
#include "kavo/motion_planning/rrt/rrt.h"
#include "kavo/motion_planning/tree/tree.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! Settings of `CreateRRTConnect`.
struct KAVO_EXPORT RRTConnectConfig {
  //! An edge length that is not positive is a fatal error; an exploration fraction outside of [0, 1] is
  //! clipped with a warning (NaN is warned about and kept).
  RRTConnectConfig(double edge_length_in, unsigned long max_iterations_in, double exploration_fraction_in);

  //! Length of one extension step.
  double edge_length;
  //! Extensions allowed for one query.
  unsigned long max_iterations;
  //! Share of the extensions that go towards random configurations; the others go towards the other tree.
  double exploration_fraction;
  //! Nodes that the trees may hold together; the query ends with a warning where more would be needed.
  std::uint64_t max_nodes = kDefaultMaxNodes;
};

//! A planner with two trees, one from the start and one from the target (after Kuffner and LaValle,
//! "RRT-Connect", 2000).
//!
//! Extensions alternate between the trees. Each walks from the nearest node in equal straight steps, towards
//! a random configuration or towards the last one added to the other tree, and adds a node for each valid
//! step, until a step is invalid, comes within one edge length of where it is heading, or meets the other
//! tree. Trees meet when a new node lies within one edge length of the other tree (under the metric of the
//! trees); the edge that joins them is not checked. The first extension heads straight from the start for the
//! target.
//!
//! A start or target that is invalid or not finite is warned about and gives no path.
//!
//! \param tree_a, tree_b Owners of the trees to grow; see `RRT`. Their dimensions must be the environment's
//!   (fatal error otherwise). Planning swaps the trees between the two owners; after a success the first owns
//!   the tree of the start.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::BoxObstacle{{0.1, 1.5, 1.0}}, kavo::Pose3::FromTranslation({1.0, -0.25, 0.5}), "wall");
//! const kavo::kinematics::ConfigurationLimits room(Eigen::Vector3d(0.0, -1.0, 0.0),
//!                                                  Eigen::Vector3d(2.0, 1.0, 1.0));
//! const auto environment = kavo::planning::CreateBasic3dEnvironment({world.view(), room, 100, 1});
//!
//! using kavo::planning::CreateBasicTree;
//! std::unique_ptr<kavo::planning::Tree> trees[] = {
//!     CreateBasicTree(3, environment->CSpaceDistanceMetric(), false),
//!     CreateBasicTree(3, environment->CSpaceDistanceMetric(), false)};
//! const auto planner = kavo::planning::CreateRRTConnect({0.1, 10000, 0.5}, environment, trees[0], trees[1]);
//! const auto nodes =
//!     planner->TryToFindPath(Eigen::Vector3d(0.5, 0.0, 0.5), Eigen::Vector3d(1.5, 0.0, 0.5));
//! assert(nodes && nodes->front()->Configuration()[0] == 0.5);
//! @endcode
KAVO_EXPORT std::shared_ptr<RRT> CreateRRTConnect(const RRTConnectConfig& config,
                                                  const std::shared_ptr<Environment>& environment,
                                                  std::unique_ptr<Tree>& tree_a,
                                                  std::unique_ptr<Tree>& tree_b);

}  // namespace kavo::planning
