#include "kavo/motion_planning/spatial_data_structures/box_rows_internal.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kavo/motion_planning/spatial_data_structures/box_rows.cpp"
#include <hwy/cache_control.h>
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <numeric>
#include <type_traits>
#include <utility>

HWY_BEFORE_NAMESPACE();
namespace kavo::planning::internal::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Lanes hold different boxes; what a box gives is computed coordinate by coordinate. Lanes behind the last
// box compute nonsense that nobody reads.
using Tag = hn::CappedTag<double, BoxRows::kPadding / 2>;
using Vec = hn::Vec<Tag>;

using RoughTag = hn::CappedTag<float, BoxRows::kRoughPadding>;
using RoughVec = hn::Vec<RoughTag>;

// The terms of the squared distances along one axis.
template <bool kPoints, class D>
HWY_INLINE hn::Vec<D> SquaredGap(D d, hn::Vec<D> point, const hn::TFromD<D>* HWY_RESTRICT min,
                                 const hn::TFromD<D>* HWY_RESTRICT max) {
  auto gap = hn::Sub(hn::LoadU(d, min), point);
  if constexpr (!kPoints) {
    gap = hn::Max(hn::Max(gap, hn::Sub(point, hn::LoadU(d, max))), hn::Zero(d));
  }
  return hn::Mul(gap, gap);
}

// Calls `function(point or box?, dimension)`, both as constants; the dimension is zero unless it is a usual
// one, for which what is the same for all boxes stays in registers.
template <class Function>
HWY_INLINE auto WithConstants(const BoxRows::Rows& rows, const Function& function) {
  const auto with_dimension = [&](auto points) {
    switch (rows.dimension) {
      case 3:
        return function(points, std::integral_constant<std::size_t, 3>());
      case 6:
        return function(points, std::integral_constant<std::size_t, 6>());
      case 7:
        return function(points, std::integral_constant<std::size_t, 7>());
      default:
        return function(points, std::integral_constant<std::size_t, 0>());
    }
  };
  return rows.max_offset == 0 ? with_dimension(std::true_type()) : with_dimension(std::false_type());
}

template <bool kPoints, std::size_t kDimension>
int NearerOf(const BoxRows::Rows& rows, const double* HWY_RESTRICT point, double squared_limit,
             int* HWY_RESTRICT indices, double* HWY_RESTRICT squared_distances) {
  const Tag d;
  const std::size_t dimension = kDimension != 0 ? kDimension : rows.dimension;
  const Vec limit = hn::Set(d, squared_limit);
  HWY_ALIGN double sums[BoxRows::kPadding];
  int num_nearer = 0;
  for (std::size_t begin = 0; begin < rows.size; begin += hn::Lanes(d)) {
    Vec sum = hn::Zero(d);
    const double* HWY_RESTRICT min = rows.min + begin;
    for (std::size_t axis = 0; axis < dimension; ++axis, min += rows.stride) {
      sum = hn::Add(sum, SquaredGap<kPoints>(d, hn::Set(d, point[axis]), min, min + rows.max_offset));
    }
    if (hn::AllFalse(d, hn::Lt(sum, limit))) {
      continue;
    }
    hn::Store(sum, d, sums);
    const std::size_t count = HWY_MIN(hn::Lanes(d), rows.size - begin);
    for (std::size_t lane = 0; lane < count; ++lane) {
      indices[num_nearer] = static_cast<int>(begin + lane);
      squared_distances[num_nearer] = sums[lane];
      num_nearer += sums[lane] < squared_limit ? 1 : 0;
    }
  }
  return num_nearer;
}

int Nearer(const BoxRows::Rows& rows, const double* point, double squared_limit, int* indices,
           double* squared_distances) {
  return WithConstants(rows, [&](auto points, auto dimension) {
    return NearerOf<points(), dimension()>(rows, point, squared_limit, indices, squared_distances);
  });
}

// Writes the numbers of the lanes that are set, counted from `begin`, up to `size`. Returns how many.
template <class D, class M>
HWY_INLINE int AppendSet(D d, M is_set, std::size_t begin, std::size_t size, int* HWY_RESTRICT indices) {
  std::uint8_t bytes[8] = {};
  hn::StoreMaskBits(d, is_set, bytes);
  int count = 0;
  for (std::uint32_t bits = bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8; bits != 0;
       bits &= bits - 1) {
    const std::size_t index = begin + hwy::Num0BitsBelowLS1Bit_Nonzero32(bits);
    if (index < size) {
      indices[count++] = static_cast<int>(index);
    }
  }
  return count;
}

// The boxes whose squared distance to the point, in single precision, is at most the limit. Returns their
// number.
template <bool kPoints, std::size_t kDimension>
int RoughlyNearerOf(const BoxRows::Rows& rows, const float* HWY_RESTRICT point, float squared_limit,
                    int* HWY_RESTRICT indices) {
  const RoughTag d;
  const std::size_t dimension = kDimension != 0 ? kDimension : rows.dimension;
  const RoughVec limit = hn::Set(d, squared_limit);
  int num_nearer = 0;
  for (std::size_t begin = 0; begin < rows.size; begin += hn::Lanes(d)) {
    RoughVec sum = hn::Zero(d);
    const float* HWY_RESTRICT min = rows.rough_min + begin;
    for (std::size_t axis = 0; axis < dimension; ++axis, min += rows.stride) {
      sum = hn::Add(sum, SquaredGap<kPoints>(d, hn::Set(d, point[axis]), min, min + rows.max_offset));
    }
    const auto is_near = hn::Le(sum, limit);
    if (HWY_LIKELY(hn::AllFalse(d, is_near))) {
      continue;
    }
    num_nearer += AppendSet(d, is_near, begin, rows.size, indices + num_nearer);
  }
  return num_nearer;
}

int RoughlyNearer(const BoxRows::Rows& rows, const float* point, float squared_limit, int* indices) {
  return WithConstants(rows, [&](auto points, auto dimension) {
    return RoughlyNearerOf<points(), dimension()>(rows, point, squared_limit, indices);
  });
}

// The squared distances of a box to the boxes' centroids in single precision. The least of them.
template <bool kPoints, std::size_t kDimension>
float RoughCentroidsOf(const BoxRows::Rows& rows, const float* HWY_RESTRICT box_min,
                       const float* HWY_RESTRICT box_max, float* HWY_RESTRICT sums) {
  const RoughTag d;
  const std::size_t dimension = kDimension != 0 ? kDimension : rows.dimension;
  const RoughVec half = hn::Set(d, 0.5f);
  RoughVec least = hn::Set(d, std::numeric_limits<float>::max());
  for (std::size_t begin = 0; begin < rows.size; begin += hn::Lanes(d)) {
    RoughVec sum = hn::Zero(d);
    const float* HWY_RESTRICT row = rows.rough_min + begin;
    for (std::size_t axis = 0; axis < dimension; ++axis, row += rows.stride) {
      RoughVec centroid = hn::LoadU(d, row);
      if constexpr (!kPoints) {
        const RoughVec max = hn::LoadU(d, row + rows.max_offset);
        centroid = hn::Add(centroid, hn::Mul(half, hn::Sub(max, centroid)));
      }
      const RoughVec gap = hn::Max(
          hn::Max(hn::Sub(hn::Set(d, box_min[axis]), centroid), hn::Sub(centroid, hn::Set(d, box_max[axis]))),
          hn::Zero(d));
      sum = hn::Add(sum, hn::Mul(gap, gap));
    }
    hn::StoreU(sum, d, sums + begin);
    least = hn::IfThenElse(hn::FirstN(d, rows.size - begin), hn::Min(least, sum), least);
  }
  return hn::GetLane(hn::MinOfLanes(d, least));
}

float RoughCentroids(const BoxRows::Rows& rows, const float* box_min, const float* box_max, float* sums) {
  return WithConstants(rows, [&](auto points, auto dimension) {
    return RoughCentroidsOf<points(), dimension()>(rows, box_min, box_max, sums);
  });
}

// The indices of the numbers that are at most the limit. Returns how many.
int AtMost(const float* HWY_RESTRICT numbers, std::size_t size, float limit, int* HWY_RESTRICT indices) {
  const RoughTag d;
  const RoughVec limit_in_lanes = hn::Set(d, limit);
  int count = 0;
  for (std::size_t begin = 0; begin < size; begin += hn::Lanes(d)) {
    const auto is_at_most = hn::Le(hn::LoadU(d, numbers + begin), limit_in_lanes);
    if (HWY_UNLIKELY(!hn::AllFalse(d, is_at_most))) {
      count += AppendSet(d, is_at_most, begin, size, indices + count);
    }
  }
  return count;
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

HWY_EXPORT(Nearer);
HWY_EXPORT(RoughlyNearer);
HWY_EXPORT(RoughCentroids);
HWY_EXPORT(AtMost);
HWY_EXPORT(VolumeIncreases);
HWY_EXPORT(CentroidDistances);
HWY_EXPORT(Overlaps);
HWY_EXPORT(Union);

namespace {

// Coordinates for which there is room where single precision is asked.
constexpr int kMostRoughCoordinates = 64;

double CentroidDistance(const BoxRows::Rows& rows, std::size_t index, BoxRef box) {
  double sum = 0.0;
  for (std::size_t axis = 0; axis < rows.dimension; ++axis) {
    const double min = rows.min[axis * rows.stride + index];
    const double max = (rows.min + rows.max_offset)[axis * rows.stride + index];
    const double centroid = min + 0.5 * (max - min);
    const double gap = std::max(std::max(box.min[axis] - centroid, centroid - box.max[axis]), 0.0);
    sum += gap * gap;
  }
  return std::sqrt(sum);
}

// Of points there is one row only to read.
template <bool kPoints>
double SquaredDistance(const BoxRows::Rows& rows, std::size_t index, const double* point) {
  double sum = 0.0;
  const double* min = rows.min + index;
  for (std::size_t axis = 0; axis < rows.dimension; ++axis, min += rows.stride) {
    double gap = *min - point[axis];
    if constexpr (!kPoints) {
      gap = std::max(std::max(gap, point[axis] - min[rows.max_offset]), 0.0);
    }
    sum += gap * gap;
  }
  return sum;
}

}  // namespace

bool BoxRows::MakeRough(const double* point, float* rough, double& largest) const {
  if (dimension_ > kMostRoughCoordinates) {
    return false;
  }
  for (int axis = 0; axis < dimension_; ++axis) {
    rough[axis] = static_cast<float>(point[axis]);
    largest = std::max(largest, std::fabs(point[axis]));
  }
  return largest * largest * dimension_ <= 1e34;
}

// A gap is off by less than 2^-21 of the largest coordinate, so a distance d by less than e = 2^-21 times
// that times the root of the dimension; 2 d e is at most 2^-12 d^2 + 2^12 e^2. The roundings of the sum cost
// far less than another 2^-12 of it; what is lost where squares are too small for single precision is added.
double BoxRows::Widened(double squared_distance, double largest) const {
  return squared_distance * (1.0 + 0x1p-11) +
         dimension_ * (largest * largest * 0x1p-29 + static_cast<double>(std::numeric_limits<float>::min()));
}

int BoxRows::Nearer(const double* point, double squared_limit, int* indices,
                    double* squared_distances) const {
  float rough_point[kMostRoughCoordinates];
  double largest = largest_;
  const bool is_rough = MakeRough(point, rough_point, largest);
  const double rough_limit = Widened(squared_limit, largest);
  if (!is_rough || !(rough_limit <= 1e34)) {
    return HWY_DYNAMIC_DISPATCH(Nearer)(GetRows(), point, squared_limit, indices, squared_distances);
  }
  const Rows rows = GetRows();
  const int num_rough =
      HWY_DYNAMIC_DISPATCH(RoughlyNearer)(rows, rough_point, static_cast<float>(rough_limit), indices);
  const auto measure = ArePoints() ? &SquaredDistance<true> : &SquaredDistance<false>;
  int num_nearer = 0;
  for (int i = 0; i < num_rough; ++i) {
    const double squared_distance = measure(rows, static_cast<std::size_t>(indices[i]), point);
    indices[num_nearer] = indices[i];
    squared_distances[num_nearer] = squared_distance;
    num_nearer += squared_distance < squared_limit ? 1 : 0;
  }
  return num_nearer;
}

int BoxRows::MaybeNearestCentroids(BoxRef box, int* indices) const {
  float rough_min[kMostRoughCoordinates];
  float rough_max[kMostRoughCoordinates];
  double largest = largest_;
  if (!MakeRough(box.min, rough_min, largest) || !MakeRough(box.max, rough_max, largest)) {
    std::iota(indices, indices + size_, 0);
    return size_;
  }
  EntryBuffer<float> sums(size_ + kRoughPadding);
  const float least = HWY_DYNAMIC_DISPATCH(RoughCentroids)(GetRows(), rough_min, rough_max, sums.data());
  // The nearest one's squared distance is at most the inner number.
  const double limit = Widened(Widened(static_cast<double>(least), largest), largest);
  return HWY_DYNAMIC_DISPATCH(AtMost)(sums.data(), static_cast<std::size_t>(size_), static_cast<float>(limit),
                                      indices);
}

int BoxRows::MaybeNearest(const double* point, int* indices, double* squared_distances) const {
  if (!ArePoints()) {
    return Nearer(point, std::numeric_limits<double>::infinity(), indices, squared_distances);
  }
  const int count = MaybeNearestCentroids({point, point}, indices);
  for (int i = 0; i < count; ++i) {
    squared_distances[i] = SquaredDistance<true>(GetRows(), static_cast<std::size_t>(indices[i]), point);
  }
  return count;
}

int BoxRows::NearestCentroid(BoxRef box) const {
  EntryBuffer<int> indices(size_);
  const int count = MaybeNearestCentroids(box, indices.data());
  int nearest = -1;
  double least = std::numeric_limits<double>::infinity();
  for (int i = 0; i < count; ++i) {
    const double distance = CentroidDistance(GetRows(), static_cast<std::size_t>(indices[i]), box);
    if (distance < least) {
      nearest = indices[i];
      least = distance;
    }
  }
  return nearest;
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
  KeepRough(index);
}

void BoxRows::KeepRough(int index) {
  for (int axis = 0; axis < dimension_; ++axis) {
    const double min = Min(index, axis);
    const double max = Max(index, axis);
    float* const row = rough_rows_.get() + std::ptrdiff_t{axis} * stride_ + index;
    *row = static_cast<float>(min);
    row[max_offset_] = static_cast<float>(max);
    largest_ = std::max(largest_, std::max(std::fabs(min), std::fabs(max)));
  }
}

void BoxRows::Copy(int index, double* min, double* max) const {
  for (int axis = 0; axis < dimension_; ++axis) {
    min[axis] = Min(index, axis);
    max[axis] = Max(index, axis);
  }
}

void BoxRows::Prefetch() const {
  constexpr std::size_t kCacheLine = 64 / sizeof(float);
  const std::size_t num_rows = static_cast<std::size_t>(dimension_) * (ArePoints() ? 1 : 2);
  const std::size_t num_numbers = num_rows * static_cast<std::size_t>(stride_);
  for (std::size_t i = 0; i < num_numbers; i += kCacheLine) {
    hwy::Prefetch(rough_rows_.get() + i);
  }
}

void BoxRows::Reallocate(int stride, bool points) {
  const std::size_t num_numbers =
      static_cast<std::size_t>(stride) * static_cast<std::size_t>(dimension_) * (points ? 1 : 2) + kPadding;
  auto rows = hwy::AllocateAligned<double>(num_numbers);
  auto rough_rows = hwy::AllocateAligned<float>(num_numbers + kRoughPadding);
  if (!rows || !rough_rows) {
    throw std::bad_alloc();
  }
  std::fill_n(rows.get(), num_numbers, 0.0);
  std::fill_n(rough_rows.get(), num_numbers + kRoughPadding, 0.0f);
  const std::ptrdiff_t max_offset = points ? 0 : std::ptrdiff_t{stride} * dimension_;
  for (int axis = 0; axis < dimension_; ++axis) {
    double* const row = rows.get() + std::ptrdiff_t{axis} * stride;
    for (int i = 0; i < size_; ++i) {
      row[i] = Min(i, axis);
      (row + max_offset)[i] = Max(i, axis);
    }
  }
  rows_ = std::move(rows);
  rough_rows_ = std::move(rough_rows);
  stride_ = stride;
  max_offset_ = max_offset;
  for (int i = 0; i < size_; ++i) {
    KeepRough(i);
  }
}

}  // namespace kavo::planning::internal

#endif  // HWY_ONCE
