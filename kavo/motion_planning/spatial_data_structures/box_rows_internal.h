#pragma once

#include <hwy/aligned_allocator.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "kavo/motion_planning/spatial_data_structures/bounding_box.h"
#include "kavo/util/export.h"

namespace kavo::planning::internal {

//! The corners of a box, somewhere else. A point is a box whose corners are one array.
struct BoxRef {
  const double* min;
  const double* max;
};

//! Room for what is kept per entry of a node: on the stack unless nodes are huge.
template <typename T>
class EntryBuffer {
 public:
  explicit EntryBuffer(int size)
      : heap_(size > kOnStack ? static_cast<std::size_t>(size) : 0),
        data_(size > kOnStack ? heap_.data() : stack_) {}
  EntryBuffer(const EntryBuffer&) = delete;
  EntryBuffer& operator=(const EntryBuffer&) = delete;

  T* data() { return data_; }
  T& operator[](int i) { return data_[i]; }

 private:
  static constexpr int kOnStack = 144;
  T stack_[kOnStack];
  std::vector<T> heap_;
  T* data_;
};

//! The box of a node; without a value while the node is empty.
class NodeBox {
 public:
  bool has_value() const { return !corners_.empty(); }
  void reset() { corners_.clear(); }
  BoxRef operator*() const { return {corners_.data(), corners_.data() + corners_.size() / 2}; }
  void Set(BoxRef box, int dimension) {
    corners_.assign(box.min, box.min + dimension);
    corners_.insert(corners_.end(), box.max, box.max + dimension);
  }
  //! False if the box held the other already.
  bool Include(BoxRef box, int dimension) {
    if (!has_value()) {
      Set(box, dimension);
      return true;
    }
    bool grew = false;
    double* const min = corners_.data();
    double* const max = min + dimension;
    for (int axis = 0; axis < dimension; ++axis) {
      grew |= box.min[axis] < min[axis] || box.max[axis] > max[axis];
      min[axis] = std::min(min[axis], box.min[axis]);
      max[axis] = std::max(max[axis], box.max[axis]);
    }
    return grew;
  }

 private:
  std::vector<double> corners_;
};

//! The boxes of a node's entries, laid out for wide vectors.
//!
//! For each axis there is one row with the lower coordinates of all boxes, and then for each axis one with
//! the upper coordinates, all in one block of memory. While every box is a point, as in a tree of points all
//! boxes of leaves are, the lower rows serve as the upper ones too.
//!
//! A second block holds the same in single precision. Searches look there first: what is farther by more than
//! rounding may cost, which is nearly everything, is measured no more.
//!
//! The measures give, bit for bit, what the operations of `BoundingBox` give for each box alone, on every
//! instruction set. Their results are written for all boxes, in order; arrays of results must have room for
//! `PaddedSize()` numbers.
class KAVO_INTERNAL_EXPORT BoxRows {
 public:
  explicit BoxRows(int dimension) : dimension_(dimension) {}

  int Dimension() const { return dimension_; }
  int Size() const { return size_; }
  int PaddedSize() const { return size_ + kPadding; }
  bool ArePoints() const { return max_offset_ == 0; }
  double Min(int index, int axis) const { return Row(axis)[index]; }
  double Max(int index, int axis) const { return (Row(axis) + max_offset_)[index]; }
  BoundingBox Box(int index) const;
  //! Prefetches what `Nearer` begins with into the cache.
  void Prefetch() const;

  void Clear() {
    size_ = 0;
    largest_ = 0.0;
  }
  //! \param max_size Largest size that the list is to have: memory is never reserved for more.
  void Append(BoxRef box, int max_size);
  void Replace(int index, BoxRef box);
  //! Copies one box to two arrays.
  void Copy(int index, double* min, double* max) const;
  //! The smallest box around all.
  void Union(double* min, double* max) const;

  //! The boxes whose squared distance to the point is below the limit, in order: their indices and squared
  //! distances. Returns their number.
  int Nearer(const double* point, double squared_limit, int* indices, double* squared_distances) const;
  //! Some of the boxes, in order, and their squared distances to the point: those that may be the nearest,
  //! with all whose distance is the same once it is rounded. Returns their number.
  int MaybeNearest(const double* point, int* indices, double* squared_distances) const;
  //! The first box with the least of `CentroidDistances`; -1 if all are infinite.
  int NearestCentroid(BoxRef box) const;
  //! `VolumeIncreaseToInclude`.
  void VolumeIncreases(BoxRef box, double* increases) const;
  //! `DistanceTo` of `box` to the boxes' centroids.
  void CentroidDistances(BoxRef box, double* distances) const;
  //! `Overlap` with each of two boxes.
  void Overlaps(BoxRef box0, BoxRef box1, double* overlaps0, double* overlaps1) const;

  //! What the code for each instruction set sees of the list. From one row to the next it is `stride`
  //! numbers, and `max_offset` from a lower to an upper coordinate.
  struct Rows {
    const double* min;
    const float* rough_min;
    std::ptrdiff_t max_offset;
    std::size_t stride;
    std::size_t dimension;
    std::size_t size;
  };

  //! Numbers that a vector operation may touch behind the last one of a row or a result.
  static constexpr int kPadding = 8;
  static constexpr int kRoughPadding = 16;

 private:
  Rows GetRows() const {
    return {rows_.get(),
            rough_rows_.get(),
            max_offset_,
            static_cast<std::size_t>(stride_),
            static_cast<std::size_t>(dimension_),
            static_cast<std::size_t>(size_)};
  }
  const double* Row(int axis) const {
    return rows_.get() + static_cast<std::size_t>(axis) * static_cast<std::size_t>(stride_);
  }
  double* Row(int axis) {
    return rows_.get() + static_cast<std::size_t>(axis) * static_cast<std::size_t>(stride_);
  }
  void Reallocate(int stride, bool points);
  // Keeps in single precision what stands at a place in double precision.
  void KeepRough(int index);
  // A point in single precision. False where that holds no squared distances; `largest` grows to the point's
  // largest coordinate.
  bool MakeRough(const double* point, float* rough, double& largest) const;
  // No less than what single precision makes of a squared distance of boxes with coordinates up to `largest`,
  // or double precision of one in single precision.
  double Widened(double squared_distance, double largest) const;
  // All boxes whose centroid may be the nearest to `box`, in order. Returns their number.
  int MaybeNearestCentroids(BoxRef box, int* indices) const;

  int dimension_;
  int size_ = 0;
  int stride_ = 0;
  // From a box's lower to its upper coordinate.
  std::ptrdiff_t max_offset_ = 0;
  hwy::AlignedFreeUniquePtr<double[]> rows_;
  // The same in single precision, and the largest size of a coordinate.
  hwy::AlignedFreeUniquePtr<float[]> rough_rows_;
  double largest_ = 0.0;
};

}  // namespace kavo::planning::internal
