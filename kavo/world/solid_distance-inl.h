// Distances from lanes of centres to a solid, for one set of wide vectors: included anew for each of them.
#if defined(KAVO_WORLD_SOLID_DISTANCE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef KAVO_WORLD_SOLID_DISTANCE_INL_H_
#undef KAVO_WORLD_SOLID_DISTANCE_INL_H_
#else
#define KAVO_WORLD_SOLID_DISTANCE_INL_H_
#endif

#include <hwy/highway.h>

#include <cstddef>
#include <type_traits>

#include "kavo/math/lane_transforms_internal.h"
#include "kavo/world/solid_lanes_internal.h"

HWY_BEFORE_NAMESPACE();
namespace kavo::internal::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using math::kNumLanes;

// Squared distances from placed centres to one solid; zero inside. Of a ball and a capsule, from the centre
// and the segment, and of all without their padding: that is part of the reach.
template <LaneSolid::Kind kKind, class D>
class Distance {
 public:
  using V = hn::Vec<D>;
  using Kind = LaneSolid::Kind;

  HWY_INLINE Distance(D d, const LaneSolid& solid) : d_(d), solid_(solid) {}

  HWY_INLINE float Rounding() const { return solid_.rounding; }

  HWY_INLINE V Squared(const float* center) const {
    V x = hn::Sub(hn::Load(d_, center), hn::Set(d_, solid_.center[0]));
    V y = hn::Sub(hn::Load(d_, center + kNumLanes), hn::Set(d_, solid_.center[1]));
    V z = hn::Sub(hn::Load(d_, center + 2 * kNumLanes), hn::Set(d_, solid_.center[2]));
    if constexpr (kKind == Kind::kHalfSpace) {
      const V depth = Along(2, x, y, z);
      return hn::IfThenElse(hn::Gt(depth, hn::Zero(d_)), hn::Mul(depth, depth), hn::Zero(d_));
    } else {
      if constexpr (kKind == Kind::kBox || kKind == Kind::kCylinder || kKind == Kind::kCapsule) {
        const V local_x = Along(0, x, y, z);
        const V local_y = Along(1, x, y, z);
        z = Along(2, x, y, z);
        x = local_x;
        y = local_y;
      }
      if constexpr (kKind == Kind::kBox || kKind == Kind::kAlignedBox) {
        x = Beyond(x, solid_.half[0]);
        y = Beyond(y, solid_.half[1]);
      }
      if constexpr (kKind != Kind::kBall) {
        z = Beyond(z, solid_.half[2]);
      }
      V side = hn::Add(hn::Mul(x, x), hn::Mul(y, y));
      if constexpr (kKind == Kind::kCylinder || kKind == Kind::kUprightCylinder) {
        side = hn::Max(hn::Sub(hn::Sqrt(side), hn::Set(d_, solid_.radius)), hn::Zero(d_));
        side = hn::Mul(side, side);
      }
      return hn::Add(side, hn::Mul(z, z));
    }
  }

 private:
  HWY_INLINE V Along(int row, V x, V y, V z) const {
    return hn::Add(hn::Add(hn::Mul(x, hn::Set(d_, solid_.rotation[row][0])),
                           hn::Mul(y, hn::Set(d_, solid_.rotation[row][1]))),
                   hn::Mul(z, hn::Set(d_, solid_.rotation[row][2])));
  }

  HWY_INLINE V Beyond(V coordinate, float half) const {
    return hn::Max(hn::Sub(hn::Abs(coordinate), hn::Set(d_, half)), hn::Zero(d_));
  }

  const D d_;
  const LaneSolid& solid_;
};

// Calls `ask` with the kind of a solid as a constant.
template <class Ask>
HWY_INLINE bool ForKind(LaneSolid::Kind kind, const Ask& ask) {
  using Kind = LaneSolid::Kind;
  switch (kind) {
    case Kind::kBall:
      return ask(std::integral_constant<Kind, Kind::kBall>());
    case Kind::kBox:
      return ask(std::integral_constant<Kind, Kind::kBox>());
    case Kind::kAlignedBox:
      return ask(std::integral_constant<Kind, Kind::kAlignedBox>());
    case Kind::kCylinder:
      return ask(std::integral_constant<Kind, Kind::kCylinder>());
    case Kind::kUprightCylinder:
      return ask(std::integral_constant<Kind, Kind::kUprightCylinder>());
    case Kind::kCapsule:
      return ask(std::integral_constant<Kind, Kind::kCapsule>());
    case Kind::kHalfSpace:
      return ask(std::integral_constant<Kind, Kind::kHalfSpace>());
  }
  return true;
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // include guard
