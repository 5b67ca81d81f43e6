#pragma once

#include <Eigen/Core>
#include <memory>
#include <utility>
#include <vector>

#include "kavo/motion_planning/tree/node.h"
#include "kavo/motion_planning/tree/tree.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! A fatal error unless the tree holds configurations of the planner's dimension.
KAVO_EXPORT void ValidateTreeDimension(const std::unique_ptr<Tree>& tree, int rrt_dimension);

//! Appends the configurations of the nodes, in order.
KAVO_EXPORT void ExtractConfigurations(const std::vector<std::shared_ptr<Node>>& nodes,
                                       std::vector<Eigen::VectorXd>& configurations);

//! Appends (configuration of the parent, configuration of the node) for each node that has a parent, in
//! order.
KAVO_EXPORT void ExtractEdges(const std::vector<std::shared_ptr<Node>>& nodes,
                              std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>>& edges);

}  // namespace kavo::planning
