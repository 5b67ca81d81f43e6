#pragma once

#include <Eigen/Core>
#include <memory>
#include <optional>
#include <vector>

#include "kavo/util/export.h"

namespace kavo::planning {

namespace internal {
class NodeArena;
}  // namespace internal

//! A vertex of a tree of configurations: a configuration, the node it was reached from, and optionally a
//! number.
//!
//! Nodes are shared by `std::shared_ptr`; each keeps its parent alive, and so the whole chain to its root.
//! Destroying the last owner of a long chain takes constant stack.
class KAVO_EXPORT Node {
 public:
  //! A root: no parent, no id.
  explicit Node(const Eigen::VectorXd& configuration);
  //! A child of `parent`. The parent counts as set even if the pointer is null; no id.
  Node(const Eigen::VectorXd& configuration, const std::shared_ptr<Node>& parent);

  Node(const Node&);  //!< A node outside of any tree, its parent and id the same.
  //! As a copy; the other one has no coordinates any more.
  Node(Node&&) noexcept;
  //! A fatal error, here and below, for a node in a tree of this library, which keeps its coordinates apart.
  Node& operator=(const Node& other);
  //! As above, and the other one has no coordinates any more.
  Node& operator=(Node&& other);  // NOLINT(performance-noexcept-move-constructor)
  ~Node();

  //! Number of coordinates.
  Eigen::Index Dimension() const { return configuration_.size(); }
  //! What it stands for; in the units of the coordinates.
  const Eigen::VectorXd& Configuration() const { return configuration_; }
  //! The parent; empty for a root.
  const std::optional<std::shared_ptr<Node>>& Parent() const { return parent_; }

  //! Sets the id, replacing an earlier one. Ids are given by planners, never by trees.
  void SetId(unsigned int id) { id_ = id; }
  //! The id; empty until one was set.
  std::optional<unsigned int> TryGetId() const { return id_; }

 private:
  friend class internal::NodeArena;

  Eigen::VectorXd configuration_;
  std::optional<std::shared_ptr<Node>> parent_;
  std::optional<unsigned int> id_;
  bool is_in_tree_ = false;
};

//! The chain from `node` (first) to its root (last). It ends before a parent that is set but null. A fatal
//! error without a node.
KAVO_EXPORT std::vector<std::shared_ptr<Node>> ChainToRoot(const std::shared_ptr<Node>& node);

}  // namespace kavo::planning
