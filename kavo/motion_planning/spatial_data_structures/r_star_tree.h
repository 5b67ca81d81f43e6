#pragma once

#include <hwy/cache_control.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "kavo/math/constants_internal.h"
#include "kavo/motion_planning/spatial_data_structures/child_node_selector_internal.h"
#include "kavo/motion_planning/spatial_data_structures/entry_splitter_basic.h"
#include "kavo/motion_planning/spatial_data_structures/entry_splitter_star.h"
#include "kavo/motion_planning/spatial_data_structures/r_star_node.h"
#include "kavo/motion_planning/spatial_data_structures/r_star_tree_config.h"
#include "kavo/util/log_message.h"
#include "kavo/util/sort.h"

// Not installed: how the index is laid out inside.

namespace kavo::planning {

//! An R*-tree (Beckmann, Kriegel, Schneider, Seeger, 1990): boxes with values, grouped into nodes by
//! nearness, and nodes grouped again up to one root. It only grows.
//!
//! Boxes must be finite, and of the configured dimension; neither is checked. Queries change nothing.
template <typename T>
class RStarTree {
 public:
  using Node = RNode<T>;
  using Entry = typename Node::Entry;

  //! What a search has found so far.
  struct Nearest {
    double distance = math::kInf;
    //! What `distance` is the root of, or more: a rounded root stands for several squares.
    double squared_distance = math::kInf;
    const Node* leaf = nullptr;
    int position = 0;
    //! Entries of leaves that were looked at.
    int num_examined = 0;
  };

  explicit RStarTree(const RStarTreeConfig& config)
      : config_(config),
        splitter_(InitializeEntrySplitter(config.entry_splitter_type)),
        selector_(config.max_approx_cost_evals_for_selection),
        root_(MakeNode(0)) {}

  const Node& Root() const { return *root_; }

  //! Drops all values. Cannot fail.
  void Clear() {
    root_->Clear();
    root_->BecomeLeaf();
    reinserted_.clear();
  }

  void Insert(const kinematics::ConfigurationLimits& limits, const T& value) {
    Insert({limits.Min().data(), limits.Max().data()}, value);
  }
  //! An exception, `std::bad_alloc` above all, leaves the tree empty: an insertion moves entries about, and
  //! those on their way would be lost.
  void Insert(internal::BoxRef box, const T& value) {
    try {
      reinserted_.assign(root_->Level(), false);
      tight_ = true;
      Node* node = root_.get();
      while (!node->IsLeaf()) {
        node = Descend(*node, box,
                       node->Level() == 1 ? config_.leaf_parent_selection_metric
                                          : config_.internal_node_selection_metric);
      }
      InsertCore(*node, Entry{value, box, nullptr});
    } catch (...) {
      Clear();
      throw;
    }
  }

  //! The value nearest to a point; of several the first met. There must be a value.
  const T& NearestNeighbor(const double* point) const {
    Nearest nearest = SearchLeaf(point, *SelectApproxNearestLeafNode({point, point}));
    nearest.num_examined = 0;
    RecursiveNearestNeighbor(point, *root_, nearest);
    return nearest.leaf->Value(nearest.position);
  }

  //! The value nearest to a point among those of one leaf, near the point. There must be a value.
  const T& ApproxNearestNeighbor(const double* point) const {
    const Nearest nearest = SearchLeaf(point, *SelectApproxNearestLeafNode({point, point}));
    return nearest.leaf->Value(nearest.position);
  }

  const Node* SelectApproxNearestLeafNode(internal::BoxRef box) const {
    const Node* node = root_.get();
    while (!node->IsLeaf()) {
      node = Descend(*node, box, config_.approx_nearest_neighbor_selection_metric);
    }
    return node;
  }

  //! Looks for values below `node` that are strictly nearer than the best found so far.
  void RecursiveNearestNeighbor(const double* point, const Node& node, Nearest& nearest) const {
    if (nearest.distance == 0.0) {
      return;
    }
    internal::EntryBuffer<int> positions(node.NumEntries());
    internal::EntryBuffer<double> squared_distances(node.NumEntries());
    // Entries that are no nearer now never will be: the best only shrinks.
    const int num_nearer =
        node.Boxes().Nearer(point, nearest.squared_distance, positions.data(), squared_distances.data());
    if (node.IsLeaf()) {
      nearest.num_examined += node.NumEntries();
      for (int i = 0; i < num_nearer; ++i) {
        Improve(node, positions[i], squared_distances[i], nearest);
      }
      return;
    }
    // Few are left, so insertion sorts them fast.
    for (int i = 1; i < num_nearer; ++i) {
      const int position = positions[i];
      const double squared_distance = squared_distances[i];
      int place = i;
      for (; place > 0 && squared_distances[place - 1] > squared_distance; --place) {
        positions[place] = positions[place - 1];
        squared_distances[place] = squared_distances[place - 1];
      }
      positions[place] = position;
      squared_distances[place] = squared_distance;
    }
    // Nodes lie anywhere in memory: each is prefetched while the one before it is searched.
    for (int i = 0; i < num_nearer; ++i) {
      hwy::Prefetch(node.Child(positions[i]));
    }
    for (int i = 0; i < num_nearer && squared_distances[i] < nearest.squared_distance; ++i) {
      if (i + 1 < num_nearer) {
        node.Child(positions[i + 1])->Boxes().Prefetch();
      }
      RecursiveNearestNeighbor(point, *node.Child(positions[i]), nearest);
    }
  }

 private:
  std::unique_ptr<Node> MakeNode(std::uint32_t level) const {
    // One entry more, as long as that is a number.
    const int max_entries = std::min(config_.max_entries_per_node, std::numeric_limits<int>::max() - 1) + 1;
    return std::make_unique<Node>(level, config_.dimension, max_entries, std::vector<Entry>{}, std::nullopt);
  }

  std::shared_ptr<EntrySplitter> InitializeEntrySplitter(EntrySplitterType type) const {
    switch (type) {
      case EntrySplitterType::kBasic:
        return CreateEntrySplitterBasic(config_.dimension, config_.min_entries_per_node);
      case EntrySplitterType::kStar:
        return CreateEntrySplitterStar(config_.dimension, config_.min_entries_per_node,
                                       config_.max_entries_per_node);
    }
    KAVO_LOG(LogLevel::kCritical) << "Undefined EntrySplitterImpl";
    return nullptr;
  }

  // A child of the node in any case: where no cost compares (volumes overflow, or the metric is unknown) any
  // child is as good as another, as far as answers go.
  Node* Descend(const Node& node, internal::BoxRef box, SelectionMetric metric) const {
    const int position = selector_.SelectChildNode(node.Boxes(), box, metric);
    return node.Child(position == ChildNodeSelector::kNone ? 0 : position);
  }

  // Adds the entry to the node and mends the tree above it.
  void InsertCore(Node& node, Entry entry) {
    const bool grew = node.AddEntry(std::move(entry));
    std::unique_ptr<Node> sibling;
    if (node.NumEntries() > config_.max_entries_per_node) {
      sibling = HandleOverflow(node);
    } else if (!grew && tight_) {
      return;
    } else {
      node.UpdateInParent();
    }
    auto [top, top_sibling] = AdjustTree(node, std::move(sibling));
    if (top_sibling) {
      CreateNewRoot(std::move(top_sibling));
    }
  }

  // Makes room in a node with one entry too many; the new sibling if that took a split.
  std::unique_ptr<Node> HandleOverflow(Node& node) {
    if (node.Parent().has_value() && config_.num_entries_to_prune > 0 && !reinserted_[node.Level()]) {
      reinserted_[node.Level()] = true;
      Prune(node);
      return nullptr;
    }
    return SplitNode(node);
  }

  // Takes out the entries farthest from the middle of the node, and inserts them anew.
  void Prune(Node& node) {
    // Until the outermost insertion ends, boxes above this node may be wider than their entries.
    tight_ = false;
    const int num_entries = node.NumEntries();
    const std::size_t num_corners = 2 * static_cast<std::size_t>(config_.dimension);
    std::vector<double> centroid(num_corners / 2);
    for (std::size_t axis = 0; axis < centroid.size(); ++axis) {
      const auto [min, max] = node.Corners();
      centroid[axis] = min[axis] + 0.5 * (max[axis] - min[axis]);
    }
    std::vector<double> distances(static_cast<std::size_t>(node.Boxes().PaddedSize()));
    node.Boxes().CentroidDistances({centroid.data(), centroid.data()}, distances.data());
    distances.resize(static_cast<std::size_t>(num_entries));
    const auto order = util::Sort(
        distances, [](double distance) { return distance; }, std::greater<>());

    std::vector<double> corners(num_corners * order.size());
    std::vector<Entry> entries;
    entries.reserve(order.size());
    for (const util::IndexedValue& item : order) {
      entries.push_back(
          node.ReleaseEntry(static_cast<int>(item.index), corners.data() + num_corners * entries.size()));
    }
    node.Clear();
    const std::size_t num_pruned = static_cast<std::size_t>(config_.num_entries_to_prune);
    for (std::size_t i = num_pruned; i < entries.size(); ++i) {
      node.AddEntry(std::move(entries[i]));
    }
    node.UpdateInParent();
    for (std::size_t i = 0; i < num_pruned; ++i) {
      Node& target = SelectNodeForReinsertion(entries[i]);
      InsertCore(target, std::move(entries[i]));
    }
  }

  Node& SelectNodeForReinsertion(const Entry& entry) const {
    const std::uint32_t level = entry.child ? entry.child->Level() + 1 : 0;
    Node* node = root_.get();
    while (node->Level() != level) {
      node = Descend(*node, entry.Box(), config_.reinsertion_selection_metric);
    }
    return *node;
  }

  // Splits the node in two and returns the second part, which is nobody's child yet.
  std::unique_ptr<Node> SplitNode(Node& node) {
    KAVO_CHECK(splitter_ != nullptr, "motion_planning/spatial_data_structures/r_star_tree", 240)
        << "A tree without an entry splitter cannot split nodes.";
    const auto [kept, moved] = splitter_->SplitRows(node.Boxes());
    const std::size_t num_corners = 2 * static_cast<std::size_t>(config_.dimension);
    std::vector<double> corners(num_corners * (kept.size() + moved.size()));
    std::vector<Entry> entries;
    entries.reserve(kept.size() + moved.size());
    for (const std::vector<int>* group : {&kept, &moved}) {
      for (const int position : *group) {
        entries.push_back(node.ReleaseEntry(position, corners.data() + num_corners * entries.size()));
      }
    }
    node.Clear();
    std::unique_ptr<Node> sibling = MakeNode(node.Level());
    for (std::size_t i = 0; i < entries.size(); ++i) {
      (i < kept.size() ? node : *sibling).AddEntry(std::move(entries[i]));
    }
    if (node.Parent().has_value()) {
      sibling->SetParent(*node.Parent());
    }
    node.UpdateInParent();
    return sibling;
  }

  // Fits the boxes above a node whose entries have changed, and takes new siblings in, splitting on the way
  // up. The root, and its sibling if it was split.
  std::pair<Node*, std::unique_ptr<Node>> AdjustTree(Node& start, std::unique_ptr<Node> sibling) {
    Node* node = &start;
    while (node->Parent().has_value()) {
      Node* const parent = *node->Parent();
      parent->RebuildBox();
      if (sibling) {
        parent->AddEntry(std::move(sibling));
        if (parent->NumEntries() > config_.max_entries_per_node) {
          sibling = HandleOverflow(*parent);
        }
      }
      parent->UpdateInParent();
      node = parent;
    }
    return {node, std::move(sibling)};
  }

  void CreateNewRoot(std::unique_ptr<Node> sibling) {
    std::unique_ptr<Node> old_root = std::exchange(root_, MakeNode(root_->Level() + 1));
    root_->AddEntry(std::move(old_root));
    root_->AddEntry(std::move(sibling));
    // The old root's level lies below the root now.
    reinserted_.push_back(false);
  }

  static void Improve(const Node& leaf, int position, double squared_distance, Nearest& nearest) {
    if (squared_distance < nearest.squared_distance) {
      const double distance = std::sqrt(squared_distance);
      if (distance < nearest.distance) {
        nearest.distance = distance;
        nearest.squared_distance = squared_distance;
        nearest.leaf = &leaf;
        nearest.position = position;
      }
    }
  }

  // The nearest entry of one leaf; its first one if all are infinitely far.
  Nearest SearchLeaf(const double* point, const Node& leaf) const {
    Nearest nearest;
    nearest.leaf = &leaf;
    internal::EntryBuffer<int> positions(leaf.NumEntries());
    internal::EntryBuffer<double> squared_distances(leaf.NumEntries());
    const int count = leaf.Boxes().MaybeNearest(point, positions.data(), squared_distances.data());
    for (int i = 0; i < count; ++i) {
      Improve(leaf, positions[i], squared_distances[i], nearest);
    }
    return nearest;
  }

  RStarTreeConfig config_;
  std::shared_ptr<EntrySplitter> splitter_;
  ChildNodeSelector selector_;
  std::unique_ptr<Node> root_;
  // For each level below the root: whether entries were taken out and inserted anew for the value that is
  // being inserted.
  std::vector<bool> reinserted_;
  // Whether every node's box is known to be the union of its entries' boxes.
  bool tight_ = true;
};

}  // namespace kavo::planning
