#include "kavo/motion_planning/tree/tree.h"

#include "kavo/util/log_message.h"

namespace kavo::planning {

Tree::~Tree() = default;

std::shared_ptr<Node> Tree::Adopt(Node&& node) { return Insert(node); }

ClosestNode Tree::GetApproxClosest(const Eigen::VectorXd& q) const { return GetClosest(q); }

std::optional<std::shared_ptr<Node>> Tree::TryGetNode(unsigned int) const {
  KAVO_LOG(LogLevel::kWarning) << "This Tree does NOT support node look-up via ID.";
  return std::nullopt;
}

bool Tree::SupportsNodeId() const { return false; }

}  // namespace kavo::planning
