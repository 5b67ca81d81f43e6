#include <algorithm>
#include <limits>

#include "kavo/math/lane_transforms_internal.h"
#include "kavo/motion_planning/environment/limit_lanes_internal.h"

// This file is compiled once for each set of wide vectors; the include below repeats it.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/motion_planning/environment/limit_lanes.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kavo::planning::internal::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

std::uint32_t WithinInLanes(const double* coordinates, std::size_t dimension, const double* min,
                            const double* max) {
  const hn::CappedTag<double, math::kNumLanes> d;
  std::uint32_t within = 0;
  for (std::size_t lane = 0; lane < math::kNumLanes; lane += hn::Lanes(d)) {
    auto in = hn::Not(hn::FirstN(d, 0));
    for (std::size_t i = 0; i < dimension; ++i) {
      const auto q = hn::LoadU(d, coordinates + i * math::kNumLanes + lane);
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
    : coordinates_(static_cast<std::size_t>(min.size()) * math::kNumLanes) {
  // A limit that is no number is none, and no infinite value is within any.
  constexpr double kLargest = std::numeric_limits<double>::max();
  for (Eigen::Index i = 0; i < min.size(); ++i) {
    min_.push_back(min[i] > -kLargest ? min[i] : -kLargest);
    max_.push_back(max[i] < kLargest ? max[i] : kLargest);
  }
}

std::uint32_t LimitLanes::TakeIn(const double* batch, std::ptrdiff_t stride, int count) {
  constexpr int kAll = static_cast<int>(math::kNumLanes);
  double* lanes = coordinates_.data();
  for (std::size_t i = 0; i < min_.size(); ++i, ++batch, lanes += kAll) {
    if (count == kAll) {
      for (int k = 0; k < kAll; ++k) {
        lanes[k] = batch[k * stride];
      }
    } else {
      for (int k = 0; k < count; ++k) {
        lanes[k] = batch[k * stride];
      }
      std::fill(lanes + count, lanes + kAll, lanes[count - 1]);
    }
  }
  return HWY_DYNAMIC_DISPATCH(WithinInLanes)(coordinates_.data(), min_.size(), min_.data(), max_.data()) &
         ((1u << count) - 1u);
}

}  // namespace kavo::planning::internal

#endif  // HWY_ONCE
