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
