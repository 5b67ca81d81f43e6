#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <memory>

#include "kavo/motion_planning/environment/environment.h"
#include "kavo/motion_planning/rrt/rrt.h"
#include "kavo/motion_planning/tree/tree.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! Settings of `CreateBasicRRT`.
struct KAVO_EXPORT BasicRRTConfig {
  //! A fatal error unless every tolerance and the edge length are positive.
  BasicRRTConfig(const Eigen::VectorXd& q_target_tolerance_in, double edge_length_in,
                 unsigned long max_iterations_in, bool use_approx_closest_in);

  //! Half-widths of the box around the target in which a node counts as near it. Its length is the planner's
  //! dimension, which must be at least 3.
  Eigen::VectorXd q_target_tolerance;
  //! Length of one extension step.
  double edge_length;
  //! Extensions allowed for one query.
  unsigned long max_iterations;
  //! Whether the tree may answer with a near node instead of the nearest.
  bool use_approx_closest;
  //! Nodes that the tree may hold, not counting the target; the query ends with a warning where more would be
  //! needed.
  std::uint64_t max_nodes = kDefaultMaxNodes;
};

//! A planner with one tree for a point in 3-D (`Basic3dEnvironment`).
//!
//! It takes random configurations from the environment and walks towards each from the nearest node in equal
//! straight steps, adding a node for each valid one, until a step is invalid or comes within one edge length
//! of the sample. Once a node lies in the box around the target and no farther than an edge length from it
//! (under the tree's metric), the target becomes its child; that last edge is not checked. A start or
//! target that is invalid or not finite is warned about and gives no path. A planner of fewer than three
//! dimensions, a start of another length than its dimension, and a target of other than three coordinates are
//! fatal errors of the query.
//!
//! \param tree Owner of the tree to grow; see `RRT`. Its dimension and the environment's must be the
//!   planner's (fatal errors otherwise).
KAVO_EXPORT std::shared_ptr<RRT> CreateBasicRRT(const BasicRRTConfig& config,
                                                const std::shared_ptr<Environment>& environment,
                                                std::unique_ptr<Tree>& tree);

}  // namespace kavo::planning
