#include "kavo/motion_planning/spatial_data_structures/box_rows_internal.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/motion_planning/spatial_data_structures/box_rows.cpp"
#include <hwy/cache_control.h>
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <new>
#include <utility>

HWY_BEFORE_NAMESPACE();
namespace kavo::planning::internal::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Lanes hold different boxes; what a box gives is computed coordinate by coordinate. Lanes behind the last
// box compute nonsense that nobody reads.
using Tag = hn::CappedTag<double, BoxRows::kPadding / 2>;
using Vec = hn::Vec<Tag>;

// The terms of the squared distances along one axis.
template <bool kPoints>
Vec SquaredGap(Vec point, const double* HWY_RESTRICT min, const double* HWY_RESTRICT max) {
  const Tag d;
  Vec gap = hn::Sub(hn::LoadU(d, min), point);
  if constexpr (!kPoints) {
    gap = hn::Max(hn::Max(gap, hn::Sub(point, hn::LoadU(d, max))), hn::Zero(d));
  }
  return hn::Mul(gap, gap);
}

// `kDimension` is the dimension if it is known when compiling (the point then stays in registers), else zero.
template <bool kPoints, std::size_t kDimension>
int NearerOf(const BoxRows::Rows& rows, const double* HWY_RESTRICT point, double squared_limit,
             int* HWY_RESTRICT indices, double* HWY_RESTRICT squared_distances) {
  const Tag d;
  const std::size_t lanes = hn::Lanes(d);
  const std::size_t dimension = kDimension != 0 ? kDimension : rows.dimension;
  const Vec limit = hn::Set(d, squared_limit);
  HWY_ALIGN double sums[BoxRows::kPadding];
  int num_nearer = 0;
  for (std::size_t begin = 0; begin < rows.size; begin += 2 * lanes) {
    Vec sum0 = hn::Zero(d);
    Vec sum1 = hn::Zero(d);
    const double* HWY_RESTRICT min = rows.min + begin;
    const double* HWY_RESTRICT max = min + rows.max_offset;
    for (std::size_t axis = 0; axis < dimension; ++axis) {
      const Vec q = hn::Set(d, point[axis]);
      sum0 = hn::Add(sum0, SquaredGap<kPoints>(q, min, max));
      sum1 = hn::Add(sum1, SquaredGap<kPoints>(q, min + lanes, max + lanes));
      min += rows.stride;
      max += rows.stride;
    }
    if (HWY_LIKELY(hn::AllFalse(d, hn::Or(hn::Lt(sum0, limit), hn::Lt(sum1, limit))))) {
      continue;
    }
    hn::Store(sum0, d, sums);
    hn::Store(sum1, d, sums + lanes);
    const std::size_t count = HWY_MIN(2 * lanes, rows.size - begin);
    for (std::size_t lane = 0; lane < count; ++lane) {
      indices[num_nearer] = static_cast<int>(begin + lane);
      squared_distances[num_nearer] = sums[lane];
      num_nearer += sums[lane] < squared_limit ? 1 : 0;
    }
  }
  return num_nearer;
}

template <bool kPoints>
int NearerOfDimension(const BoxRows::Rows& rows, const double* point, double squared_limit, int* indices,
                      double* squared_distances) {
  switch (rows.dimension) {
    case 3:
      return NearerOf<kPoints, 3>(rows, point, squared_limit, indices, squared_distances);
    case 6:
      return NearerOf<kPoints, 6>(rows, point, squared_limit, indices, squared_distances);
    case 7:
      return NearerOf<kPoints, 7>(rows, point, squared_limit, indices, squared_distances);
    default:
      return NearerOf<kPoints, 0>(rows, point, squared_limit, indices, squared_distances);
  }
}

int NearerPoints(const BoxRows::Rows& rows, const double* point, double squared_limit, int* indices,
                 double* squared_distances) {
  return NearerOfDimension<true>(rows, point, squared_limit, indices, squared_distances);
}

int NearerBoxes(const BoxRows::Rows& rows, const double* point, double squared_limit, int* indices,
                double* squared_distances) {
  return NearerOfDimension<false>(rows, point, squared_limit, indices, squared_distances);
}

void VolumeIncreases(const BoxRows::Rows& rows, BoxRef box, double* HWY_RESTRICT increases) {
  const Tag d;
  for (std::size_t begin = 0; begin < rows.size; begin += hn::Lanes(d)) {
    Vec enlarged = hn::Set(d, 1.0);
    Vec volume = enlarged;
    const double* HWY_RESTRICT row = rows.min + begin;
    for (std::size_t axis = 0; axis < rows.dimension; ++axis) {
      const Vec min = hn::LoadU(d, row);
      const Vec max = hn::LoadU(d, row + rows.max_offset);
      volume = hn::Mul(volume, hn::Sub(max, min));
      enlarged = hn::Mul(enlarged, hn::Sub(hn::Max(max, hn::Set(d, box.max[axis])),
                                           hn::Min(min, hn::Set(d, box.min[axis]))));
      row += rows.stride;
    }
    hn::StoreU(hn::Sub(enlarged, volume), d, increases + begin);
  }
}

void CentroidDistances(const BoxRows::Rows& rows, BoxRef box, double* HWY_RESTRICT distances) {
  const Tag d;
  const Vec zero = hn::Zero(d);
  const Vec half = hn::Set(d, 0.5);
  for (std::size_t begin = 0; begin < rows.size; begin += hn::Lanes(d)) {
    Vec sum = zero;
    const double* HWY_RESTRICT row = rows.min + begin;
    for (std::size_t axis = 0; axis < rows.dimension; ++axis) {
      const Vec min = hn::LoadU(d, row);
      const Vec max = hn::LoadU(d, row + rows.max_offset);
      const Vec centroid = hn::Add(min, hn::Mul(half, hn::Sub(max, min)));
      const Vec gap = hn::Max(
          hn::Max(hn::Sub(hn::Set(d, box.min[axis]), centroid), hn::Sub(centroid, hn::Set(d, box.max[axis]))),
          zero);
      sum = hn::Add(sum, hn::Mul(gap, gap));
      row += rows.stride;
    }
    hn::StoreU(hn::Sqrt(sum), d, distances + begin);
  }
}

void Overlaps(const BoxRows::Rows& rows, BoxRef box0, BoxRef box1, double* HWY_RESTRICT overlaps0,
              double* HWY_RESTRICT overlaps1) {
  const Tag d;
  const Vec zero = hn::Zero(d);
  for (std::size_t begin = 0; begin < rows.size; begin += hn::Lanes(d)) {
    Vec volume0 = hn::Set(d, 1.0);
    Vec volume1 = volume0;
    const double* HWY_RESTRICT row = rows.min + begin;
    for (std::size_t axis = 0; axis < rows.dimension; ++axis) {
      const Vec min = hn::LoadU(d, row);
      const Vec max = hn::LoadU(d, row + rows.max_offset);
      const auto extent = [&](BoxRef box) HWY_ATTR {
        return hn::Max(
            hn::Sub(hn::Min(max, hn::Set(d, box.max[axis])), hn::Max(min, hn::Set(d, box.min[axis]))), zero);
      };
      volume0 = hn::Mul(volume0, extent(box0));
      volume1 = hn::Mul(volume1, extent(box1));
      row += rows.stride;
    }
    hn::StoreU(volume0, d, overlaps0 + begin);
    hn::StoreU(volume1, d, overlaps1 + begin);
  }
}

// The smallest and the largest number of a row.
void RowBounds(const double* HWY_RESTRICT min_row, const double* HWY_RESTRICT max_row, std::size_t size,
               double* HWY_RESTRICT min, double* HWY_RESTRICT max) {
  const Tag d;
  const std::size_t lanes = hn::Lanes(d);
  std::size_t i = 0;
  double lowest = min_row[0];
  double highest = max_row[0];
  if (size >= lanes) {
    Vec lowest_of_lane = hn::LoadU(d, min_row);
    Vec highest_of_lane = hn::LoadU(d, max_row);
    for (i = lanes; i + lanes <= size; i += lanes) {
      lowest_of_lane = hn::Min(lowest_of_lane, hn::LoadU(d, min_row + i));
      highest_of_lane = hn::Max(highest_of_lane, hn::LoadU(d, max_row + i));
    }
    lowest = hn::GetLane(hn::MinOfLanes(d, lowest_of_lane));
    highest = hn::GetLane(hn::MaxOfLanes(d, highest_of_lane));
  }
  for (; i < size; ++i) {
    lowest = std::min(lowest, min_row[i]);
    highest = std::max(highest, max_row[i]);
  }
  *min = lowest;
  *max = highest;
}

void Union(const BoxRows::Rows& rows, double* min, double* max) {
  for (std::size_t axis = 0; axis < rows.dimension; ++axis) {
    const double* const row = rows.min + axis * rows.stride;
    RowBounds(row, row + rows.max_offset, rows.size, min + axis, max + axis);
  }
}

}  // namespace kavo::planning::internal::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kavo::planning::internal {

HWY_EXPORT(NearerPoints);
HWY_EXPORT(NearerBoxes);
HWY_EXPORT(VolumeIncreases);
HWY_EXPORT(CentroidDistances);
HWY_EXPORT(Overlaps);
HWY_EXPORT(Union);

int BoxRows::Nearer(const double* point, double squared_limit, int* indices,
                    double* squared_distances) const {
  if (ArePoints()) {
    return HWY_DYNAMIC_DISPATCH(NearerPoints)(GetRows(), point, squared_limit, indices, squared_distances);
  }
  return HWY_DYNAMIC_DISPATCH(NearerBoxes)(GetRows(), point, squared_limit, indices, squared_distances);
}

void BoxRows::VolumeIncreases(BoxRef box, double* increases) const {
  HWY_DYNAMIC_DISPATCH(VolumeIncreases)(GetRows(), box, increases);
}

void BoxRows::CentroidDistances(BoxRef box, double* distances) const {
  HWY_DYNAMIC_DISPATCH(CentroidDistances)(GetRows(), box, distances);
}

void BoxRows::Overlaps(BoxRef box0, BoxRef box1, double* overlaps0, double* overlaps1) const {
  HWY_DYNAMIC_DISPATCH(Overlaps)(GetRows(), box0, box1, overlaps0, overlaps1);
}

void BoxRows::Union(double* min, double* max) const { HWY_DYNAMIC_DISPATCH(Union)(GetRows(), min, max); }

BoundingBox BoxRows::Box(int index) const {
  Eigen::VectorXd min(dimension_);
  Eigen::VectorXd max(dimension_);
  Copy(index, min.data(), max.data());
  return BoundingBox(kinematics::ConfigurationLimits(min, max));
}

void BoxRows::Append(BoxRef box, int max_size) {
  constexpr int kFirstStride = 36;
  if (size_ == stride_) {
    const int larger = std::max(size_ + 1, std::min(max_size, std::max(kFirstStride, 2 * size_)));
    // Whole vectors, so that rows begin where memory is aligned.
    constexpr int kLanes = kPadding / 2;
    Reallocate((larger + kLanes - 1) / kLanes * kLanes, ArePoints());
  }
  ++size_;
  Replace(size_ - 1, box);
}

void BoxRows::Replace(int index, BoxRef box) {
  if (ArePoints() && !std::equal(box.min, box.min + dimension_, box.max)) {
    Reallocate(stride_, false);
  }
  for (int axis = 0; axis < dimension_; ++axis) {
    double* const row = Row(axis);
    row[index] = box.min[axis];
    (row + max_offset_)[index] = box.max[axis];
  }
}

void BoxRows::Copy(int index, double* min, double* max) const {
  for (int axis = 0; axis < dimension_; ++axis) {
    min[axis] = Min(index, axis);
    max[axis] = Max(index, axis);
  }
}

void BoxRows::Prefetch() const {
  constexpr std::size_t kCacheLine = 64 / sizeof(double);
  const std::size_t num_rows = static_cast<std::size_t>(dimension_) * (ArePoints() ? 1 : 2);
  const std::size_t num_numbers = num_rows * static_cast<std::size_t>(stride_);
  for (std::size_t i = 0; i < num_numbers; i += kCacheLine) {
    hwy::Prefetch(rows_.get() + i);
  }
}

void BoxRows::Reallocate(int stride, bool points) {
  const std::size_t num_numbers =
      static_cast<std::size_t>(stride) * static_cast<std::size_t>(dimension_) * (points ? 1 : 2) + kPadding;
  auto rows = hwy::AllocateAligned<double>(num_numbers);
  if (!rows) {
    throw std::bad_alloc();
  }
  std::fill_n(rows.get(), num_numbers, 0.0);
  const std::ptrdiff_t max_offset = points ? 0 : std::ptrdiff_t{stride} * dimension_;
  for (int axis = 0; axis < dimension_; ++axis) {
    double* const row = rows.get() + std::ptrdiff_t{axis} * stride;
    for (int i = 0; i < size_; ++i) {
      row[i] = Min(i, axis);
      (row + max_offset)[i] = Max(i, axis);
    }
  }
  rows_ = std::move(rows);
  stride_ = stride;
  max_offset_ = max_offset;
}

}  // namespace kavo::planning::internal

#endif  // HWY_ONCE
