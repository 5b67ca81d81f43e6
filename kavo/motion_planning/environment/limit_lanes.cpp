#include "kavo/motion_planning/environment/limit_lanes_internal.h"

#include "kavo/math/lane_transforms_internal.h"

// This file is compiled once for each set of wide vectors; the include below repeats it.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/motion_planning/environment/limit_lanes.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kavo::planning::internal::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

std::uint32_t OutsideInLanes(const double* coordinates, std::size_t dimension, const double* min,
                             const double* max) {
  const hn::CappedTag<double, math::kNumLanes> d;
  std::uint32_t outside = 0;
  for (std::size_t lane = 0; lane < math::kNumLanes; lane += hn::Lanes(d)) {
    auto out = hn::FirstN(d, 0);
    for (std::size_t i = 0; i < dimension; ++i) {
      const auto q = hn::LoadU(d, coordinates + i * math::kNumLanes + lane);
      const auto beyond = hn::Or(hn::Gt(hn::Set(d, min[i]), q), hn::Gt(q, hn::Set(d, max[i])));
      // Infinity and NaN less themselves are NaN, which equals nothing.
      const auto nothing = hn::Sub(q, q);
      out = hn::Or(out, hn::Or(beyond, hn::Not(hn::Eq(nothing, nothing))));
    }
    std::uint8_t bits[8] = {};
    hn::StoreMaskBits(d, out, bits);
    outside |= static_cast<std::uint32_t>(bits[0]) << lane;
  }
  return outside;
}

}  // namespace kavo::planning::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::planning::internal {

HWY_EXPORT(OutsideInLanes);

std::uint32_t LanesOutside(const double* coordinates, std::size_t dimension, const double* min,
                           const double* max) {
  return HWY_DYNAMIC_DISPATCH(OutsideInLanes)(coordinates, dimension, min, max);
}

}  // namespace kavo::planning::internal

#endif  // HWY_ONCE
