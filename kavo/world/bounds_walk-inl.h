// The walk over a tree of bounds, for one set of wide vectors: included anew for each of them.
#if defined(KAVO_WORLD_BOUNDS_WALK_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef KAVO_WORLD_BOUNDS_WALK_INL_H_
#undef KAVO_WORLD_BOUNDS_WALK_INL_H_
#else
#define KAVO_WORLD_BOUNDS_WALK_INL_H_
#endif

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

#include "kavo/math/lane_inline_internal.h"
#include "kavo/world/bounds_tree_internal.h"

HWY_BEFORE_NAMESPACE();
namespace kavo::internal::HWY_NAMESPACE {
namespace {

// Goes through the lanes whose bounds overlap the box from `low` to `high`, until one has been found.
// \param groups The root first.
// \param is_entered `bool(const BoundsGroup&, std::uint32_t lane)`: whether to go into a group of the tree.
// \param is_found The same of an item.
// \return Whether one was found.
template <class IsEntered, class IsFound>
KAVO_LANE_INLINE bool WalkOverlapping(const BoundsGroup* groups, const float (&low)[3],
                                      const float (&high)[3], const IsEntered& is_entered,
                                      const IsFound& is_found) {
  namespace hn = hwy::HWY_NAMESPACE;
  const hn::CappedTag<float, BoundsGroup::kSize> d;
  const auto low_x = hn::Set(d, low[0]);
  const auto low_y = hn::Set(d, low[1]);
  const auto low_z = hn::Set(d, low[2]);
  const auto high_x = hn::Set(d, high[0]);
  const auto high_y = hn::Set(d, high[1]);
  const auto high_z = hn::Set(d, high[2]);
  // A group adds at most seven to what waits, and each level has an eighth of the items of the one above.
  std::uint32_t waiting[128];
  std::size_t num_waiting = 1;
  waiting[0] = 0;
  while (num_waiting > 0) {
    const BoundsGroup& group = groups[waiting[--num_waiting]];
    std::uint32_t overlaps = 0;
    for (std::size_t lane = 0; lane < BoundsGroup::kSize; lane += hn::Lanes(d)) {
      const auto x = hn::And(hn::Le(low_x, hn::Load(d, group.high[0] + lane)),
                             hn::Le(hn::Load(d, group.low[0] + lane), high_x));
      const auto y = hn::And(hn::Le(low_y, hn::Load(d, group.high[1] + lane)),
                             hn::Le(hn::Load(d, group.low[1] + lane), high_y));
      const auto z = hn::And(hn::Le(low_z, hn::Load(d, group.high[2] + lane)),
                             hn::Le(hn::Load(d, group.low[2] + lane), high_z));
      std::uint8_t bits[8] = {};
      hn::StoreMaskBits(d, hn::And(hn::And(x, y), z), bits);
      overlaps |= static_cast<std::uint32_t>(bits[0]) << lane;
    }
    for (; overlaps != 0; overlaps &= overlaps - 1) {
      const auto lane = static_cast<std::uint32_t>(hwy::Num0BitsBelowLS1Bit_Nonzero32(overlaps));
      if (group.leaf) {
        if (is_found(group, lane)) {
          return true;
        }
      } else if (is_entered(group, lane)) {
        waiting[num_waiting++] = group.first + lane;
      }
    }
  }
  return false;
}

// The same for items by their places.
// \param is_found `bool(std::uint32_t place)`.
template <class IsFound>
KAVO_LANE_INLINE bool FindOverlapping(const BoundsGroup* groups, const float (&low)[3],
                                      const float (&high)[3], const IsFound& is_found) {
  return WalkOverlapping(
      groups, low, high, [](const BoundsGroup&, std::uint32_t) { return true; },
      [&](const BoundsGroup& group, std::uint32_t lane) { return is_found(group.first + lane); });
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // include guard
