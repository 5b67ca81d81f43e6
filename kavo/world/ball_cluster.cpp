#include "kavo/world/ball_cluster_internal.h"

#include <algorithm>
#include <cmath>

// This file is compiled once for each set of wide vectors; the include below repeats it.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/world/ball_cluster.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "kavo/world/ball_lanes-inl.h"
#include "kavo/world/solid_internal.h"

HWY_BEFORE_NAMESPACE();
namespace kavo::internal::HWY_NAMESPACE {
namespace {

template <class D>
void BallsTouch(D d, BallCluster::Data& a, BallCluster::Data& b, BallCluster::Contacts& contacts) {
  using V = hn::Vec<D>;
  const float margin = a.margin + b.margin;
  const auto distances = [&](const float* p, const float* q, std::size_t lane) {
    const V x = hn::Sub(hn::Load(d, p + lane), hn::Load(d, q + lane));
    const V y = hn::Sub(hn::Load(d, p + kNumLanes + lane), hn::Load(d, q + kNumLanes + lane));
    const V z = hn::Sub(hn::Load(d, p + 2 * kNumLanes + lane), hn::Load(d, q + 2 * kNumLanes + lane));
    return hn::Add(hn::Add(hn::Mul(x, x), hn::Mul(y, y)), hn::Mul(z, z));
  };
  const Reach bounds(a.radius + b.radius, margin);
  std::uint32_t near = 0;
  for (std::size_t lane = 0; lane < a.num_lanes; lane += hn::Lanes(d)) {
    near |= Bits(d, hn::Le(distances(a.bound, b.bound, lane), hn::Set(d, bounds.unsure))) << lane;
  }
  if ((near & contacts.wanted) == 0) {
    return;
  }
  PlaceBalls(d, a);
  PlaceBalls(d, b);
  for (std::size_t i = 0; i < a.num_balls; ++i) {
    for (std::size_t k = 0; k < b.num_balls; ++k) {
      const Reach reach(a.balls[4 * i + 3] + b.balls[4 * k + 3], margin);
      std::uint32_t touching = 0;
      for (std::size_t lane = 0; lane < a.num_lanes; lane += hn::Lanes(d)) {
        const V squared = distances(a.placed[i].values, b.placed[k].values, lane);
        touching |= Bits(d, hn::Le(squared, hn::Set(d, reach.touching))) << lane;
        contacts.unsure |= Bits(d, hn::Le(squared, hn::Set(d, reach.unsure))) << lane;
      }
      if (!contacts.note(touching)) {
        return;
      }
    }
  }
}

void BallsTouchInLanes(BallCluster::Data& a, BallCluster::Data& b, BallCluster::Contacts& contacts) {
  if (a.num_lanes == 4) {
    BallsTouch(hn::CappedTag<float, 4>(), a, b, contacts);
  } else {
    BallsTouch(hn::CappedTag<float, kNumLanes>(), a, b, contacts);
  }
}

}  // namespace
}  // namespace kavo::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::internal {

HWY_EXPORT(BallsTouchInLanes);

BallCluster::BallCluster(const std::vector<math::Sphere>& balls, const math::Sphere& bounding_ball,
                         const math::LaneTransforms& part) {
  data_.part = &part;
  data_.num_balls = balls.size();
  data_.radius = Rounded(bounding_ball.radius);
  double largest_extent = bounding_ball.radius;
  for (int axis = 0; axis < 3; ++axis) {
    data_.center[axis] = Rounded(bounding_ball.center[axis]);
    largest_extent += std::fabs(bounding_ball.center[axis]);
  }
  for (const math::Sphere& ball : balls) {
    double extent = std::fabs(ball.radius);
    for (int axis = 0; axis < 3; ++axis) {
      data_.balls.push_back(Rounded(ball.center[axis]));
      extent += std::fabs(ball.center[axis]);
    }
    data_.balls.push_back(Rounded(ball.radius));
    largest_extent = std::max(largest_extent, extent);
  }
  data_.extent = Rounded(largest_extent);
  data_.placed.resize(balls.size());
}

void BallCluster::addContactsWith(BallCluster& other, Contacts& contacts) {
  if (data_.is_plain && other.data_.is_plain) {
    HWY_DYNAMIC_DISPATCH(BallsTouchInLanes)(data_, other.data_, contacts);
  } else {
    contacts.unsure |= contacts.wanted;
  }
}

}  // namespace kavo::internal

#endif  // HWY_ONCE
