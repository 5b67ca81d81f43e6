#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "kavo/world/bounds_tree_internal.h"

namespace kavo::internal {

//! A tree of boxes around items that come, go and move. Each leaf has eight places for items, some of them
//! free.
//!
//! What is put in goes down to where boxes grow least, as in Guttman's R-tree ("A dynamic index structure for
//! spatial searching", 1984); where a leaf is full one beside or below it takes half of its items.
class ObstacleTree {
 public:
  static constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

  ObstacleTree() = default;
  explicit ObstacleTree(const std::vector<Bounds>& items);

  //! The root first; empty before there is an item.
  const std::vector<BoundsGroup>& groups() const { return groups_; }
  //! Places are numbered from 0 on.
  std::size_t numPlaces() const { return leaves_.size(); }

  //! Puts an item in.
  //! \param moved `void(std::uint32_t from, std::uint32_t to)`: called for items that give way to another place.
  //! \return Its place; empty, and the tree of no use any more, where it would become too deep.
  template <class Moved>
  std::optional<std::uint32_t> insert(const Bounds& bounds, const Moved& moved) {
    std::uint32_t leaf = findLeaf(bounds);
    if (leaf == kNone) {
      return std::nullopt;
    }
    if (freeLane(leaf) == BoundsGroup::kSize) {
      const Split halves = split(leaf);
      for (const std::uint32_t lane : halves.lanes) {
        moved(groups_[halves.from].first + lane, groups_[halves.to].first + lane);
      }
      leaf = growth(halves.from, bounds) <= growth(halves.to, bounds) ? halves.from : halves.to;
    }
    const std::uint32_t place = groups_[leaf].first + freeLane(leaf);
    ++num_edits_;
    expected_extent_ += extent_of_item_;
    move(place, bounds);
    return place;
  }
  void move(std::uint32_t place, const Bounds& bounds);
  void remove(std::uint32_t place);

  //! Whether it is time to make it anew: by then every query looks at that much more, or as much was edited
  //! as there was to begin with.
  bool isPoor() const;

  //! Which item is in which place of a tree that was made of items; `kNone` for a free place.
  std::vector<std::uint32_t> takeItems() { return std::move(items_); }

 private:
  // A leaf that gave half of its items to another, each in the lane where it was.
  struct Split {
    std::uint32_t from;
    std::uint32_t to;
    std::array<std::uint32_t, BoundsGroup::kSize / 2> lanes;
  };

  void copy(const BoundsTree& tree, std::uint32_t from, std::uint32_t to);
  void addGroups(std::uint32_t parent);
  void addPlaces(std::uint32_t leaf);
  // `BoundsGroup::kSize` for none.
  std::uint32_t freeLane(std::uint32_t group) const;
  double growth(std::uint32_t group, const Bounds& bounds) const;
  // `kNone` where it would be too deep.
  std::uint32_t findLeaf(const Bounds& bounds);
  Split split(std::uint32_t leaf);
  void put(std::uint32_t place, const GroupBounds& bounds);

  std::vector<BoundsGroup> groups_;
  // The group above each group, the leaf of each place.
  std::vector<std::uint32_t> parents_;
  std::vector<std::uint32_t> leaves_;
  std::vector<std::uint32_t> items_;
  // Sum of the sizes of all leaves, which tells how good the tree is; what it was when it was made, and what
  // an item more may add.
  double extent_ = 0.0;
  double expected_extent_ = 0.0;
  double extent_of_item_ = 0.0;
  std::size_t num_edits_ = 0;
  std::size_t num_items_at_first_ = 0;
};

}  // namespace kavo::internal
