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

#include "kavo/math/lane_inline_internal.h"
#include "kavo/math/lane_transforms_internal.h"
#include "kavo/world/ball_lanes-inl.h"
#include "kavo/world/compound_distance-inl.h"
#include "kavo/world/solid_lanes_internal.h"

HWY_BEFORE_NAMESPACE();
namespace kavo::internal::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using math::kNumLanes;

// Placed balls against one solid.
template <LaneSolid::Kind kKind, class D>
class Distance {
 public:
  using V = hn::Vec<D>;
  using Kind = LaneSolid::Kind;

  KAVO_LANE_INLINE Distance(D d, const LaneSolid& solid) : d_(d), solid_(solid) {}

  // In which lanes a ball comes within reach; in others it certainly does not. Here and below it may leave
  // out lanes that are not asked about.
  KAVO_LANE_INLINE std::uint32_t Near(const float* centers, float reach, std::uint32_t) const {
    return FindNear(d_, reach + solid_.rounding, [&](std::size_t lane) { return Squared(centers + lane); });
  }

  // The same, faster where most are far.
  KAVO_LANE_INLINE std::uint32_t NearIfAny(const float* centers, float reach, std::uint32_t) const {
    const auto squared = [&](std::size_t lane) { return Squared(centers + lane); };
    return HWY_LIKELY(!IsAnyNear(d_, reach + solid_.rounding, squared))
               ? 0
               : FindNear(d_, reach + solid_.rounding, squared);
  }

  // In which lanes a ball touches for certain.
  KAVO_LANE_INLINE std::uint32_t Touching(const float* centers, float radius, float margin,
                                          std::uint32_t) const {
    return FindTouching(d_, radius + solid_.rounding, margin,
                        [&](std::size_t lane) { return Squared(centers + lane); });
  }

 private:
  // Squared distances from placed centres; zero inside. Of a ball and a capsule, from the centre and the
  // segment, and of all without their padding: that is part of the reach.
  KAVO_LANE_INLINE V Squared(const float* center) const {
    V x = hn::Sub(hn::Load(d_, center), hn::Set(d_, solid_.center[0]));
    V y = hn::Sub(hn::Load(d_, center + kNumLanes), hn::Set(d_, solid_.center[1]));
    V z = hn::Sub(hn::Load(d_, center + 2 * kNumLanes), hn::Set(d_, solid_.center[2]));
    if constexpr (kKind == Kind::kHalfSpace) {
      const V depth = Along(2, x, y, z);
      return hn::IfThenElse(hn::Gt(depth, hn::Zero(d_)), hn::Mul(depth, depth), hn::Zero(d_));
    } else {
      if constexpr (kKind == Kind::kBox || kKind == Kind::kCylinder || kKind == Kind::kCapsule ||
                    kKind == Kind::kCone) {
        const V local_x = Along(0, x, y, z);
        const V local_y = Along(1, x, y, z);
        z = Along(2, x, y, z);
        x = local_x;
        y = local_y;
      }
      if constexpr (kKind == Kind::kCone) {
        return SquaredFromCone(x, y, z);
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

  // In the plane through the axis of a cone, where it is a triangle.
  KAVO_LANE_INLINE V SquaredFromCone(V x, V y, V z) const {
    const V side = hn::Sqrt(hn::Add(hn::Mul(x, x), hn::Mul(y, y)));
    const V outwards = hn::Set(d_, solid_.half[0]);
    const V down = hn::Set(d_, solid_.half[1]);
    const V half = hn::Set(d_, solid_.half[2]);
    const V zero = hn::Zero(d_);
    const V below_apex = hn::Sub(half, z);
    const V beyond_slope = hn::Sub(hn::Mul(side, down), hn::Mul(below_apex, outwards));
    const V beyond_base = hn::Neg(hn::Add(half, z));
    const V slope = hn::Set(d_, solid_.radius * solid_.half[0] + 2.0f * solid_.half[2] * solid_.half[1]);
    const V along =
        hn::Min(hn::Max(hn::Add(hn::Mul(side, outwards), hn::Mul(below_apex, down)), zero), slope);
    const V from_slope_side = hn::Sub(side, hn::Mul(along, outwards));
    const V from_slope_z = hn::Sub(below_apex, hn::Mul(along, down));
    const V from_slope =
        hn::Add(hn::Mul(from_slope_side, from_slope_side), hn::Mul(from_slope_z, from_slope_z));
    const V outside_side = hn::Max(hn::Sub(side, hn::Set(d_, solid_.radius)), zero);
    const V from_base = hn::Add(hn::Mul(outside_side, outside_side), hn::Mul(beyond_base, beyond_base));
    const V outside = hn::IfThenElse(hn::Gt(beyond_base, zero), hn::Min(from_slope, from_base), from_slope);
    return hn::IfThenElse(hn::Gt(hn::Max(beyond_slope, beyond_base), zero), outside, zero);
  }

  KAVO_LANE_INLINE V Along(int row, V x, V y, V z) const {
    return hn::Add(hn::Add(hn::Mul(x, hn::Set(d_, solid_.rotation[row][0])),
                           hn::Mul(y, hn::Set(d_, solid_.rotation[row][1]))),
                   hn::Mul(z, hn::Set(d_, solid_.rotation[row][2])));
  }

  KAVO_LANE_INLINE V Beyond(V coordinate, float half) const {
    return hn::Max(hn::Sub(hn::Abs(coordinate), hn::Set(d_, half)), hn::Zero(d_));
  }

  const D d_;
  const LaneSolid& solid_;
};

// The same for one that consists of many parts.
template <class D>
class Distance<LaneSolid::Kind::kCompound, D> {
 public:
  KAVO_LANE_INLINE Distance(D d, const LaneSolid& solid) : d_(d), solid_(solid) {}

  KAVO_LANE_INLINE std::uint32_t Near(const float* centers, float reach, std::uint32_t asked) const {
    return FindNearCompound(d_, solid_, centers, reach + solid_.rounding, asked);
  }
  KAVO_LANE_INLINE std::uint32_t NearIfAny(const float* centers, float reach, std::uint32_t asked) const {
    return Near(centers, reach, asked);
  }
  KAVO_LANE_INLINE std::uint32_t Touching(const float* centers, float radius, float margin,
                                          std::uint32_t asked) const {
    return FindTouchingCompound(d_, solid_, centers, radius + solid_.rounding, margin, asked);
  }

 private:
  const D d_;
  const LaneSolid& solid_;
};

// Calls `ask` with the kind of a solid as a constant.
template <class Ask>
KAVO_LANE_INLINE bool ForKind(LaneSolid::Kind kind, const Ask& ask) {
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
    case Kind::kCone:
      return ask(std::integral_constant<Kind, Kind::kCone>());
    case Kind::kCompound:
      return ask(std::integral_constant<Kind, Kind::kCompound>());
  }
  return true;
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // include guard
