#pragma once

#include <hwy/aligned_allocator.h>

#include <Eigen/Core>
#include <cstddef>
#include <vector>

#include "kavo/util/export.h"

namespace kavo::planning::internal {

//! Coordinates of a growing list of points, laid out for a linear scan.
//!
//! The scan goes over all points in single precision. That rules out what is farther than the nearest point
//! so far by more than rounding may cost, which is nearly everything; the rest is measured in double
//! precision, so that the answer is that of a plain loop, bit for bit.
class KAVO_INTERNAL_EXPORT NearestScan {
 public:
  enum class Metric { kL2, kSquaredL2, kWeightedSquaredL2 };

  struct Result {
    std::size_t index;
    double distance;
    //! What `distance` was made of: its square for the Euclidean distance, itself otherwise.
    double sum;
  };

  //! \param weights One weight for each coordinate; only read for the weighted metric.
  //! \param periodic_coordinates Those in which distances go the short way round, as `PeriodicMetric` says.
  NearestScan(Metric metric, std::size_t dimension, const double* weights,
              const std::vector<Eigen::Index>& periodic_coordinates = {});

  std::size_t Size() const { return size_; }
  void Clear();
  //! Allocates what the next `Append` needs, which then cannot fail.
  void MakeRoom();
  //! \param point `dimension` coordinates.
  void Append(const double* point);

  //! The first of the points with the smallest distance to the query, as a loop over all points in order
  //! finds it that starts with the first point and goes over to a later one only when that is strictly
  //! nearer. There must be a point.
  Result Closest(const double* query) const;

  //! The coordinates of a point as they were given; they stay where they are until the list is cleared.
  const double* Point(std::size_t index) const;

  static constexpr std::size_t kBlock = 8;
  static constexpr std::size_t kBlocksPerChunk = 32;

 private:
  // Points stand in chunks, so that growing moves nothing. In a chunk they stand in blocks of eight,
  // coordinate by coordinate (x of eight points, then y of eight points, ...), so that a vector register
  // holds one coordinate of several points. The unused places of the last block hold NaN, which is never
  // near.
  struct Chunk {
    hwy::AlignedFreeUniquePtr<float[]> blocks;
    // The same points as they are, one after the other.
    hwy::AlignedFreeUniquePtr<double[]> points;
  };

  // A value as the scan sees it: within half a turn of zero in a periodic coordinate.
  float ScanValue(std::size_t coordinate, double value) const;
  double Sum(std::size_t index, const double* query) const;
  void Consider(std::size_t index, const double* query, Result& best) const;

  Metric metric_;
  std::size_t dimension_;
  std::vector<double> weights_;
  // In single precision; all one without weights.
  std::vector<float> scan_weights_;
  double sum_of_weights_ = 0.0;
  // By coordinate, infinite where values do not repeat; empty when none do.
  std::vector<float> periods_;
  std::size_t size_ = 0;
  // The largest size of a coordinate of any point.
  double largest_ = 0.0;
  std::vector<Chunk> chunks_;
  // Of the last query, one for each place.
  hwy::AlignedFreeUniquePtr<float[]> sums_;
  std::size_t sums_in_chunks_ = 0;
};

}  // namespace kavo::planning::internal
