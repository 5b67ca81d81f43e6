#pragma once

#include <memory>

#include "kavo/motion_planning/spatial_data_structures/r_star_tree_config.h"
#include "kavo/motion_planning/tree/tree.h"
#include "kavo/util/export.h"

namespace kavo::planning {

struct FastTreeConfig {
  explicit FastTreeConfig(const RStarTreeConfig& config) : r_star_tree_config(config) {}

  RStarTreeConfig r_star_tree_config;
};

//! An empty tree that answers nearest-node queries through an R*-tree, under the Euclidean distance.
//!
//! `GetClosest` is exact: its distance is that of a scan over all nodes, and so is its node unless several
//! are equally near, where the first one met in the index is the answer. `GetApproxClosest` descends to one
//! leaf of the index and answers with the nearest node there. Node ids are not supported.
//!
//! A node or query of the wrong length is reported at level 0. Such a node, and one whose configuration is
//! not finite, is stored but never near to anything. A query that is not finite, or a tree that holds only
//! nodes that are near to nothing, gives the first node.
KAVO_EXPORT std::unique_ptr<Tree> CreateFastTree(const FastTreeConfig& config);

}  // namespace kavo::planning
