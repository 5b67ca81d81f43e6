#include "kavo/motion_planning/tree/node.h"

#include <utility>

#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

// While a destructor on this thread walks up a chain, the place where the next destructor leaves its parent.
thread_local std::shared_ptr<Node>* orphan = nullptr;

}  // namespace

Node::Node(const Eigen::VectorXd& configuration) : configuration_(configuration) {}

Node::Node(const Eigen::VectorXd& configuration, const std::shared_ptr<Node>& parent)
    : configuration_(configuration), parent_(parent) {}

// A copy is in no tree.
Node::Node(const Node& other)
    : configuration_(other.configuration_), parent_(other.parent_), id_(other.id_) {}
Node::Node(Node&& other) noexcept
    : configuration_(std::move(other.configuration_)), parent_(std::move(other.parent_)), id_(other.id_) {}

Node& Node::operator=(const Node& other) { return *this = Node(other); }

// Of a node in a tree it is a fatal error, which is thrown.
Node& Node::operator=(Node&& other) {  // NOLINT(performance-noexcept-move-constructor)
  KAVO_CHECK(!is_in_tree_, "motion_planning/tree/node", 28)
      << "A node in a tree cannot be assigned to: the tree would not notice.";
  configuration_ = std::move(other.configuration_);
  parent_ = std::move(other.parent_);
  id_ = other.id_;
  return *this;
}

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
  KAVO_CHECK(node != nullptr, "motion_planning/tree/node", 45) << "There is no node to start a chain from.";
  std::vector<std::shared_ptr<Node>> chain{node};
  while (const std::shared_ptr<Node> parent = chain.back()->Parent().value_or(nullptr)) {
    chain.push_back(parent);
  }
  return chain;
}

}  // namespace kavo::planning
