// Lanes of balls against the parts of a compound, for one set of wide vectors: included anew for each of
// them.
#if defined(KAVO_WORLD_COMPOUND_DISTANCE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef KAVO_WORLD_COMPOUND_DISTANCE_INL_H_
#undef KAVO_WORLD_COMPOUND_DISTANCE_INL_H_
#else
#define KAVO_WORLD_COMPOUND_DISTANCE_INL_H_
#endif

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

#include "kavo/math/lane_inline_internal.h"
#include "kavo/math/lane_transforms_internal.h"
#include "kavo/world/ball_lanes-inl.h"
#include "kavo/world/bounds_walk-inl.h"
#include "kavo/world/shapes/compound_internal.h"
#include "kavo/world/solid_lanes_internal.h"

HWY_BEFORE_NAMESPACE();
namespace kavo::internal::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using math::kNumLanes;

// Centres of balls in the frame of a compound.
template <class D>
class LocalCenters {
 public:
  using V = hn::Vec<D>;
  static constexpr std::uint32_t kAll = (1u << D::kCount) - 1u;

  KAVO_LANE_INLINE LocalCenters(D d, const LaneSolid& solid, const float* centers) : d_(d) {
    for (std::size_t lane = 0; lane < D::kCount; lane += hn::Lanes(d)) {
      V way[3];
      for (std::size_t axis = 0; axis < 3; ++axis) {
        way[axis] = hn::Sub(hn::Load(d, centers + axis * kNumLanes + lane), hn::Set(d, solid.center[axis]));
      }
      for (std::size_t row = 0; row < 3; ++row) {
        const V sum = hn::Add(hn::Mul(way[0], hn::Set(d, solid.rotation[row][0])),
                              hn::Mul(way[1], hn::Set(d, solid.rotation[row][1])));
        hn::Store(hn::Add(sum, hn::Mul(way[2], hn::Set(d, solid.rotation[row][2]))), d,
                  values_ + row * kNumLanes + lane);
      }
    }
  }

  KAVO_LANE_INLINE V at(std::size_t axis, std::size_t lane) const {
    return hn::Load(d_, values_ + axis * kNumLanes + lane);
  }

  KAVO_LANE_INLINE void getPoint(std::size_t lane, double (&point)[3]) const {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      point[axis] = static_cast<double>(values_[axis * kNumLanes + lane]);
    }
  }

  // The box around all that is within reach in some lanes.
  KAVO_LANE_INLINE void getBox(float reach, std::uint32_t lanes, float (&low)[3], float (&high)[3]) const {
    const V infinity = hn::Inf(d_);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      V lowest = infinity;
      V highest = hn::Neg(infinity);
      for (std::size_t lane = 0; lane < D::kCount; lane += hn::Lanes(d_)) {
        const std::uint8_t bits[8] = {static_cast<std::uint8_t>(lanes >> lane)};
        const auto mask = hn::LoadMaskBits(d_, bits);
        lowest = hn::Min(lowest, hn::IfThenElse(mask, at(axis, lane), infinity));
        highest = hn::Max(highest, hn::IfThenElse(mask, at(axis, lane), hn::Neg(infinity)));
      }
      low[axis] = hn::GetLane(hn::MinOfLanes(d_, lowest)) - reach;
      high[axis] = hn::GetLane(hn::MaxOfLanes(d_, highest)) + reach;
    }
  }

  // The lanes of which `squared(lane)` is at most that of the reach.
  template <class Squared>
  KAVO_LANE_INLINE std::uint32_t within(float reach, const Squared& squared) const {
    return FindNear(d_, reach, squared);
  }

  KAVO_LANE_INLINE V fromBox(const BoundsGroup& group, std::uint32_t part, std::size_t lane) const {
    V sum = hn::Zero(d_);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const V center = at(axis, lane);
      const V beyond = hn::Max(hn::Max(hn::Sub(hn::Set(d_, group.low[axis][part]), center),
                                       hn::Sub(center, hn::Set(d_, group.high[axis][part]))),
                               hn::Zero(d_));
      sum = hn::Add(sum, hn::Mul(beyond, beyond));
    }
    return sum;
  }

  KAVO_LANE_INLINE V fromMiddle(const BoundsGroup& group, std::uint32_t part, std::size_t lane) const {
    V sum = hn::Zero(d_);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const V way =
          hn::Sub(at(axis, lane), hn::Set(d_, 0.5f * (group.low[axis][part] + group.high[axis][part])));
      sum = hn::Add(sum, hn::Mul(way, way));
    }
    return sum;
  }

  KAVO_LANE_INLINE V fromTriangle(const LaneTriangle& triangle, std::size_t lane) const {
    const V x = hn::Sub(at(0, lane), hn::Set(d_, triangle.corner[0]));
    const V y = hn::Sub(at(1, lane), hn::Set(d_, triangle.corner[1]));
    const V z = hn::Sub(at(2, lane), hn::Set(d_, triangle.corner[2]));
    const float* const b = triangle.to_b;
    const float* const c = triangle.to_c;
    const float opposite[3] = {c[0] - b[0], c[1] - b[1], c[2] - b[2]};
    const V from_sides = hn::Min(
        hn::Min(fromSide(x, y, z, b, triangle.inverses[0]), fromSide(x, y, z, c, triangle.inverses[1])),
        fromSide(hn::Sub(x, hn::Set(d_, b[0])), hn::Sub(y, hn::Set(d_, b[1])), hn::Sub(z, hn::Set(d_, b[2])),
                 opposite, triangle.inverses[2]));
    const V share_b = along(x, y, z, triangle.across_c);
    const V share_c = along(x, y, z, triangle.across_b);
    const V height = along(x, y, z, triangle.normal);
    const V least =
        hn::Min(hn::Min(share_b, share_c), hn::Sub(hn::Set(d_, triangle.area), hn::Add(share_b, share_c)));
    // Also where the plane does not count.
    return hn::IfThenElse(hn::Gt(least, hn::Zero(d_)), hn::Mul(height, height), from_sides);
  }

 private:
  KAVO_LANE_INLINE V along(V x, V y, V z, const float* direction) const {
    return hn::Add(hn::Add(hn::Mul(x, hn::Set(d_, direction[0])), hn::Mul(y, hn::Set(d_, direction[1]))),
                   hn::Mul(z, hn::Set(d_, direction[2])));
  }

  KAVO_LANE_INLINE V fromSide(V x, V y, V z, const float* side, float inverse) const {
    const V share = hn::Min(hn::Max(hn::Mul(along(x, y, z, side), hn::Set(d_, inverse)), hn::Zero(d_)),
                            hn::Set(d_, 1.0f));
    x = hn::Sub(x, hn::Mul(share, hn::Set(d_, side[0])));
    y = hn::Sub(y, hn::Mul(share, hn::Set(d_, side[1])));
    z = hn::Sub(z, hn::Mul(share, hn::Set(d_, side[2])));
    return hn::Add(hn::Add(hn::Mul(x, x), hn::Mul(y, y)), hn::Mul(z, z));
  }

  const D d_;
  alignas(64) float values_[3 * kNumLanes];
};

// Those of the lanes in which a part is within reach.
template <class D>
KAVO_LANE_INLINE std::uint32_t FindNearParts(const Compound& compound, const LocalCenters<D>& centers,
                                             float reach, std::uint32_t asked) {
  float low[3];
  float high[3];
  centers.getBox(reach, asked, low, high);
  // Those that are not asked about count as found.
  std::uint32_t near = LocalCenters<D>::kAll & ~asked;
  const auto enter = [&](const BoundsGroup& group, std::uint32_t part) {
    const std::uint32_t lanes =
        centers.within(reach, [&](std::size_t lane) { return centers.fromBox(group, part, lane); });
    return (lanes & ~near) != 0;
  };
  const auto note = [&](std::uint32_t lanes) {
    near |= lanes;
    return near == LocalCenters<D>::kAll;
  };
  const BoundsGroup* const groups = compound.tree().groups.data();
  switch (compound.parts()) {
    case Compound::Parts::kBalls:
      WalkOverlapping(groups, low, high, enter, [&](const BoundsGroup& group, std::uint32_t part) {
        const float radius = 0.5f * (group.high[0][part] - group.low[0][part]);
        return note(centers.within(reach + radius,
                                   [&](std::size_t lane) { return centers.fromMiddle(group, part, lane); }));
      });
      break;
    case Compound::Parts::kCubes:
      WalkOverlapping(groups, low, high, enter, [&](const BoundsGroup& group, std::uint32_t part) {
        return note(
            centers.within(reach, [&](std::size_t lane) { return centers.fromBox(group, part, lane); }));
      });
      break;
    case Compound::Parts::kTriangles:
      WalkOverlapping(groups, low, high, enter, [&](const BoundsGroup& group, std::uint32_t part) {
        const LaneTriangle& triangle = compound.triangles()[group.first + part];
        return note(
            centers.within(reach, [&](std::size_t lane) { return centers.fromTriangle(triangle, lane); }));
      });
      break;
  }
  return near & asked;
}

// The same, also of what fills a surface.
template <class D>
KAVO_LANE_INLINE std::uint32_t FindNearParts(const LaneSolid& solid, const LocalCenters<D>& centers,
                                             float reach, std::uint32_t asked) {
  const std::uint32_t near = FindNearParts(*solid.compound, centers, reach, asked);
  return HWY_LIKELY(solid.filling == nullptr)
             ? near
             : near | FindNearParts(*solid.filling, centers, reach, asked & ~near);
}

// Those of the lanes whose centres are inside, where no part is as near as rounding may shift them.
template <class D>
KAVO_LANE_INLINE std::uint32_t FindInside(const LaneSolid& solid, const LocalCenters<D>& centers,
                                          std::uint32_t asked) {
  std::uint32_t inside = 0;
  for (std::uint32_t lanes = solid.is_solid ? asked : 0; lanes != 0; lanes &= lanes - 1) {
    const auto lane = static_cast<std::uint32_t>(hwy::Num0BitsBelowLS1Bit_Nonzero32(lanes));
    double point[3];
    centers.getPoint(lane, point);
    inside |= solid.compound->contains(point) ? 1u << lane : 0u;
  }
  return inside;
}

// Those of the lanes in which a ball comes within reach of a compound; in others it certainly does not. The
// reach has room for rounding.
template <class D>
HWY_NOINLINE std::uint32_t FindNearCompound(D d, const LaneSolid& solid, const float* placed, float reach,
                                            std::uint32_t asked) {
  const LocalCenters<D> centers(d, solid, placed);
  const std::uint32_t near = FindNearParts(solid, centers, reach, asked);
  return near | FindInside(solid, centers, asked & ~near);
}

// Those of the lanes in which a ball touches a compound for certain.
template <class D>
HWY_NOINLINE std::uint32_t FindTouchingCompound(D d, const LaneSolid& solid, const float* placed, float reach,
                                                float margin, std::uint32_t asked) {
  if (!(reach > margin)) {
    return 0;
  }
  const LocalCenters<D> centers(d, solid, placed);
  const std::uint32_t touching = FindNearParts(solid, centers, reach - margin, asked);
  // What no part is near by the margin stays inside or outside wherever rounding may have shifted it.
  return touching | (reach > 2.0f * margin ? FindInside(solid, centers, asked & ~touching) : 0);
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // include guard
