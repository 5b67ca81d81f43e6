// What the lanes of clusters of balls share, for one set of wide vectors: included anew for each of them.
#if defined(KAVO_WORLD_BALL_LANES_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef KAVO_WORLD_BALL_LANES_INL_H_
#undef KAVO_WORLD_BALL_LANES_INL_H_
#else
#define KAVO_WORLD_BALL_LANES_INL_H_
#endif

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

#include "kavo/world/ball_cluster_internal.h"

HWY_BEFORE_NAMESPACE();
namespace kavo::internal::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using math::kNumLanes;

// Squared distances up to `touching` are contact for certain, those above `unsure` are certainly none.
struct Reach {
  HWY_INLINE Reach(float reach, float margin)
      : touching(reach > margin ? (reach - margin) * (reach - margin) : -1.0f),
        // A negative radius touches nothing.
        unsure(reach + margin >= 0.0f ? (reach + margin) * (reach + margin) : -1.0f) {}

  float touching;
  float unsure;
};

template <class D>
HWY_INLINE std::uint32_t Bits(D d, hn::Mask<D> mask) {
  std::uint8_t bits[8] = {};
  hn::StoreMaskBits(d, mask, bits);
  return bits[0];
}

// One coordinate of a point of a part.
// \param row Of the part's transform.
template <class D, class V = hn::Vec<D>>
HWY_INLINE V Place(D d, const float* row, V x, V y, V z) {
  V sum = hn::Add(hn::Mul(hn::Load(d, row), x), hn::Mul(hn::Load(d, row + kNumLanes), y));
  sum = hn::Add(sum, hn::Mul(hn::Load(d, row + 2 * kNumLanes), z));
  return hn::Add(sum, hn::Load(d, row + 3 * kNumLanes));
}

// Places the bounding ball in every lane, and the box around all of them.
template <class D>
HWY_INLINE void PlaceBound(D d, std::size_t num_lanes, BallCluster::Data& data) {
  const math::LaneTransforms& part = *data.part;
  data.num_lanes = num_lanes;
  data.has_balls = false;
  const float length = part.reach + data.extent;
  data.margin = BallCluster::kLeastLength + BallCluster::kMargin * length + part.shift_error +
                part.turn_error * data.extent;
  data.is_plain = length <= BallCluster::kLargestLength && data.margin <= BallCluster::kLargestLength;
  const auto x = hn::Set(d, data.center[0]);
  const auto y = hn::Set(d, data.center[1]);
  const auto z = hn::Set(d, data.center[2]);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const float* const row = part.entries + axis * math::LaneTransforms::kRow;
    auto low = Place(d, row, x, y, z);
    auto high = low;
    hn::Store(low, d, data.bound + axis * kNumLanes);
    for (std::size_t lane = hn::Lanes(d); lane < num_lanes; lane += hn::Lanes(d)) {
      const auto center = Place(d, row + lane, x, y, z);
      low = hn::Min(low, center);
      high = hn::Max(high, center);
      hn::Store(center, d, data.bound + axis * kNumLanes + lane);
    }
    data.low[axis] = hn::GetLane(hn::MinOfLanes(d, low));
    data.high[axis] = hn::GetLane(hn::MaxOfLanes(d, high));
  }
}

// Places the balls in all lanes, once for a placement.
template <class D>
HWY_NOINLINE void PlaceBalls(D d, BallCluster::Data& data) {
  if (data.has_balls) {
    return;
  }
  data.has_balls = true;
  for (std::size_t i = 0; i < data.num_balls; ++i) {
    float* placed = data.placed[i].values;
    const float* const ball = &data.balls[4 * i];
    const auto x = hn::Set(d, ball[0]);
    const auto y = hn::Set(d, ball[1]);
    const auto z = hn::Set(d, ball[2]);
    const float* row = data.part->entries;
    for (int axis = 0; axis < 3; ++axis, row += math::LaneTransforms::kRow, placed += kNumLanes) {
      for (std::size_t lane = 0; lane < data.num_lanes; lane += hn::Lanes(d)) {
        hn::Store(Place(d, row + lane, x, y, z), d, placed + lane);
      }
    }
  }
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // include guard
