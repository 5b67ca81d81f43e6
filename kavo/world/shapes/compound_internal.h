#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "kavo/world/bounds_tree_internal.h"
#include "kavo/world/obstacle.h"

namespace kavo::internal {

//! A triangle in single precision, as the lanes of a ball model are tested against it. Lengths and areas are
//! those of the true triangle; where it is too narrow for its plane to count, all that is about the plane is
//! zero.
struct alignas(32) LaneTriangle {
  float corner[3];
  //! From that corner to the others.
  float to_b[3];
  float to_c[3];
  float normal[3];
  //! In the plane, across the other side: along them a point inside is between zero and `area`, and so is the
  //! sum of both.
  float across_c[3];
  float across_b[3];
  float area;
  //! One over the squared lengths of the sides, of the one opposite of the corner last.
  float inverses[3];
};

//! Very many parts in one frame under a tree of bounds: what instances of a shape share. Immutable.
class Compound {
 public:
  //! Coordinates and sizes beyond this many metres are refused: nothing on the way to an answer overflows,
  //! in single precision neither where bounds are concerned.
  static constexpr double kLargestLength = 1.0e30;

  enum class Parts : std::uint8_t { kBalls, kCubes, kTriangles };

  virtual ~Compound() = default;

  //! Signed distance of a point (coordinates of the shape, metres): to the nearest part, negative inside.
  //! \param interior Whether a mesh has an inside. What fills it where it is open does not count here.
  virtual double signedDistance(const double* point, Interior interior) const = 0;

  //! Whether the signed distance less the padding is at most `radius`; takes less than to work it out.
  //! Neither is negative.
  virtual bool touches(const double* point, double radius, double padding, Interior interior) const = 0;

  //! Whether a point is inside of what the parts enclose: cubes and balls enclose nothing but themselves.
  virtual bool contains(const double* point) const;

  //! What is solid too where all of a surface that is open counts as one (`Interior::kSolid`); null for
  //! nothing. Worked out at the first call.
  virtual const Compound* filling() const;

  //! What the parts are. The boxes of the tree are those around balls, and cubes themselves, to rounding.
  Parts parts() const { return parts_; }

  //! Around all parts, which stand in the places of the tree.
  const BoundsTree& tree() const { return tree_; }

  //! By place; empty where parts are no triangles.
  const std::vector<LaneTriangle>& triangles() const { return triangles_; }

  //! No sum of the coordinates' absolute values in a part is larger.
  double extent() const { return extent_; }

 protected:
  Compound(Parts parts, BoundsTree tree);

  void setTriangles(std::vector<LaneTriangle> triangles) { triangles_ = std::move(triangles); }

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
  Parts parts_;
  BoundsTree tree_;
  std::vector<LaneTriangle> triangles_;
  double extent_ = 0.0;
};

}  // namespace kavo::internal
