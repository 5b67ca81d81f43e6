#include "kavo/motion_planning/tree/nearest_scan_internal.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/motion_planning/tree/nearest_scan.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>

#include "kavo/math/constants_internal.h"
#include "kavo/motion_planning/tree/periodic_metric.h"

HWY_BEFORE_NAMESPACE();
namespace kavo::planning::internal::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

constexpr std::size_t kBlock = NearestScan::kBlock;

// `kDimension` is the dimension if it is known when compiling (the query then stays in registers), else zero.
template <bool kWeighted, bool kPeriodic, std::size_t kDimension>
float MeasureOf(const float* HWY_RESTRICT blocks, std::size_t num_blocks, std::size_t dynamic_dimension,
                const float* HWY_RESTRICT query, const float* HWY_RESTRICT weights,
                const float* HWY_RESTRICT periods, float least, float* HWY_RESTRICT sums) {
  const hn::CappedTag<float, kBlock> d;
  const std::size_t dimension = kDimension != 0 ? kDimension : dynamic_dimension;
  auto least_in_lanes = hn::Set(d, least);
  for (std::size_t block = 0; block < num_blocks; ++block, blocks += dimension * kBlock, sums += kBlock) {
    for (std::size_t lane = 0; lane < kBlock; lane += hn::Lanes(d)) {
      auto sum = hn::Zero(d);
      for (std::size_t i = 0; i < dimension; ++i) {
        auto difference = hn::Sub(hn::Set(d, query[i]), hn::Load(d, blocks + i * kBlock + lane));
        if constexpr (kPeriodic) {
          difference = hn::Abs(difference);
          difference = hn::Min(difference, hn::Abs(hn::Sub(hn::Set(d, periods[i]), difference)));
        }
        auto term = hn::Mul(difference, difference);
        if constexpr (kWeighted) {
          term = hn::Mul(hn::Set(d, weights[i]), term);
        }
        sum = hn::Add(sum, term);
      }
      hn::Store(sum, d, sums + lane);
      // Never NaN.
      least_in_lanes = hn::IfThenElse(hn::Lt(sum, least_in_lanes), sum, least_in_lanes);
    }
  }
  return hn::GetLane(hn::MinOfLanes(d, least_in_lanes));
}

template <bool kWeighted>
float MeasureOfDimension(const float* blocks, std::size_t num_blocks, std::size_t dimension,
                         const float* query, const float* weights, const float* periods, float least,
                         float* sums) {
  const auto measure = [&](auto function) {
    return function(blocks, num_blocks, dimension, query, weights, periods, least, sums);
  };
  if (periods != nullptr) {
    return measure(MeasureOf<kWeighted, true, 0>);
  }
  switch (dimension) {
    case 3:
      return measure(MeasureOf<kWeighted, false, 3>);
    case 6:
      return measure(MeasureOf<kWeighted, false, 6>);
    case 7:
      return measure(MeasureOf<kWeighted, false, 7>);
    default:
      return measure(MeasureOf<kWeighted, false, 0>);
  }
}

// Writes the sums of all points of some blocks. The least of them and of `least`.
// \param weights Null for one.
// \param periods Null for none.
float Measure(const float* blocks, std::size_t num_blocks, std::size_t dimension, const float* query,
              const float* weights, const float* periods, float least, float* sums) {
  return weights == nullptr
             ? MeasureOfDimension<false>(blocks, num_blocks, dimension, query, weights, periods, least, sums)
             : MeasureOfDimension<true>(blocks, num_blocks, dimension, query, weights, periods, least, sums);
}

// The first block from `first` on with a sum of at most `limit`, and which of its sums are; `num_blocks` if
// there is none.
std::size_t FindNear(const float* HWY_RESTRICT sums, std::size_t first, std::size_t num_blocks, float limit,
                     std::uint32_t* near) {
  const hn::CappedTag<float, kBlock> d;
  const auto limit_in_lanes = hn::Set(d, limit);
  *near = 0;
  for (std::size_t block = first; block < num_blocks; ++block) {
    for (std::size_t lane = 0; lane < kBlock; lane += hn::Lanes(d)) {
      const auto is_near = hn::Le(hn::Load(d, sums + block * kBlock + lane), limit_in_lanes);
      if (HWY_UNLIKELY(!hn::AllFalse(d, is_near))) {
        std::uint8_t bits[8] = {};
        hn::StoreMaskBits(d, is_near, bits);
        *near |= static_cast<std::uint32_t>(bits[0]) << lane;
      }
    }
    if (HWY_UNLIKELY(*near != 0)) {
      return block;
    }
  }
  return num_blocks;
}

}  // namespace kavo::planning::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::planning::internal {

HWY_EXPORT(Measure);
HWY_EXPORT(FindNear);

namespace {

constexpr std::size_t kBlock = NearestScan::kBlock;
constexpr std::size_t kChunk = kBlock * NearestScan::kBlocksPerChunk;

template <typename T>
hwy::AlignedFreeUniquePtr<T[]> Allocate(std::size_t count) {
  auto memory = hwy::AllocateAligned<T>(count);
  if (!memory) {
    throw std::bad_alloc();
  }
  return memory;
}

double SizeOf(const double* point, std::size_t dimension) {
  double size = 0.0;
  for (std::size_t i = 0; i < dimension; ++i) {
    size = std::max(size, std::fabs(point[i]));
  }
  return size;
}

}  // namespace

NearestScan::NearestScan(Metric metric, std::size_t dimension, const double* weights,
                         const std::vector<Eigen::Index>& periodic_coordinates)
    : metric_(metric), dimension_(dimension) {
  for (const Eigen::Index coordinate : periodic_coordinates) {
    if (static_cast<std::size_t>(coordinate) < dimension) {
      periods_.resize(dimension, std::numeric_limits<float>::infinity());
      periods_[static_cast<std::size_t>(coordinate)] = static_cast<float>(math::kTwoPi);
    }
  }
  for (std::size_t i = 0; i < dimension; ++i) {
    const double weight = metric == Metric::kWeightedSquaredL2 ? weights[i] : 1.0;
    // Of negative weights nothing can be said.
    sum_of_weights_ += weight >= 0.0 ? weight : math::kInf;
    weights_.push_back(weight);
    scan_weights_.push_back(static_cast<float>(std::min(weight, 1e30)));
  }
}

void NearestScan::Clear() {
  size_ = 0;
  largest_ = 0.0;
}

void NearestScan::MakeRoom() {
  if (size_ / kChunk < chunks_.size()) {
    return;
  }
  // Nothing is counted before it is there.
  if (chunks_.size() == sums_in_chunks_) {
    const std::size_t sums_in_chunks = 2 * (chunks_.size() + 1);
    sums_ = Allocate<float>(sums_in_chunks * kChunk);
    sums_in_chunks_ = sums_in_chunks;
  }
  const std::size_t count = kChunk * std::max<std::size_t>(dimension_, 1);
  chunks_.push_back({Allocate<float>(count), Allocate<double>(count)});
}

void NearestScan::Append(const double* point) {
  const std::size_t in_chunk = size_ % kChunk;
  const std::size_t place = in_chunk % kBlock;
  MakeRoom();
  const Chunk& chunk = chunks_[size_ / kChunk];
  float* const block = chunk.blocks.get() + (in_chunk - place) * dimension_;
  if (place == 0) {
    std::fill_n(block, kBlock * dimension_, std::numeric_limits<float>::quiet_NaN());
  }
  double* const exact = chunk.points.get() + in_chunk * dimension_;
  const std::size_t dimension = dimension_;
  double largest = largest_;
  for (std::size_t i = 0; i < dimension; ++i) {
    exact[i] = point[i];
    block[i * kBlock + place] = ScanValue(i, point[i]);
    largest = std::max(largest, std::fabs(point[i]));
  }
  largest_ = largest;
  ++size_;
}

const double* NearestScan::Point(std::size_t index) const {
  return chunks_[index / kChunk].points.get() + index % kChunk * dimension_;
}

float NearestScan::ScanValue(std::size_t coordinate, double value) const {
  const bool is_periodic = !periods_.empty() && std::isfinite(periods_[coordinate]);
  return static_cast<float>(is_periodic ? value + WholeTurns(value, 0.0) : value);
}

double NearestScan::Sum(std::size_t index, const double* query) const {
  const double* const point = Point(index);
  double sum = 0.0;
  for (std::size_t i = 0; i < dimension_; ++i) {
    double nearest = query[i];
    if (!periods_.empty() && std::isfinite(periods_[i])) {
      nearest += WholeTurns(nearest, point[i]);
    }
    const double difference = point[i] - nearest;
    const double term = difference * difference;
    sum += metric_ == Metric::kWeightedSquaredL2 ? weights_[i] * term : term;
  }
  return sum;
}

// Goes over to a point that is strictly nearer than the best one so far.
void NearestScan::Consider(std::size_t index, const double* query, Result& best) const {
  const double sum = Sum(index, query);
  if (sum < best.sum) {
    // Different sums may have one root. The plain loop compares roots, so the earlier point keeps its place.
    const double distance = metric_ == Metric::kL2 ? std::sqrt(sum) : sum;
    if (best.distance > distance) {
      best = {index, distance, sum};
    }
  }
}

NearestScan::Result NearestScan::Closest(const double* query) const {
  const double sum = Sum(0, query);
  Result best{0, metric_ == Metric::kL2 ? std::sqrt(sum) : sum, sum};
  // Where values repeat the scan takes differences of half a turn at most from a whole one.
  const double largest =
      std::max({largest_, SizeOf(query, dimension_), periods_.empty() ? 0.0 : 2.0 * math::kTwoPi});
  // What single precision cannot hold is measured point by point: neither a square nor a weighted sum may
  // overflow, and weights must not all drown in what is too small.
  constexpr std::size_t kMostCoordinates = 64;
  if (!(largest * largest * std::max(sum_of_weights_, 1.0) <= 1e34) ||
      !(sum_of_weights_ >= 1e-20 && sum_of_weights_ <= 1e30) || dimension_ > kMostCoordinates) {
    for (std::size_t i = 0; i < size_; ++i) {
      Consider(i, query, best);
    }
    return best;
  }
  float scan_query[kMostCoordinates];
  for (std::size_t i = 0; i < dimension_; ++i) {
    scan_query[i] = ScanValue(i, query[i]);
  }
  const float* const weights = metric_ == Metric::kWeightedSquaredL2 ? scan_weights_.data() : nullptr;
  const float* const periods = periods_.empty() ? nullptr : periods_.data();
  const std::size_t num_blocks = (size_ + kBlock - 1) / kBlock;
  float least = std::numeric_limits<float>::max();
  for (std::size_t first = 0; first < num_blocks; first += kBlocksPerChunk) {
    least = HWY_DYNAMIC_DISPATCH(Measure)(chunks_[first / kBlocksPerChunk].blocks.get(),
                                          std::min(kBlocksPerChunk, num_blocks - first), dimension_,
                                          scan_query, weights, periods, least, sums_.get() + first * kBlock);
  }

  // Each difference is off by less than 2^-22 of the largest coordinate, and each rounding of the sum costs
  // 2^-24 of it. What the squares lose to numbers too small for single precision, times their weights, is
  // less than the least of them times the weights. So there is a point with a true sum of at most the first
  // bound, and none with a single-precision sum above the second is as near as that.
  const double off = std::sqrt(sum_of_weights_) * 0x1p-22 * largest;
  const double roundings = 1.0 + (static_cast<double>(dimension_) + 8.0) * 0x1p-22;
  const double lost = static_cast<double>(std::numeric_limits<float>::min()) * (1.0 + sum_of_weights_);
  double bound = static_cast<double>(least);
  for (int i = 0; i < 2; ++i) {
    const double distance = std::sqrt(bound) + off;
    bound = distance * distance * roundings + lost;
  }
  const auto limit =
      static_cast<float>(std::min(bound, static_cast<double>(std::numeric_limits<float>::max())));
  std::uint32_t near = 0;
  const auto find_near = HWY_DYNAMIC_DISPATCH(FindNear);
  for (std::size_t block = find_near(sums_.get(), 0, num_blocks, limit, &near); block < num_blocks;
       block = find_near(sums_.get(), block + 1, num_blocks, limit, &near)) {
    for (std::size_t place = 0; near >> place != 0; ++place) {
      if (((near >> place) & 1u) != 0) {
        Consider(block * kBlock + place, query, best);
      }
    }
  }
  return best;
}

}  // namespace kavo::planning::internal

#endif  // HWY_ONCE
