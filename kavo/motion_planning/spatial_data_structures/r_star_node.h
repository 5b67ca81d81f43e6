#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "kavo/motion_planning/spatial_data_structures/bounding_box.h"
#include "kavo/motion_planning/spatial_data_structures/box_rows_internal.h"
#include "kavo/util/log_message.h"

// Not installed: how the index is laid out inside.

namespace kavo::planning {

//! A node of an R*-tree. Its entries are values with their boxes (in a leaf, at level 0) or child nodes of
//! the level below. The node owns its children.
//!
//! The boxes of all entries stand together (`internal::BoxRows`): a child's box is kept both by the child and
//! by its parent, and a change of the one must be followed by `UpdateInParent`.
template <typename T>
class RNode {
 public:
  //! One element of a node, outside of it. It holds either a value and its box or a child, whose box is its
  //! `Bounds`.
  struct Entry {
    std::optional<T> value;
    internal::BoxRef box{};
    std::unique_ptr<RNode> child;

    internal::BoxRef Box() const { return child ? child->Corners() : box; }
  };

  //! A node with the given entries and, unless it has none (fatal error otherwise), a parent.
  //! \param max_entries Largest number of entries that the node is to hold at any time.
  RNode(std::uint32_t level, int dimension, int max_entries, std::vector<Entry> entries,
        std::optional<RNode*> parent)
      : rows_(dimension), level_(level), max_entries_(max_entries), parent_(parent) {
    if (entries.empty()) {
      KAVO_CHECK(!parent.has_value(), "motion_planning/spatial_data_structures/r_star_node", 134)
          << "An empty node should never have a parent.";
    }
    for (Entry& entry : entries) {
      AddEntry(std::move(entry));
    }
  }
  RNode(const RNode&) = delete;
  RNode& operator=(const RNode&) = delete;

  std::uint32_t Level() const { return level_; }
  bool IsLeaf() const { return level_ == 0; }
  int NumEntries() const { return rows_.Size(); }
  const internal::BoxRows& Boxes() const { return rows_; }
  const T& Value(int position) const { return values_[static_cast<std::size_t>(position)]; }
  RNode* Child(int position) const { return children_[static_cast<std::size_t>(position)].get(); }
  //! Empty exactly for the root.
  std::optional<RNode*> Parent() const { return parent_; }
  void SetParent(RNode* parent) { parent_ = parent; }

  //! The box around all entries, of which there must be one (fatal error otherwise).
  BoundingBox Bounds() const {
    const auto [min, max] = Corners();
    const int dimension = rows_.Dimension();
    return BoundingBox(kinematics::ConfigurationLimits(Eigen::Map<const Eigen::VectorXd>(min, dimension),
                                                       Eigen::Map<const Eigen::VectorXd>(max, dimension)));
  }
  //! The corners of `Bounds`.
  internal::BoxRef Corners() const {
    KAVO_CHECK(box_.has_value(), "motion_planning/spatial_data_structures/r_star_node", 170)
        << "Bounds() called for empty node";
    return *box_;
  }

  //! Appends an entry, becomes its child's parent, and expands the box by the entry's. Whether that grew.
  bool AddEntry(Entry entry) {
    const internal::BoxRef box = entry.Box();
    rows_.Append(box, max_entries_);
    const bool grew = box_.Include(box, rows_.Dimension());
    if (entry.child) {
      entry.child->parent_ = this;
      children_.push_back(std::move(entry.child));
    } else {
      values_.push_back(std::move(*entry.value));
    }
    return grew;
  }
  bool AddEntry(std::unique_ptr<RNode> child) { return AddEntry(Entry{std::nullopt, {}, std::move(child)}); }

  //! Takes an entry out; a value's box is copied to `corners`. What is left behind is good only for `Clear`.
  Entry ReleaseEntry(int position, double* corners) {
    if (!IsLeaf()) {
      return {std::nullopt, {}, std::move(children_[static_cast<std::size_t>(position)])};
    }
    double* const max = corners + rows_.Dimension();
    rows_.Copy(position, corners, max);
    return {std::move(values_[static_cast<std::size_t>(position)]), {corners, max}, nullptr};
  }

  //! Drops all entries and the box.
  void Clear() {
    rows_.Clear();
    values_.clear();
    children_.clear();
    box_.reset();
  }
  //! Makes an empty node a leaf.
  void BecomeLeaf() { level_ = 0; }

  //! Fits the box to the entries again.
  void RebuildBox() {
    internal::EntryBuffer<double> corners(2 * rows_.Dimension());
    double* const max = corners.data() + rows_.Dimension();
    rows_.Union(corners.data(), max);
    box_.Set({corners.data(), max}, rows_.Dimension());
  }

  //! Tells the parent, if there is one, what this node's box is now.
  void UpdateInParent() {
    if (parent_) {
      int position = 0;
      while ((*parent_)->Child(position) != this) {
        ++position;
      }
      (*parent_)->rows_.Replace(position, *box_);
    }
  }

 private:
  internal::BoxRows rows_;
  std::uint32_t level_;
  int max_entries_;
  std::vector<std::unique_ptr<RNode>> children_;
  std::vector<T> values_;
  internal::NodeBox box_;
  std::optional<RNode*> parent_;
};

}  // namespace kavo::planning
