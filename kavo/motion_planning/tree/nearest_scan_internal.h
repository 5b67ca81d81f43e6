#pragma once

#include <hwy/aligned_allocator.h>

#include <cstddef>
#include <vector>

#include "kavo/util/export.h"

namespace kavo::planning::internal {

//! Coordinates of a growing list of points, laid out for a linear scan.
//!
//! Points stand in blocks of eight, coordinate by coordinate (x of eight points, then y of eight points,
//! ...), so that a vector register holds one coordinate of several points. Blocks stand in chunks, so that
//! growing moves nothing. The unused places of the last block hold NaN, which is never near.
class KAVO_EXPORT NearestScan {
 public:
  enum class Metric { kL2, kSquaredL2, kWeightedSquaredL2 };

  struct Result {
    std::size_t index;
    double distance;
    //! What `distance` was made of: its square for the Euclidean distance, itself otherwise.
    double sum;
  };

  explicit NearestScan(std::size_t dimension) : dimension_(dimension) {}

  std::size_t Size() const { return size_; }
  void Clear() { size_ = 0; }
  //! \param point `dimension` coordinates.
  void Append(const double* point);

  //! The first of the points with the smallest distance to the query, as a loop over all points in order
  //! finds it that starts with the first point and goes over to a later one only when that is strictly
  //! nearer. There must be a point.
  //! \param weights One weight for each coordinate; only read for the weighted metric.
  Result Closest(Metric metric, const double* query, const double* weights) const;

  static constexpr std::size_t kBlock = 8;
  static constexpr std::size_t kBlocksPerChunk = 32;

 private:
  std::size_t dimension_;
  std::size_t size_ = 0;
  std::vector<hwy::AlignedFreeUniquePtr<double[]>> chunks_;
};

}  // namespace kavo::planning::internal
