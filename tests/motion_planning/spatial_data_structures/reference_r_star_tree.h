#pragma once

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "kavo/motion_planning/spatial_data_structures/entry_splitter_basic.h"
#include "kavo/motion_planning/spatial_data_structures/r_star_tree_config.h"
#include "kavo/util/sort.h"
#include "tests/motion_planning/spatial_data_structures/boxes.h"

namespace kavo::testing {

//! A reference of insertion into an R*-tree, with boxes as objects, held by the nodes alone.
class ReferenceRStarTree {
 public:
  using Box = planning::BoundingBox;
  struct Node;
  struct Entry {
    Box GetBox() const { return child ? *child->box : *box; }

    std::optional<Box> box;
    int value = -1;
    std::shared_ptr<Node> child;
  };
  struct Node {
    std::vector<Box> Boxes() const {
      std::vector<Box> boxes;
      for (const Entry& entry : entries) {
        boxes.push_back(entry.GetBox());
      }
      return boxes;
    }
    void Add(const Entry& entry) {
      entries.push_back(entry);
      if (entry.child) {
        entry.child->parent = this;
      }
      box = Box(Boxes());
    }

    std::optional<Box> box;
    unsigned level = 0;
    std::vector<Entry> entries;
    Node* parent = nullptr;
  };

  explicit ReferenceRStarTree(const planning::RStarTreeConfig& config_in)
      : config(config_in), root(std::make_shared<Node>()) {}

  void Insert(const Box& box, int value) {
    reinserted.assign(root->level, false);
    Node* node = root.get();
    while (node->level > 0) {
      node = Select(
          *node, box,
          node->level == 1 ? config.leaf_parent_selection_metric : config.internal_node_selection_metric);
    }
    InsertCore(node, {box, value, nullptr});
  }

  const Node* ApproxLeaf(const Box& box) const {
    const Node* node = root.get();
    while (node->level > 0) {
      node = Select(*node, box, config.approx_nearest_neighbor_selection_metric);
    }
    return node;
  }

  planning::RStarTreeConfig config;
  std::shared_ptr<Node> root;
  std::vector<bool> reinserted;
  int num_root_splits_amid_reinsertion = 0;

 private:
  void InsertCore(Node* node, const Entry& entry) {
    node->Add(entry);
    std::shared_ptr<Node> sibling = HandleOverflow(node);
    for (; node->parent != nullptr; node = node->parent) {
      node->parent->box = Box(node->parent->Boxes());
      if (sibling) {
        node->parent->Add({std::nullopt, -1, sibling});
        sibling = HandleOverflow(node->parent);
      }
    }
    if (sibling) {
      auto old_root = std::exchange(root, std::make_shared<Node>());
      root->level = old_root->level + 1;
      root->Add({std::nullopt, -1, old_root});
      root->Add({std::nullopt, -1, sibling});
      num_root_splits_amid_reinsertion +=
          static_cast<int>(std::count(reinserted.begin(), reinserted.end(), true));
      reinserted.push_back(false);
    }
  }

  std::shared_ptr<Node> HandleOverflow(Node* node) {
    if (static_cast<int>(node->entries.size()) <= config.max_entries_per_node) {
      return nullptr;
    }
    if (node->parent == nullptr || config.num_entries_to_prune <= 0 || reinserted[node->level]) {
      return Split(node);
    }
    reinserted[node->level] = true;
    const Eigen::VectorXd center = node->box->Centroid();
    const std::vector<Entry> entries = std::exchange(node->entries, {});
    const auto order = util::Sort(
        entries,
        [&](const Entry& entry) {
          const Eigen::VectorXd centroid = entry.GetBox().Centroid();
          return Box(kinematics::ConfigurationLimits(center, center)).DistanceTo(centroid);
        },
        std::greater<>());
    const auto num_pruned = static_cast<std::size_t>(config.num_entries_to_prune);
    for (std::size_t i = num_pruned; i < order.size(); ++i) {
      node->Add(entries[order[i].index]);
    }
    for (std::size_t i = 0; i < num_pruned; ++i) {
      const Entry& entry = entries[order[i].index];
      Node* target = root.get();
      while (target->level != (entry.child ? entry.child->level + 1 : 0)) {
        target = Select(*target, entry.GetBox(), config.reinsertion_selection_metric);
      }
      InsertCore(target, entry);
    }
    return nullptr;
  }

  std::shared_ptr<Node> Split(Node* node) {
    const auto [first, second] =
        config.entry_splitter_type == planning::EntrySplitterType::kBasic
            ? planning::EntrySplitterBasic(config.dimension, config.min_entries_per_node)
                  .SplitEntries(node->Boxes())
            : PlainStarSplit(node->Boxes(), config.min_entries_per_node);
    const std::vector<Entry> entries = std::exchange(node->entries, {});
    auto sibling = std::make_shared<Node>();
    sibling->level = node->level;
    sibling->parent = node->parent;
    for (const int i : first) {
      node->Add(entries[static_cast<std::size_t>(i)]);
    }
    for (const int i : second) {
      sibling->Add(entries[static_cast<std::size_t>(i)]);
    }
    return sibling;
  }

  Node* Select(const Node& node, const Box& box, planning::SelectionMetric metric) const {
    const auto increase = [&](const Entry& entry) { return entry.GetBox().VolumeIncreaseToInclude(box); };
    const auto by_volume = util::Sort(node.entries, increase);
    if (metric == planning::SelectionMetric::kMinimumVolumeIncrease) {
      return node.entries[by_volume[0].index].child.get();
    }
    if (metric == planning::SelectionMetric::kMinimumCentroidDistance) {
      const auto by_distance = util::Sort(
          node.entries, [&](const Entry& entry) { return box.DistanceTo(entry.GetBox().Centroid()); });
      return node.entries[by_distance[0].index].child.get();
    }
    double best = std::numeric_limits<double>::infinity();
    double best_increase = best;
    Node* chosen = nullptr;
    const auto num_candidates = static_cast<std::size_t>(config.max_approx_cost_evals_for_selection);
    for (std::size_t k = 0; k < std::min(num_candidates, by_volume.size()); ++k) {
      const auto& [volume_increase, index] = by_volume[k];
      const Box candidate = node.entries[index].GetBox();
      const Box enlarged({candidate, box});
      double after = 0.0;
      double before = 0.0;
      for (std::size_t j = 0; j < node.entries.size(); ++j) {
        if (j != index) {
          after += enlarged.Overlap(node.entries[j].GetBox());
          before += candidate.Overlap(node.entries[j].GetBox());
        }
      }
      if (after - before < best || (after - before == best && volume_increase < best_increase)) {
        best = after - before;
        best_increase = volume_increase;
        chosen = node.entries[index].child.get();
      }
    }
    return chosen;
  }
};

}  // namespace kavo::testing
