#include "kavo/motion_planning/tree/nearest_scan_internal.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/motion_planning/tree/nearest_scan.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <utility>

HWY_BEFORE_NAMESPACE();
namespace kavo::planning::internal::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// One part of a scan: goes on from `best` over the points of a chunk, of which the first has index
// `first_index`. `kDimension` is the dimension if it is known when compiling (the query then stays in
// registers), else zero.
template <bool kWeighted, bool kRoot, std::size_t kDimension>
void ScanChunk(const double* HWY_RESTRICT chunk, std::size_t num_points, std::size_t dynamic_dimension,
               const double* HWY_RESTRICT query, const double* HWY_RESTRICT weights, std::size_t first_index,
               NearestScan::Result& best) {
  const std::size_t dimension = kDimension != 0 ? kDimension : dynamic_dimension;
  const hn::CappedTag<double, NearestScan::kBlock / 2> d;
  const std::size_t lanes = hn::Lanes(d);
  HWY_ALIGN double sums[NearestScan::kBlock];
  const double* HWY_RESTRICT coordinates = chunk;
  // From the end of a block's first coordinate to the next block. Negative, and right, without coordinates.
  const auto block_rest = (static_cast<std::ptrdiff_t>(dimension) - 1) * std::ptrdiff_t{NearestScan::kBlock};
  for (std::size_t begin = 0; begin < num_points; begin += 2 * lanes) {
    // Each lane sums the terms of its own point in coordinate order.
    auto sum0 = hn::Zero(d);
    auto sum1 = hn::Zero(d);
    for (std::size_t i = 0; i < dimension; ++i) {
      const auto q = hn::Set(d, query[i]);
      const auto difference0 = hn::Sub(q, hn::Load(d, coordinates + i * NearestScan::kBlock));
      const auto difference1 = hn::Sub(q, hn::Load(d, coordinates + i * NearestScan::kBlock + lanes));
      auto term0 = hn::Mul(difference0, difference0);
      auto term1 = hn::Mul(difference1, difference1);
      if constexpr (kWeighted) {
        const auto weight = hn::Set(d, weights[i]);
        term0 = hn::Mul(weight, term0);
        term1 = hn::Mul(weight, term1);
      }
      sum0 = hn::Add(sum0, term0);
      sum1 = hn::Add(sum1, term1);
    }
    // On to the next places of the block, or to the next block.
    coordinates += 2 * lanes;
    if ((begin + 2 * lanes) % NearestScan::kBlock == 0) {
      coordinates += block_rest;
    }
    const auto limit = hn::Set(d, best.sum);
    if (HWY_LIKELY(hn::AllFalse(d, hn::Or(hn::Lt(sum0, limit), hn::Lt(sum1, limit))))) {
      continue;
    }
    hn::Store(sum0, d, sums);
    hn::Store(sum1, d, sums + lanes);
    for (std::size_t lane = 0; lane < 2 * lanes; ++lane) {
      if (sums[lane] < best.sum) {
        // Different sums may have one root. The plain loop compares roots, so the earlier point keeps its
        // place.
        const double distance = kRoot ? std::sqrt(sums[lane]) : sums[lane];
        if (best.distance > distance) {
          best = {first_index + begin + lane, distance, sums[lane]};
        }
      }
    }
  }
}

template <bool kWeighted, bool kRoot>
void ScanOfDimension(const double* chunk, std::size_t num_points, std::size_t dimension, const double* query,
                     const double* weights, std::size_t first_index, NearestScan::Result& best) {
  switch (dimension) {
    case 3:
      return ScanChunk<kWeighted, kRoot, 3>(chunk, num_points, dimension, query, weights, first_index, best);
    case 6:
      return ScanChunk<kWeighted, kRoot, 6>(chunk, num_points, dimension, query, weights, first_index, best);
    case 7:
      return ScanChunk<kWeighted, kRoot, 7>(chunk, num_points, dimension, query, weights, first_index, best);
    default:
      return ScanChunk<kWeighted, kRoot, 0>(chunk, num_points, dimension, query, weights, first_index, best);
  }
}

void ScanL2(const double* chunk, std::size_t num_points, std::size_t dimension, const double* query,
            const double* weights, std::size_t first_index, NearestScan::Result& best) {
  ScanOfDimension<false, true>(chunk, num_points, dimension, query, weights, first_index, best);
}

void ScanSquaredL2(const double* chunk, std::size_t num_points, std::size_t dimension, const double* query,
                   const double* weights, std::size_t first_index, NearestScan::Result& best) {
  ScanOfDimension<false, false>(chunk, num_points, dimension, query, weights, first_index, best);
}

void ScanWeightedSquaredL2(const double* chunk, std::size_t num_points, std::size_t dimension,
                           const double* query, const double* weights, std::size_t first_index,
                           NearestScan::Result& best) {
  ScanOfDimension<true, false>(chunk, num_points, dimension, query, weights, first_index, best);
}

}  // namespace kavo::planning::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::planning::internal {

HWY_EXPORT(ScanL2);
HWY_EXPORT(ScanSquaredL2);
HWY_EXPORT(ScanWeightedSquaredL2);

namespace {

constexpr std::size_t kChunk = NearestScan::kBlock * NearestScan::kBlocksPerChunk;

}  // namespace

void NearestScan::Append(const double* point) {
  const std::size_t in_chunk = size_ % kChunk;
  const std::size_t chunk = size_ / kChunk;
  if (chunk == chunks_.size()) {
    auto memory = hwy::AllocateAligned<double>(kChunk * std::max<std::size_t>(dimension_, 1));
    if (!memory) {
      throw std::bad_alloc();
    }
    chunks_.push_back(std::move(memory));
  }
  double* const block = chunks_[chunk].get() + in_chunk / kBlock * kBlock * dimension_;
  if (in_chunk % kBlock == 0) {
    std::fill_n(block, kBlock * dimension_, std::numeric_limits<double>::quiet_NaN());
  }
  for (std::size_t i = 0; i < dimension_; ++i) {
    block[i * kBlock + in_chunk % kBlock] = point[i];
  }
  ++size_;
}

NearestScan::Result NearestScan::Closest(Metric metric, const double* query, const double* weights) const {
  double sum = 0.0;
  for (std::size_t i = 0; i < dimension_; ++i) {
    const double difference = chunks_[0][i * kBlock] - query[i];
    const double term = difference * difference;
    sum += metric == Metric::kWeightedSquaredL2 ? weights[i] * term : term;
  }
  Result best{0, metric == Metric::kL2 ? std::sqrt(sum) : sum, sum};
  const auto scan = metric == Metric::kL2          ? &HWY_DYNAMIC_DISPATCH(ScanL2)
                    : metric == Metric::kSquaredL2 ? &HWY_DYNAMIC_DISPATCH(ScanSquaredL2)
                                                   : &HWY_DYNAMIC_DISPATCH(ScanWeightedSquaredL2);
  for (std::size_t begin = 0; begin < size_; begin += kChunk) {
    scan(chunks_[begin / kChunk].get(), std::min(kChunk, size_ - begin), dimension_, query, weights, begin,
         best);
  }
  return best;
}

}  // namespace kavo::planning::internal

#endif  // HWY_ONCE
