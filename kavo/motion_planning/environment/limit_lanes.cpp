#include <algorithm>
#include <limits>

#include "kavo/motion_planning/environment/limit_lanes_internal.h"

// This file is compiled once for each set of wide vectors; the include below repeats it.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/motion_planning/environment/limit_lanes.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kavo::planning::internal::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

std::uint32_t WithinInLanes(const double* coordinates, std::size_t dimension, std::size_t num_lanes,
                            const double* min, const double* max) {
  const hn::CappedTag<double, 4> d;
  std::uint32_t within = 0;
  for (std::size_t lane = 0; lane < num_lanes; lane += hn::Lanes(d)) {
    auto in = hn::Not(hn::FirstN(d, 0));
    for (std::size_t i = 0; i < dimension; ++i) {
      const auto q = hn::Load(d, coordinates + i * math::kNumLanes + lane);
      in = hn::And(in, hn::And(hn::Le(hn::Set(d, min[i]), q), hn::Le(q, hn::Set(d, max[i]))));
    }
    std::uint8_t bits[8] = {};
    hn::StoreMaskBits(d, in, bits);
    within |= static_cast<std::uint32_t>(bits[0]) << lane;
  }
  return within;
}

}  // namespace kavo::planning::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::planning::internal {

HWY_EXPORT(WithinInLanes);

LimitLanes::LimitLanes(const Eigen::VectorXd& min, const Eigen::VectorXd& max)
    : coordinates_(static_cast<std::size_t>(std::max(min.size(), Eigen::Index{1}))) {
  // A limit of NaN is none, and no infinite value is within any.
  constexpr double kLargest = std::numeric_limits<double>::max();
  for (Eigen::Index i = 0; i < min.size(); ++i) {
    min_.push_back(min[i] > -kLargest ? min[i] : -kLargest);
    max_.push_back(max[i] < kLargest ? max[i] : kLargest);
  }
}

std::uint32_t LimitLanes::TakeIn(const double* batch, std::ptrdiff_t stride, int count) {
  const double* HWY_RESTRICT places[math::kNumLanes];
  for (std::size_t k = 0; k < math::kNumLanes; ++k) {
    places[k] = batch + std::min(static_cast<std::ptrdiff_t>(k), std::ptrdiff_t{count} - 1) * stride;
  }
  double* HWY_RESTRICT lanes = coordinates_.data()->values;
  const std::size_t dimension = min_.size();
  for (std::size_t i = 0; i < dimension; ++i) {
    for (std::size_t k = 0; k < math::kNumLanes; ++k) {
      lanes[i * math::kNumLanes + k] = places[k][i];
    }
  }
  return HWY_DYNAMIC_DISPATCH(WithinInLanes)(coordinates(), dimension, count <= 4 ? 4 : math::kNumLanes,
                                             min_.data(), max_.data()) &
         ((1u << count) - 1u);
}

}  // namespace kavo::planning::internal

#endif  // HWY_ONCE
