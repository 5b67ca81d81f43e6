#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "kavo/motion_planning/spatial_data_structures/entry_splitter.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! Splits in time linear in the number of entries (after Guttman, "R-Trees", 1984): two boxes that lie far
//! apart start the groups, and each further box, in order, joins the group whose box grows less in volume,
//! until one of the groups needs all that are left to reach the minimum.
class KAVO_EXPORT EntrySplitterBasic : public EntrySplitter {
 public:
  //! \param dimension Dimension of the boxes.
  //! \param min_entries_per_node Least size of a group.
  EntrySplitterBasic(int dimension, int min_entries_per_node);

  //! At least two boxes (fatal error otherwise). In each group positions stand in the order of placement.
  std::pair<std::vector<int>, std::vector<int>> SplitEntries(
      const std::vector<BoundingBox>& boxes) const override;

  //! The two boxes that start the groups: those farthest apart along any axis. Where one box is both, it and
  //! the first box, or the first two.
  std::pair<int, int> PickSeedsLinear(const std::vector<BoundingBox>& boxes) const;
  //! Which of the boxes not yet placed is next: always the first.
  static int PickNextLinear();

 private:
  int dimension_;
  int min_entries_per_node_;
};

//! \copydoc EntrySplitterBasic::EntrySplitterBasic
KAVO_EXPORT std::shared_ptr<EntrySplitter> CreateEntrySplitterBasic(int dimension, int min_entries_per_node);

}  // namespace kavo::planning
