#include "kavo/motion_planning/spatial_data_structures/entry_splitter.h"

#include "kavo/motion_planning/spatial_data_structures/box_rows_internal.h"

namespace kavo::planning {

EntrySplitter::~EntrySplitter() = default;

std::pair<std::vector<int>, std::vector<int>> EntrySplitter::SplitRows(const internal::BoxRows& boxes) const {
  std::vector<BoundingBox> copies;
  copies.reserve(static_cast<std::size_t>(boxes.Size()));
  for (int i = 0; i < boxes.Size(); ++i) {
    copies.push_back(boxes.Box(i));
  }
  return SplitEntries(copies);
}

}  // namespace kavo::planning
