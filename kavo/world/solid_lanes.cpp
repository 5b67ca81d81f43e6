#include "kavo/world/solid_lanes_internal.h"

#include <cmath>

// This file is compiled once for each set of wide vectors; the include below repeats it.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/world/solid_lanes.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "kavo/world/ball_lanes-inl.h"
#include "kavo/world/bounds_walk-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kavo::internal::HWY_NAMESPACE {
namespace {

// Squared distances from placed centres to one solid; zero inside. Of a ball and a capsule, from the centre
// and the segment: their radius is part of the reach.
template <LaneSolid::Kind kKind, class D>
class Distance {
 public:
  using V = hn::Vec<D>;
  using Kind = LaneSolid::Kind;

  HWY_INLINE Distance(D d, const LaneSolid& solid) : d_(d), solid_(solid) {}

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

// Adds the contacts of one solid. False when no lane is wanted any more.
template <LaneSolid::Kind kKind, class D>
HWY_NOINLINE bool TestSolid(D d, const LaneSolid& solid, BallCluster::Data& cluster,
                            BallCluster::Contacts& contacts) {
  constexpr bool kIsRound = kKind == LaneSolid::Kind::kBall || kKind == LaneSolid::Kind::kCapsule;
  const Distance<kKind, D> distance(d, solid);
  const float margin = cluster.margin + solid.margin;
  const float own = kIsRound ? solid.radius : 0.0f;

  const Reach bound(cluster.radius + own, margin);
  std::uint32_t near = 0;
  for (std::size_t lane = 0; lane < cluster.num_lanes; lane += hn::Lanes(d)) {
    near |= Bits(d, hn::Le(distance.Squared(cluster.bound + lane), hn::Set(d, bound.unsure))) << lane;
  }
  if ((near & contacts.wanted) == 0) {
    return true;
  }
  PlaceBalls(d, cluster);
  const auto own_reach = hn::Set(d, own + margin);
  const float* ball = cluster.balls.data();
  for (std::size_t i = 0; i < cluster.num_balls; ++i, ball += 4) {
    const float* const placed = cluster.placed[i].values;
    const auto reach = hn::Add(hn::Set(d, ball[3]), own_reach);
    const auto squared_reach = hn::Mul(reach, reach);
    for (std::size_t lane = 0; lane < cluster.num_lanes; lane += hn::Lanes(d)) {
      const auto squared = distance.Squared(placed + lane);
      if (HWY_LIKELY(hn::AllFalse(d, hn::Le(squared, squared_reach)))) {
        continue;
      }
      const Reach exact(ball[3] + own, margin);
      contacts.unsure |= Bits(d, hn::Le(squared, hn::Set(d, exact.unsure))) << lane;
      const std::uint32_t touching = Bits(d, hn::Le(squared, hn::Set(d, exact.touching))) << lane;
      if (!contacts.note(touching)) {
        return false;
      }
    }
  }
  return true;
}

template <class D>
bool TestAnySolid(D d, const LaneSolid& solid, BallCluster::Data& cluster, BallCluster::Contacts& contacts) {
  using Kind = LaneSolid::Kind;
  switch (solid.kind) {
    case Kind::kBall:
      return TestSolid<Kind::kBall>(d, solid, cluster, contacts);
    case Kind::kBox:
      return TestSolid<Kind::kBox>(d, solid, cluster, contacts);
    case Kind::kAlignedBox:
      return TestSolid<Kind::kAlignedBox>(d, solid, cluster, contacts);
    case Kind::kCylinder:
      return TestSolid<Kind::kCylinder>(d, solid, cluster, contacts);
    case Kind::kUprightCylinder:
      return TestSolid<Kind::kUprightCylinder>(d, solid, cluster, contacts);
    case Kind::kCapsule:
      return TestSolid<Kind::kCapsule>(d, solid, cluster, contacts);
    case Kind::kHalfSpace:
      return TestSolid<Kind::kHalfSpace>(d, solid, cluster, contacts);
  }
  return true;
}

// Whether a half-space comes near the box of a cluster.
HWY_INLINE bool IsNear(const LaneSolid& half_space, const BallCluster::Data& cluster) {
  float distance = 0.0f;
  for (int axis = 0; axis < 3; ++axis) {
    const float normal = half_space.rotation[2][axis];
    const float nearest = normal > 0.0f ? cluster.low[axis] : cluster.high[axis];
    distance += normal * (nearest - half_space.center[axis]);
  }
  return distance <= cluster.radius + cluster.margin + half_space.margin;
}

// Adds the contacts of one placed cluster. False when no lane is wanted any more.
template <class D>
HWY_INLINE bool FindOfCluster(D d, const SolidLanes& lanes, const BoundsGroup* groups,
                              BallCluster::Data& cluster, BallCluster::Contacts& contacts) {
  for (const LaneSolid& half_space : lanes.half_spaces) {
    if (IsNear(half_space, cluster) &&
        !TestSolid<LaneSolid::Kind::kHalfSpace>(d, half_space, cluster, contacts)) {
      return false;
    }
  }
  if (groups == nullptr) {
    return true;
  }
  // The margin is far above the rounding of the bounds.
  const float reach = cluster.radius + cluster.margin;
  const float low[3] = {cluster.low[0] - reach, cluster.low[1] - reach, cluster.low[2] - reach};
  const float high[3] = {cluster.high[0] + reach, cluster.high[1] + reach, cluster.high[2] + reach};
  return !FindOverlapping(groups, low, high, [&](std::uint32_t index) {
    return !TestAnySolid(d, lanes.solids[index], cluster, contacts);
  });
}

template <class D>
HWY_INLINE void FindInLanes(D d, const SolidLanes& lanes, const BoundsGroup* groups,
                            std::vector<BallCluster>& clusters, std::size_t num_lanes,
                            BallCluster::Contacts& contacts) {
  for (BallCluster& ball_cluster : clusters) {
    BallCluster::Data& cluster = ball_cluster.data();
    PlaceBound(d, num_lanes, cluster);
    if (!cluster.is_plain) {
      contacts.unsure |= contacts.wanted;
    } else if (!FindOfCluster(d, lanes, groups, cluster, contacts)) {
      return;
    }
  }
}

void Find(const SolidLanes& lanes, const BoundsGroup* groups, std::vector<BallCluster>& clusters,
          std::size_t num_lanes, BallCluster::Contacts& contacts) {
  if (num_lanes == 4) {
    FindInLanes(hn::CappedTag<float, 4>(), lanes, groups, clusters, 4, contacts);
  } else {
    FindInLanes(hn::CappedTag<float, kNumLanes>(), lanes, groups, clusters, kNumLanes, contacts);
  }
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::internal {

HWY_EXPORT(Find);

LaneSolid::LaneSolid(const Solid& solid) : radius(static_cast<float>(solid.radius)) {
  margin = Rounded(static_cast<double>(BallCluster::kMargin) * solid.magnitude);
  // Which of the solid's axes lies along each of the world's, -1 where none does.
  int along[3] = {-1, -1, -1};
  for (int row = 0; row < 3; ++row) {
    center[row] = static_cast<float>(solid.center[row]);
    half[row] = static_cast<float>(solid.half[row]);
    for (int axis = 0; axis < 3; ++axis) {
      rotation[row][axis] = static_cast<float>(solid.rotation[row][axis]);
      // The axis is off by 2e-7 at most, which the margin has room for.
      if (std::fabs(solid.rotation[row][axis]) >= 1.0 - 1e-14) {
        along[axis] = row;
      }
    }
  }
  switch (solid.kind) {
    case Solid::Kind::kSphere:
      kind = Kind::kBall;
      break;
    case Solid::Kind::kBox:
      kind = Kind::kBox;
      if (along[0] >= 0 && along[1] >= 0 && along[2] >= 0) {
        kind = Kind::kAlignedBox;
        for (int axis = 0; axis < 3; ++axis) {
          half[axis] = static_cast<float>(solid.half[along[axis]]);
        }
      }
      break;
    case Solid::Kind::kCylinder:
      kind = along[2] == 2 ? Kind::kUprightCylinder : Kind::kCylinder;
      break;
    case Solid::Kind::kCapsule:
      kind = Kind::kCapsule;
      break;
    case Solid::Kind::kHalfSpace:
      kind = Kind::kHalfSpace;
      break;
  }
}

void FindLaneContacts(const SolidLanes& lanes, const BoundsGroup* groups, std::vector<BallCluster>& clusters,
                      std::size_t num_lanes, BallCluster::Contacts& contacts) {
  HWY_DYNAMIC_DISPATCH(Find)(lanes, groups, clusters, num_lanes, contacts);
}

}  // namespace kavo::internal

#endif  // HWY_ONCE
