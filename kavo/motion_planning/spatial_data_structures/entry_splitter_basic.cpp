#include "kavo/motion_planning/spatial_data_structures/entry_splitter_basic.h"

#include <algorithm>
#include <numeric>

#include "kavo/math/constants_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

void Remove(int position, EnumeratedBoxes& boxes) {
  boxes.boxes.erase(boxes.boxes.begin() + position);
  boxes.indices.erase(boxes.indices.begin() + position);
}

}  // namespace

EntrySplitterBasic::EntrySplitterBasic(int dimension, int min_entries_per_node)
    : dimension_(dimension), min_entries_per_node_(min_entries_per_node) {}

std::pair<std::vector<int>, std::vector<int>> EntrySplitterBasic::SplitEntries(
    const std::vector<BoundingBox>& boxes) const {
  const auto [seed0, seed1] = PickSeedsLinear(boxes);
  EnumeratedBoxes remaining{boxes, std::vector<int>(boxes.size())};
  std::iota(remaining.indices.begin(), remaining.indices.end(), 0);
  std::pair<std::vector<int>, std::vector<int>> groups{{seed0}, {seed1}};
  std::pair<BoundingBox, BoundingBox> bounds{boxes[static_cast<std::size_t>(seed0)],
                                             boxes[static_cast<std::size_t>(seed1)]};
  Remove(std::max(seed0, seed1), remaining);
  Remove(std::min(seed0, seed1), remaining);
  while (!remaining.boxes.empty()) {
    const int next = PickNextLinear();
    DistributeIndexAndUpdateBounds(remaining.indices[static_cast<std::size_t>(next)],
                                   remaining.boxes[static_cast<std::size_t>(next)], groups, bounds);
    Remove(next, remaining);
    AddAllRemainingIndicesIfNeeded(min_entries_per_node_, remaining, groups.first);
    AddAllRemainingIndicesIfNeeded(min_entries_per_node_, remaining, groups.second);
  }
  return groups;
}

std::pair<int, int> EntrySplitterBasic::PickSeedsLinear(const std::vector<BoundingBox>& boxes) const {
  KAVO_CHECK(boxes.size() >= 2, "motion_planning/spatial_data_structures/entry_splitter_basic", 221)
      << "At least two boxes must be provided to pick seeds.";
  double best = -math::kInf;
  std::pair<int, int> seeds{0, 1};
  for (int axis = 0; axis < dimension_; ++axis) {
    const auto [pair, separation] = GetMaximallySeparatedIndices(boxes, axis);
    if (separation > best) {
      best = separation;
      seeds = pair;
    }
  }
  if (seeds.first != seeds.second) {
    return seeds;
  }
  KAVO_LOG(LogLevel::kInfo) << "Ill-formed set for PickSeedsLinear. Falling back to arbitrary seed.";
  return seeds.first == 0 ? std::pair(0, 1) : std::pair(seeds.first, 0);
}

int EntrySplitterBasic::PickNextLinear() { return 0; }

std::shared_ptr<EntrySplitter> CreateEntrySplitterBasic(int dimension, int min_entries_per_node) {
  return std::make_shared<EntrySplitterBasic>(dimension, min_entries_per_node);
}

}  // namespace kavo::planning
