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

// Takes over lanes that touch: only those below the lowest stay wanted. False when none is left.
HWY_INLINE bool Note(std::uint32_t touching, std::uint32_t* wanted, BallCluster::Contacts* contacts) {
  if (touching != 0) {
    contacts->touching |= touching;
    *wanted &= (touching & (0u - touching)) - 1u;
  }
  return *wanted != 0;
}

// Places the bounding ball in every lane, and the box around all of them.
HWY_INLINE void PlaceBound(const math::LaneTransforms& frame, std::size_t num_lanes,
                           BallCluster::Data& data) {
  const hn::CappedTag<double, 4> d;
  const hn::Rebind<float, decltype(d)> df;
  data.frame = &frame;
  data.num_lanes = num_lanes;
  data.has_balls = false;
  float length = data.extent;
  auto nothing = hn::Zero(df);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double* const row = frame.entries + axis * math::LaneTransforms::kRow;
    auto low = hn::Set(df, BallCluster::kLargestLength);
    auto high = hn::Set(df, -BallCluster::kLargestLength);
    for (std::size_t lane = 0; lane < num_lanes; lane += hn::Lanes(d)) {
      auto sum = hn::Add(hn::Mul(hn::Load(d, row + lane), hn::Set(d, data.center[0])),
                         hn::Mul(hn::Load(d, row + kNumLanes + lane), hn::Set(d, data.center[1])));
      sum = hn::Add(sum, hn::Mul(hn::Load(d, row + 2 * kNumLanes + lane), hn::Set(d, data.center[2])));
      const auto center = hn::DemoteTo(df, hn::Add(sum, hn::Load(d, row + 3 * kNumLanes + lane)));
      low = hn::Min(low, center);
      high = hn::Max(high, center);
      nothing = hn::Add(nothing, hn::Mul(center, hn::Zero(df)));
      hn::Store(center, df, data.bound + axis * kNumLanes + lane);
    }
    data.low[axis] = hn::GetLane(hn::MinOfLanes(df, low));
    data.high[axis] = hn::GetLane(hn::MaxOfLanes(df, high));
    const float reach = data.high[axis] > -data.low[axis] ? data.high[axis] : -data.low[axis];
    length += reach;
  }
  data.margin = BallCluster::kMargin * length;
  // Infinity and NaN, which a minimum may lose, leave a trace in the sum of nothing.
  data.is_plain = length <= BallCluster::kLargestLength && hn::AllTrue(df, hn::Eq(nothing, hn::Zero(df)));
}

// Places the balls in all lanes, once for a placement.
template <class D>
HWY_INLINE void PlaceBalls(D d, BallCluster::Data& data) {
  if (data.has_balls) {
    return;
  }
  data.has_balls = true;
  const hn::CappedTag<double, 4> dd;
  const hn::Rebind<float, decltype(dd)> df;
  HWY_ALIGN float frame[3 * math::LaneTransforms::kRow];
  for (std::size_t entry = 0; entry < 3 * math::LaneTransforms::kRow; entry += kNumLanes) {
    for (std::size_t lane = 0; lane < data.num_lanes; lane += hn::Lanes(dd)) {
      hn::Store(hn::DemoteTo(df, hn::Load(dd, data.frame->entries + entry + lane)), df, frame + entry + lane);
    }
  }
  float* placed = data.placed.data();
  for (std::size_t i = 0; i < data.num_balls; ++i) {
    const float* const ball = &data.balls[4 * i];
    const auto x = hn::Set(d, ball[0]);
    const auto y = hn::Set(d, ball[1]);
    const auto z = hn::Set(d, ball[2]);
    for (std::size_t row = 0; row < 3; ++row, placed += kNumLanes) {
      const float* const entries = frame + row * math::LaneTransforms::kRow;
      for (std::size_t lane = 0; lane < data.num_lanes; lane += hn::Lanes(d)) {
        auto sum = hn::Add(hn::Mul(hn::Load(d, entries + lane), x),
                           hn::Mul(hn::Load(d, entries + kNumLanes + lane), y));
        sum = hn::Add(sum, hn::Mul(hn::Load(d, entries + 2 * kNumLanes + lane), z));
        hn::StoreU(hn::Add(sum, hn::Load(d, entries + 3 * kNumLanes + lane)), d, placed + lane);
      }
    }
  }
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // include guard
