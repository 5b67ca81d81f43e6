#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "kavo/motion_planning/spatial_data_structures/entry_splitter.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! The split of the R*-tree (Beckmann, Kriegel, Schneider, Seeger, 1990). A distribution is a place to cut
//! the sorted list of boxes in two such that both parts reach the minimum. The axis is the one with the
//! smallest sum of margins over all distributions, the cut along it the one with least overlap (the first of
//! several).
class KAVO_EXPORT EntrySplitterStar : public EntrySplitter {
 public:
  //! \param dimension Dimension of the boxes.
  //! \param min_entries_per_node Least size of a group.
  //! \param max_entries_per_node One less than the number of boxes in a split.
  EntrySplitterStar(int dimension, int min_entries_per_node, int max_entries_per_node);

  std::pair<std::vector<int>, std::vector<int>> SplitEntries(
      const std::vector<BoundingBox>& boxes) const override;
  //! `SplitEntries` without boxes as objects.
  std::pair<std::vector<int>, std::vector<int>> SplitRows(const internal::BoxRows& boxes) const override;

  //! The axis of the least total margin; of equal ones the first.
  int ChooseSplitAxis(const std::vector<BoundingBox>& boxes) const;
  //! Sum of margins with the boxes sorted by their lower and by their upper coordinate.
  double TotalMargin(const std::vector<BoundingBox>& boxes, int axis) const;
  //! Sum of the margins of both groups over all distributions of a sorted list.
  double MarginAcrossDistributions(const std::vector<BoundingBox>& boxes) const;
  //! Size of the first group.
  int ChooseSplitIndex(const std::vector<BoundingBox>& boxes) const;

 private:
  int dimension_;
  int min_entries_per_node_;
  // Only what it leaves of places to cut counts, below.
  [[maybe_unused]] int max_entries_per_node_;
  int num_distributions_;
};

//! \copydoc EntrySplitterStar::EntrySplitterStar
KAVO_EXPORT std::shared_ptr<EntrySplitter> CreateEntrySplitterStar(int dimension, int min_entries_per_node,
                                                                   int max_entries_per_node);

}  // namespace kavo::planning
