#include "kavo/motion_planning/tree/node.h"

#include <utility>

namespace kavo::planning {

namespace {

// While a destructor on this thread walks up a chain, the place where the next destructor leaves its parent.
thread_local std::shared_ptr<Node>* orphan = nullptr;

}  // namespace

Node::Node(const Eigen::VectorXd& configuration) : configuration_(configuration) {}

Node::Node(const Eigen::VectorXd& configuration, const std::shared_ptr<Node>& parent)
    : configuration_(configuration), parent_(parent) {}

Node::Node(const Node&) = default;
Node::Node(Node&&) noexcept = default;
Node& Node::operator=(const Node&) = default;
Node& Node::operator=(Node&&) noexcept = default;

// A node may be the last owner of its parent, which may be the last owner of its own, and so on over millions
// of nodes. The outermost destructor releases them one after the other instead of each from within the one
// below it.
Node::~Node() {
  if (!parent_ || !*parent_) {
    return;
  }
  if (orphan != nullptr) {
    *orphan = std::move(*parent_);
    return;
  }
  std::shared_ptr<Node> node = std::move(*parent_);
  while (node) {
    std::shared_ptr<Node> parent;
    orphan = &parent;
    node.reset();
    orphan = nullptr;
    node = std::move(parent);
  }
}

std::vector<std::shared_ptr<Node>> ChainToRoot(const std::shared_ptr<Node>& node) {
  std::vector<std::shared_ptr<Node>> chain{node};
  while (const std::shared_ptr<Node> parent = chain.back()->Parent().value_or(nullptr)) {
    chain.push_back(parent);
  }
  return chain;
}

}  // namespace kavo::planning
