#pragma once

#include <memory>

#include "kavo/motion_planning/tree/distance_metrics.h"
#include "kavo/motion_planning/tree/tree.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! An empty tree that answers `GetClosest` by a scan over all nodes. Among equally near nodes the one
//! inserted first is the answer; a distance of NaN never wins.
//!
//! The three metrics of distance_metrics.h are scanned over a contiguous copy of the coordinates with wide
//! vectors; any other metric is called node by node, with the node's configuration first. The answers are the
//! same, bit for bit.
//!
//! A node or query of the wrong length is reported at level 0. Such a node is stored but never near to
//! anything.
//!
//! \param dimension Dimension of the configurations.
//! \param metric Distance between configurations.
//! \param supports_node_id Whether `TryGetNode` finds nodes by id. Every inserted node must carry one then
//!   (fatal error otherwise); of several nodes with one id the first is found.
KAVO_EXPORT std::unique_ptr<Tree> CreateBasicTree(unsigned long dimension, const DistanceMetric& metric,
                                                  bool supports_node_id);

}  // namespace kavo::planning
