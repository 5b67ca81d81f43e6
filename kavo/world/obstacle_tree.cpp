#include "kavo/world/obstacle_tree_internal.h"

#include <algorithm>

namespace kavo::internal {

namespace {

constexpr auto kSize = static_cast<std::uint32_t>(BoundsGroup::kSize);

bool IsFree(const BoundsGroup& group, std::uint32_t lane) { return group.low[0][lane] > group.high[0][lane]; }

double ExtentOf(const BoundsGroup& group) {
  const GroupBounds bounds(group);
  return bounds.low[0] <= bounds.high[0] ? bounds.extent() : 0.0;
}

// What of a lane stands where a box around items does.
GroupBounds LaneOf(const BoundsGroup& group, std::uint32_t lane) {
  GroupBounds bounds(group);
  for (int axis = 0; axis < 3; ++axis) {
    bounds.low[axis] = group.low[axis][lane];
    bounds.high[axis] = group.high[axis][lane];
  }
  return bounds;
}

double Growth(const GroupBounds& around, const Bounds& bounds) {
  double growth = 0.0;
  for (int axis = 0; axis < 3; ++axis) {
    growth += std::max(static_cast<double>(around.low[axis]) - bounds.low[axis], 0.0) +
              std::max(bounds.high[axis] - static_cast<double>(around.high[axis]), 0.0);
  }
  return growth;
}

}  // namespace

ObstacleTree::ObstacleTree(const std::vector<Bounds>& items) : num_items_at_first_(items.size()) {
  if (items.empty()) {
    return;
  }
  groups_.resize(1);
  parents_.resize(1);
  copy(BoundsTree(items), 0, 0);
  for (const BoundsGroup& group : groups_) {
    extent_ += group.leaf ? ExtentOf(group) : 0.0;
  }
  expected_extent_ = extent_;
  extent_of_item_ = extent_ / static_cast<double>(items.size());
}

// Room for more in every group.
void ObstacleTree::copy(const BoundsTree& tree, std::uint32_t from, std::uint32_t to) {
  const BoundsGroup& source = tree.groups[from];
  if (source.leaf) {
    addPlaces(to);
  } else {
    addGroups(to);
  }
  const std::uint32_t first = groups_[to].first;
  for (std::uint32_t lane = 0; lane < kSize; ++lane) {
    if (!IsFree(source, lane)) {
      LaneOf(source, lane).put(groups_[to], lane);
      if (source.leaf) {
        items_[first + lane] = tree.items[source.first + lane];
      } else {
        copy(tree, source.first + lane, first + lane);
      }
    }
  }
}

void ObstacleTree::addGroups(std::uint32_t parent) {
  groups_[parent].leaf = false;
  groups_[parent].first = static_cast<std::uint32_t>(groups_.size());
  BoundsGroup unused;
  unused.first = kNone;
  groups_.resize(groups_.size() + kSize, unused);
  parents_.resize(groups_.size(), parent);
}

void ObstacleTree::addPlaces(std::uint32_t leaf) {
  groups_[leaf].first = static_cast<std::uint32_t>(leaves_.size());
  leaves_.resize(leaves_.size() + kSize, leaf);
  items_.resize(leaves_.size(), kNone);
}

std::uint32_t ObstacleTree::freeLane(std::uint32_t group) const {
  std::uint32_t lane = 0;
  while (lane < kSize && !IsFree(groups_[group], lane)) {
    ++lane;
  }
  return lane;
}

double ObstacleTree::growth(std::uint32_t group, const Bounds& bounds) const {
  return Growth(GroupBounds(groups_[group]), bounds);
}

std::uint32_t ObstacleTree::findLeaf(const Bounds& bounds) {
  if (groups_.empty()) {
    groups_.resize(1);
    parents_.resize(1);
    addPlaces(0);
  }
  // A walk over the tree has room for seven groups of each level.
  constexpr int kLargestDepth = 16;
  std::uint32_t group = 0;
  for (int depth = 0; !groups_[group].leaf; ++depth) {
    if (depth == kLargestDepth) {
      return kNone;
    }
    std::uint32_t best = 0;
    double least_growth = std::numeric_limits<double>::infinity();
    for (std::uint32_t lane = 0; lane < kSize; ++lane) {
      if (!IsFree(groups_[group], lane)) {
        const double growth = Growth(LaneOf(groups_[group], lane), bounds);
        if (growth < least_growth) {
          least_growth = growth;
          best = lane;
        }
      }
    }
    group = groups_[group].first + best;
  }
  return group;
}

ObstacleTree::Split ObstacleTree::split(std::uint32_t leaf) {
  std::uint32_t other = kNone;
  if (leaf != 0) {
    const std::uint32_t parent = parents_[leaf];
    for (std::uint32_t lane = 0; lane < kSize; ++lane) {
      const std::uint32_t child = groups_[parent].first + lane;
      if (IsFree(groups_[parent], lane) && groups_[child].leaf) {
        other = child;
      }
    }
  }
  if (other == kNone) {
    // One level more: two leaves below, of which the first has the places of this one.
    const BoundsGroup before = groups_[leaf];
    addGroups(leaf);
    const std::uint32_t parent = leaf;
    leaf = groups_[parent].first;
    other = leaf + 1;
    groups_[leaf] = before;
    for (std::uint32_t lane = 0; lane < kSize; ++lane) {
      leaves_[before.first + lane] = leaf;
      GroupBounds(BoundsGroup()).put(groups_[parent], lane);
    }
    GroupBounds(before).put(groups_[parent], 0);
  }
  if (groups_[other].first == kNone) {
    addPlaces(other);
  }
  const BoundsGroup& full = groups_[leaf];
  const GroupBounds around(full);
  int widest = 0;
  for (int axis = 1; axis < 3; ++axis) {
    if (around.high[axis] - around.low[axis] > around.high[widest] - around.low[widest]) {
      widest = axis;
    }
  }
  std::array<std::uint32_t, kSize> lanes{};
  for (std::uint32_t lane = 0; lane < kSize; ++lane) {
    lanes[lane] = lane;
  }
  std::sort(lanes.begin(), lanes.end(), [&](std::uint32_t a, std::uint32_t b) {
    const float middle_a = 0.5f * full.low[widest][a] + 0.5f * full.high[widest][a];
    const float middle_b = 0.5f * full.low[widest][b] + 0.5f * full.high[widest][b];
    return middle_a != middle_b ? middle_a < middle_b : a < b;
  });
  Split halves{leaf, other, {}};
  for (std::uint32_t i = 0; i < kSize / 2; ++i) {
    const std::uint32_t lane = lanes[kSize / 2 + i];
    halves.lanes[i] = lane;
    put(groups_[other].first + lane, LaneOf(groups_[leaf], lane));
    put(groups_[leaf].first + lane, GroupBounds(BoundsGroup()));
  }
  return halves;
}

void ObstacleTree::move(std::uint32_t place, const Bounds& bounds) {
  BoundsGroup rounded;
  rounded.enclose(0, bounds);
  put(place, LaneOf(rounded, 0));
}

void ObstacleTree::remove(std::uint32_t place) {
  ++num_edits_;
  put(place, GroupBounds(BoundsGroup()));
}

void ObstacleTree::put(std::uint32_t place, const GroupBounds& bounds) {
  std::uint32_t group = leaves_[place];
  extent_ -= ExtentOf(groups_[group]);
  bounds.put(groups_[group], place - groups_[group].first);
  extent_ += ExtentOf(groups_[group]);
  while (group != 0) {
    const std::uint32_t parent = parents_[group];
    GroupBounds(groups_[group]).put(groups_[parent], group - groups_[parent].first);
    group = parent;
  }
}

bool ObstacleTree::isPoor() const {
  constexpr double kLargestGrowth = 1.25;
  constexpr std::size_t kFewEdits = 64;
  return extent_ > kLargestGrowth * expected_extent_ || num_edits_ > num_items_at_first_ + kFewEdits;
}

}  // namespace kavo::internal
