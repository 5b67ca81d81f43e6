#include "kavo/motion_planning/rrt/rrt_util.h"

#include "kavo/util/log_message.h"

namespace kavo::planning {

void ValidateTreeDimension(const std::unique_ptr<Tree>& tree, int rrt_dimension) {
  KAVO_CHECK(tree->CSpaceDimension() == rrt_dimension, "motion_planning/rrt/rrt_util", 31)
      << "Tree dimension [" << tree->CSpaceDimension() << "] does not match RRT dimenstion [" << rrt_dimension
      << "]";
}

void ExtractConfigurations(const std::vector<std::shared_ptr<Node>>& nodes,
                           std::vector<Eigen::VectorXd>& configurations) {
  configurations.reserve(configurations.size() + nodes.size());
  for (const std::shared_ptr<Node>& node : nodes) {
    configurations.push_back(node->Configuration());
  }
}

void ExtractEdges(const std::vector<std::shared_ptr<Node>>& nodes,
                  std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>>& edges) {
  for (const std::shared_ptr<Node>& node : nodes) {
    if (node->Parent().has_value()) {
      edges.emplace_back((*node->Parent())->Configuration(), node->Configuration());
    }
  }
}

}  // namespace kavo::planning
