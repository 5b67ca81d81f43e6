#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "kavo/math/constants_internal.h"

namespace kavo::internal {

//! A bound in single precision, cut to its range. Rounding keeps order (a <= b gives Rounded(a) <=
//! Rounded(b)), so boxes that overlap still overlap when both are rounded, whatever the direction.
inline float Rounded(double bound) { return static_cast<float>(std::min(std::max(bound, -1.0e38), 1.0e38)); }

//! A box along the axes.
struct Bounds {
  double middle(int axis) const { return 0.5 * low[axis] + 0.5 * high[axis]; }

  double low[3];
  double high[3];
};

//! Eight boxes along the axes that enclose eight parts of something.
//!
//! Single precision halves the memory that a query reads.
struct alignas(64) BoundsGroup {
  static constexpr std::size_t kSize = 8;

  //! Every lane empty: touched by nothing.
  BoundsGroup();

  //! Puts a box into a lane.
  void enclose(std::size_t lane, const Bounds& bounds);

  float low[3][kSize];
  float high[3][kSize];
  //! Lane i encloses item `first` + i in a leaf, and group `first` + i elsewhere.
  std::uint32_t first = 0;
  bool leaf = true;
};

//! Where places are along Hilbert's curve through a box.
class CurveOrder {
 public:
  explicit CurveOrder(const Bounds& bounds);

  //! 30 bits.
  std::uint64_t keyOf(const Bounds& bounds) const;

  //! Sorts by the upper half; equal ones stay as they are.
  static void Sort(std::vector<std::uint64_t>& keys);

 private:
  static constexpr std::uint32_t kNumBits = 10;
  double low_[3];
  double scale_[3];
};

//! A tree of boxes around items.
struct BoundsTree {
  BoundsTree() = default;
  //! Cuts the items into lists of about equal length, neighbours together, again and again.
  //! \param items At least one.
  explicit BoundsTree(const std::vector<Bounds>& items);

  //! Takes the items in the order of a curve through all of space that keeps neighbours together, eight by
  //! eight: for very many, in a tenth of the time. After Kamel and Faloutsos ("On packing R-trees", 1993).
  //! \param count At least one.
  //! \param bounds_of `Bounds(std::size_t item)`.
  template <class BoundsOf>
  BoundsTree(std::size_t count, const BoundsOf& bounds_of) {
    Bounds middles{{math::kInf, math::kInf, math::kInf}, {-math::kInf, -math::kInf, -math::kInf}};
    for (std::size_t i = 0; i < count; ++i) {
      const Bounds bounds = bounds_of(i);
      for (int axis = 0; axis < 3; ++axis) {
        middles.low[axis] = std::min(middles.low[axis], bounds.middle(axis));
        middles.high[axis] = std::max(middles.high[axis], bounds.middle(axis));
      }
    }
    const CurveOrder order(middles);
    std::vector<std::uint64_t> keys(count);
    for (std::size_t i = 0; i < count; ++i) {
      keys[i] = order.keyOf(bounds_of(i)) << 32 | i;
    }
    CurveOrder::Sort(keys);
    items.resize(count);
    startLevels();
    for (std::size_t place = 0; place < count; ++place) {
      items[place] = static_cast<std::uint32_t>(keys[place]);
      groups[firstLeaf() + place / BoundsGroup::kSize].enclose(place % BoundsGroup::kSize,
                                                               bounds_of(items[place]));
    }
    finishLevels();
  }

  //! Whether `is_found(place)` for any item whose box overlaps another. Ends with the first.
  template <class IsFound>
  bool findOverlapping(const Bounds& bounds, const IsFound& is_found) const {
    return findOverlapping(
        bounds,
        [](const void* context, std::uint32_t place) {
          return (*static_cast<const IsFound*>(context))(place);
        },
        &is_found);
  }

  //! The root first; empty without items.
  std::vector<BoundsGroup> groups;
  //! Which item is in which place of the leaves: those of one leaf lie side by side.
  std::vector<std::uint32_t> items;

 private:
  std::size_t firstLeaf() const {
    return groups.size() - (items.size() + BoundsGroup::kSize - 1) / BoundsGroup::kSize;
  }
  // Makes the groups of all levels, the root first, around nothing yet.
  void startLevels();
  // Fits those above the leaves.
  void finishLevels();

  bool findOverlapping(const Bounds& bounds, bool (*is_found)(const void*, std::uint32_t),
                       const void* context) const;
};

//! The box around all boxes of a group, as it stands in the group above.
struct GroupBounds {
  explicit GroupBounds(const BoundsGroup& group);

  //! The sum of its sides.
  double extent() const;
  void put(BoundsGroup& parent, std::size_t lane) const;

  float low[3];
  float high[3];
};

//! How near to a point the lanes of a group may be, as computed distances go: bounds are taken for wider than
//! they are by more than their own rounding and that of a distance. Minus infinity where the point may be
//! inside, infinity for an empty lane.
void FindLeastDistances(const BoundsGroup& group, const double* point,
                        double (&distances)[BoundsGroup::kSize]);

//! Goes through the items of a tree that may be nearest to a point: the nearest boxes of a group first, and
//! only those that may hold an item as near as `nearest`.
//! \param nearest Of the distances that are known so far.
//! \param consider `void(std::uint32_t place, double& nearest)`, told what is in a leaf.
template <class Consider>
void FindNearest(const BoundsGroup* groups, const double* point, double& nearest, const Consider& consider,
                 std::size_t group = 0) {
  const BoundsGroup& bounds = groups[group];
  double distances[BoundsGroup::kSize];
  FindLeastDistances(bounds, point, distances);
  struct Part {
    double distance;
    std::uint32_t index;
  };
  Part parts[BoundsGroup::kSize];
  std::size_t num_parts = 0;
  for (std::uint32_t lane = 0; lane < BoundsGroup::kSize; ++lane) {
    if (!(distances[lane] > nearest) && distances[lane] < math::kInf) {
      std::size_t place = num_parts++;
      for (; place > 0 && parts[place - 1].distance > distances[lane]; --place) {
        parts[place] = parts[place - 1];
      }
      parts[place] = {distances[lane], bounds.first + lane};
    }
  }
  for (std::size_t i = 0; i < num_parts && !(parts[i].distance > nearest); ++i) {
    if (bounds.leaf) {
      consider(parts[i].index, nearest);
    } else {
      FindNearest(groups, point, nearest, consider, parts[i].index);
    }
  }
}

}  // namespace kavo::internal
