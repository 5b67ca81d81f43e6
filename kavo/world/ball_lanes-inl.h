// How the lanes of a ball model are placed and how far their balls reach, for one set of wide vectors:
// included anew for each of them.
#if defined(KAVO_WORLD_BALL_LANES_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef KAVO_WORLD_BALL_LANES_INL_H_
#undef KAVO_WORLD_BALL_LANES_INL_H_
#else
#define KAVO_WORLD_BALL_LANES_INL_H_
#endif

#include <hwy/highway.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "kavo/math/lane_inline_internal.h"
#include "kavo/world/ball_model_data_internal.h"

HWY_BEFORE_NAMESPACE();
namespace kavo::internal::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using math::kNumLanes;
using Data = BallModel::Data;

// A tag that knows over how many lanes the loops run: with wide vectors they are none.
template <std::size_t kLanes>
struct Lanes : hn::CappedTag<float, kLanes> {
  static constexpr std::size_t kCount = kLanes;
};

template <class D>
KAVO_LANE_INLINE std::uint32_t Bits(D d, hn::Mask<D> mask) {
  std::uint8_t bits[8] = {};
  hn::StoreMaskBits(d, mask, bits);
  return bits[0];
}

KAVO_LANE_INLINE float Square(float x) { return x * x; }

// One coordinate of a point of a part.
// \param row Of the part's transform.
template <class D, class V = hn::Vec<D>>
KAVO_LANE_INLINE V Place(D d, const float* row, V x, V y, V z) {
  V sum = hn::Add(hn::Mul(hn::Load(d, row), x), hn::Mul(hn::Load(d, row + kNumLanes), y));
  sum = hn::Add(sum, hn::Mul(hn::Load(d, row + 2 * kNumLanes), z));
  return hn::Add(sum, hn::Load(d, row + 3 * kNumLanes));
}

template <class D>
KAVO_LANE_INLINE void PlaceCenter(D d, const math::LaneTransforms& transform, const float* center,
                                  Data::Centers& placed) {
  const auto x = hn::Set(d, center[0]);
  const auto y = hn::Set(d, center[1]);
  const auto z = hn::Set(d, center[2]);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const float* const row = transform.entries + axis * math::LaneTransforms::kRow;
    for (std::size_t lane = 0; lane < D::kCount; lane += hn::Lanes(d)) {
      hn::Store(Place(d, row + lane, x, y, z), d, placed.values + axis * kNumLanes + lane);
    }
  }
}

// The radius of a ball, so enlarged that two neighbours enclose all of it in between. Rounding is far below
// the share by which it is too large.
KAVO_LANE_INLINE float Reach(const Data& data, float radius, const math::MotionBound& bound,
                             float num_balls) {
  if (!data.is_motion) {
    return radius;
  }
  return bound.enlarged(radius + num_balls * data.clearance, data.spacing) * (1.0f + 0x1p-18f);
}

// The bounds on what the motion does to a point, added to those that are there.
KAVO_LANE_INLINE void AddMotion(const Data& data, const math::JointReaches& joints,
                                math::MotionBound& bound) {
  math::AddMotion(joints, data.rates, bound);
  if (HWY_UNLIKELY(data.bends != nullptr)) {
    math::AddBend(joints, data.bends, bound);
  }
}

// How exactly a part is placed.
KAVO_LANE_INLINE void FindMargin(const Data& data, Data::Part& part) {
  if (!part.margin_placement.isDue(data.placement)) {
    return;
  }
  const math::LaneTransforms& transform = *part.transform;
  const float length = transform.reach + part.extent;
  part.margin = BallModel::kLeastLength + BallModel::kMargin * length + transform.shift_error +
                transform.turn_error * part.extent;
  part.is_plain = length <= BallModel::kLargestLength && part.margin <= BallModel::kLargestLength;
}

// Places the ball around a part.
template <class D>
KAVO_LANE_INLINE void PlacePart(D d, const Data& data, Data::Part& part) {
  FindMargin(data, part);
  PlaceCenter(d, *part.transform, part.center, part.centers);
}

// Places the ball around a bundle.
template <class D>
KAVO_LANE_INLINE void PlaceBundle(D d, const Data& data, Data::Bundle& bundle) {
  if (bundle.placement.isDue(data.placement)) {
    PlaceCenter(d, *data.parts[bundle.part].transform, bundle.center, bundle.centers);
  }
}

// Where the ball around a twig of a placed bundle is.
template <class D>
KAVO_LANE_INLINE const float* PlaceTwig(D d, const Data& data, const Data::Bundle& bundle, Data::Twig& twig) {
  if (bundle.hasOneTwig()) {
    return bundle.centers.values;
  }
  if (twig.placement.isDue(data.placement)) {
    PlaceCenter(d, *data.parts[bundle.part].transform, twig.center, twig.centers);
  }
  return twig.centers.values;
}

// Places the balls of a twig.
template <class D>
HWY_NOINLINE void PlaceBalls(D d, Data& data, const Data::Bundle& bundle, Data::Twig& twig) {
  if (!twig.balls_placement.isDue(data.placement)) {
    return;
  }
  const math::LaneTransforms& transform = *data.parts[bundle.part].transform;
  for (std::uint32_t i = twig.first_ball; i < twig.end_ball; ++i) {
    PlaceCenter(d, transform, data.balls[i].center, data.placed[i]);
  }
}

// The bound on the motion of what is fixed around a placed centre, which the chords of that centre may show
// to be slower: no chord of a point nearby is longer by more than what the turns are times its distance.
// \param distance From the centre, of what is bounded.
template <class D>
KAVO_LANE_INLINE math::MotionBound Measured(D d, const Data& data, const math::MotionBound& bound,
                                            float turned, float distance, float margin,
                                            const Data::Centers& centers) {
  auto longest = hn::Zero(d);
  for (std::size_t lane = 0; lane < D::kCount; lane += hn::Lanes(d)) {
    auto squared = hn::Zero(d);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const float* const at = centers.values + axis * kNumLanes + lane;
      const auto way = hn::Sub(hn::LoadU(d, at + 1), hn::Load(d, at));
      squared = hn::Add(squared, hn::Mul(way, way));
    }
    // The last lane has no next one.
    longest = hn::Max(longest, hn::IfThenElseZero(hn::FirstN(d, D::kCount - 1 - lane), squared));
  }
  const float chord = std::sqrt(hn::GetLane(hn::MaxOfLanes(d, longest))) + 2.0f * margin;
  const float speed = (chord / data.spacing + turned * distance) * (1.0f + 0x1p-18f);
  return {std::min(bound.speed, speed), bound.acceleration};
}

KAVO_LANE_INLINE float TurnedBy(const math::JointReaches& joints, const float* rates) {
  float turned = 0.0f;
  for (const math::JointReach& joint : joints) {
    turned += joint.turns ? rates[joint.joint] : 0.0f;
  }
  return turned;
}

// How far a bundle reaches.
template <class D>
KAVO_LANE_INLINE void FindReach(D d, Data& data, Data::Bundle& bundle, float margin) {
  if (!bundle.reach_placement.isDue(data.placement)) {
    return;
  }
  if (data.is_motion && bundle.motion.isDue(data.motion)) {
    bundle.bound = math::MotionBound();
    AddMotion(data, bundle.reaches, bundle.bound);
    bundle.turned = TurnedBy(bundle.reaches, data.rates);
  }
  bundle.measured =
      data.is_motion ? Measured(d, data, bundle.bound, bundle.turned, bundle.extent, margin, bundle.centers)
                     : bundle.bound;
  bundle.reach = Reach(data, bundle.radius + bundle.padding, bundle.measured, 1.0f);
}

// How far the balls of a twig reach, of a bundle whose reach is known.
KAVO_LANE_INLINE void FindReaches(Data& data, const Data::Bundle& bundle, Data::Twig& twig) {
  if (twig.reaches_placement.isDue(data.placement)) {
    for (std::uint32_t i = twig.first_ball; i < twig.end_ball; ++i) {
      data.reaches[i] = Reach(data, data.balls[i].radius + bundle.padding, bundle.measured, 1.0f);
    }
  }
}

// In which lanes something is within reach. At a squared distance above that of `reach` it is certainly not.
template <class D, class Squared>
KAVO_LANE_INLINE std::uint32_t FindNear(D d, float reach, const Squared& squared) {
  const auto squared_reach = hn::Set(d, Square(reach));
  std::uint32_t near = 0;
  for (std::size_t lane = 0; lane < D::kCount; lane += hn::Lanes(d)) {
    near |= Bits(d, hn::Le(squared(lane), squared_reach)) << lane;
  }
  return near;
}

// Whether in any lane something is within reach: faster than `FindNear`, for what is mostly far.
template <class D, class Squared>
KAVO_LANE_INLINE bool IsAnyNear(D d, float reach, const Squared& squared) {
  const auto squared_reach = hn::Set(d, Square(reach));
  auto least = squared(0);
  for (std::size_t lane = hn::Lanes(d); lane < D::kCount; lane += hn::Lanes(d)) {
    least = hn::Min(least, squared(lane));
  }
  return !hn::AllFalse(d, hn::Le(least, squared_reach));
}

// In which lanes there is contact for certain.
template <class D, class Squared>
KAVO_LANE_INLINE std::uint32_t FindTouching(D d, float reach, float margin, const Squared& squared) {
  return reach > margin ? FindNear(d, reach - margin, squared) : 0;
}

// Squared distances between two placed centres.
template <class D>
KAVO_LANE_INLINE hn::Vec<D> Squared(D d, const float* p, const float* q) {
  const auto x = hn::Sub(hn::Load(d, p), hn::Load(d, q));
  const auto y = hn::Sub(hn::Load(d, p + kNumLanes), hn::Load(d, q + kNumLanes));
  const auto z = hn::Sub(hn::Load(d, p + 2 * kNumLanes), hn::Load(d, q + 2 * kNumLanes));
  return hn::Add(hn::Add(hn::Mul(x, x), hn::Mul(y, y)), hn::Mul(z, z));
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // include guard
