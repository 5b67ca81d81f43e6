#pragma once

#include <utility>
#include <vector>

#include "kavo/motion_planning/spatial_data_structures/bounding_box.h"
#include "kavo/util/export.h"

namespace kavo::planning {

namespace internal {
class BoxRows;
}  // namespace internal

//! A way to split a node that holds one entry too many. Immutable.
class KAVO_EXPORT EntrySplitter {
 public:
  virtual ~EntrySplitter();

  //! The positions of the boxes that go to the first and to the second node: each position once.
  virtual std::pair<std::vector<int>, std::vector<int>> SplitEntries(
      const std::vector<BoundingBox>& boxes) const = 0;

  //! The same for the boxes of a node as it holds them. Default: `SplitEntries` of a copy.
  virtual std::pair<std::vector<int>, std::vector<int>> SplitRows(const internal::BoxRows& boxes) const;

 protected:
  EntrySplitter() = default;
  EntrySplitter(const EntrySplitter&) = default;             //!< For derived classes.
  EntrySplitter& operator=(const EntrySplitter&) = default;  //!< For derived classes.
};

}  // namespace kavo::planning
