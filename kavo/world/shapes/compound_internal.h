#pragma once

#include "kavo/world/bounds_tree_internal.h"
#include "kavo/world/obstacle.h"

namespace kavo::internal {

//! Very many parts in one frame under a tree of bounds: what instances of a shape share. Immutable.
class Compound {
 public:
  //! Coordinates and sizes beyond this many metres are refused: nothing on the way to an answer overflows,
  //! in single precision neither where bounds are concerned.
  static constexpr double kLargestLength = 1.0e30;

  virtual ~Compound() = default;

  //! Signed distance of a point (coordinates of the shape, metres): to the nearest part, negative inside.
  //! \param interior Which inside there is, of a mesh.
  virtual double signedDistance(const double* point, Interior interior) const = 0;

  //! Whether the signed distance less the padding is at most `radius`; takes less than to work it out.
  //! Neither is negative.
  virtual bool touches(const double* point, double radius, double padding, Interior interior) const = 0;

  //! Around all parts, which stand in the places of the tree.
  const BoundsTree& tree() const { return tree_; }

  //! The largest sum of the coordinates' absolute values in a part.
  double extent() const { return extent_; }

 protected:
  explicit Compound(const std::vector<Bounds>& parts);

  //! The box around a ball, larger by more than what rounding does to a distance that is computed here.
  Bounds boundsAround(const double* point, double radius) const;

  //! The least of `distance(place)` over all parts.
  template <class Distance>
  double least(const double* point, const Distance& distance) const {
    double nearest = std::numeric_limits<double>::infinity();
    FindNearest(tree_.groups.data(), point, nearest,
                [&](std::uint32_t place, double& so_far) { so_far = std::min(so_far, distance(place)); });
    return nearest;
  }

 private:
  BoundsTree tree_;
  double extent_ = 0.0;
};

}  // namespace kavo::internal
