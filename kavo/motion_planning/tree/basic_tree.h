#pragma once

#include <memory>

#include "kavo/motion_planning/tree/distance_metrics.h"
#include "kavo/motion_planning/tree/tree.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! An empty tree that answers `GetClosest` by a scan over all nodes. Among equally near nodes the one
//! inserted first is the answer. A distance of NaN is less than no other, so that such a node is passed over,
//! and none is less than it: a first node at NaN stays the answer.
//!
//! The three metrics of distance_metrics.h are scanned over a contiguous copy of the coordinates with wide
//! vectors; any other metric is called node by node, with the node's configuration first. The answers are the
//! same, bit for bit.
//!
//! A node or query of the wrong length is reported at level 0. Under those three metrics such a node is
//! stored at a distance of NaN from everything, and such a query is answered by the first node at NaN;
//! another metric is called with what there is.
//!
//! \param dimension Dimension of the configurations.
//! \param metric Distance between configurations.
//! \param supports_node_id Whether `TryGetNode` finds nodes by id. Every inserted node must carry one then
//!   (fatal error otherwise); of several nodes with one id the first is found.
//!
//! @code
//! const auto tree = kavo::planning::CreateBasicTree(2, kavo::planning::L2Norm, false);
//! const auto root = tree->ClearAndSetRoot(kavo::planning::Node(Eigen::Vector2d(0.0, 0.0)));
//! tree->Insert(kavo::planning::Node(Eigen::Vector2d(3.0, 4.0), root));
//! const kavo::planning::ClosestNode closest = tree->GetClosest(Eigen::Vector2d(3.0, 3.0));
//! assert(closest.distance == 1.0 && tree->Backtrace(closest.node).back() == root);
//! @endcode
KAVO_EXPORT std::unique_ptr<Tree> CreateBasicTree(unsigned long dimension, const DistanceMetric& metric,
                                                  bool supports_node_id);

}  // namespace kavo::planning
