#pragma once

#include <memory>

#include "kavo/motion_planning/spatial_data_structures/r_star_tree_config.h"
#include "kavo/motion_planning/tree/tree.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! Settings of a `FastTree`.
struct FastTreeConfig {
  //! From the settings of the index.
  explicit FastTreeConfig(const RStarTreeConfig& config) : r_star_tree_config(config) {}

  //! Of its index; gives the dimension. docs/trees.md says what the values mean.
  RStarTreeConfig r_star_tree_config;
};

//! An empty tree that answers nearest-node queries through an R*-tree, under the Euclidean distance.
//!
//! `GetClosest` is exact: its distance is that of a scan over all finite nodes, and so is its node unless
//! several are equally near, where the first one met in the index is the answer. `GetApproxClosest` descends
//! to one leaf of the index and answers with the nearest node there. Node ids are not supported.
//!
//! A node or query of the wrong length is reported at level 0. Such a node, and one whose configuration is
//! not finite, is stored but never near to anything. A query that is not finite, or a tree that holds only
//! nodes that are near to nothing, gives the first node.
//!
//! @code
//! using kavo::planning::EntrySplitterType;
//! using kavo::planning::SelectionMetric;
//! const kavo::planning::RStarTreeConfig config(
//!     /*dimension=*/2, /*min_entries_per_node=*/64, /*max_entries_per_node=*/128,
//!     /*num_entries_to_prune=*/0,
//!     /*max_approx_cost_evals_for_selection=*/8, EntrySplitterType::kStar,
//!     /*internal_node_selection_metric=*/SelectionMetric::kMinimumCentroidDistance,
//!     /*leaf_parent_selection_metric=*/SelectionMetric::kMinimumVolumeIncrease,
//!     /*reinsertion_selection_metric=*/SelectionMetric::kMinimumCentroidDistance,
//!     /*approx_nearest_neighbor_selection_metric=*/SelectionMetric::kMinimumCentroidDistance);
//! const auto tree = kavo::planning::CreateFastTree(kavo::planning::FastTreeConfig(config));
//! tree->ClearAndSetRoot(kavo::planning::Node(Eigen::Vector2d(0.0, 0.0)));
//! assert(tree->GetClosest(Eigen::Vector2d(3.0, 4.0)).distance == 5.0);
//! @endcode
KAVO_EXPORT std::unique_ptr<Tree> CreateFastTree(const FastTreeConfig& config);

}  // namespace kavo::planning
