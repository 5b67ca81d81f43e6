#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "kavo/world/bounds_tree_internal.h"
#include "kavo/world/shapes/cover_region_internal.h"

namespace kavo::internal {

//! Where spheres that cover a region must not reach: all that a point farther than the tolerance from the
//! region can get to from far away. A sphere that stays clear of it reaches no farther beyond the region than
//! the tolerance, but for voids that are shut off.
//!
//! Cubes of an octree are divided until they are nearer than the tolerance altogether, farther, or small;
//! from a corner the flood then goes through all that are not nearer. So the outside is never taken for
//! smaller than it is. Where it begins is made out more finely wherever somebody asks.
class CoverOutside {
 public:
  //! None where it would take more than `max_cells`.
  static std::unique_ptr<CoverOutside> Make(const CoverRegion& region, double tolerance,
                                            std::size_t max_cells);

  //! A point and how far it is from the outside.
  struct Reach {
    double distance;
    //! Where a ball of that radius touches the outside, to some hundredths of the tolerance.
    Eigen::Vector3d contact;
  };

  //! Never more than the distance; less by some hundredths of the tolerance at most.
  Reach reach(const Eigen::Vector3d& point);

  //! About that, sooner: to points of the boundary, half the tolerance from each other.
  Reach estimate(const Eigen::Vector3d& point) const;

  //! The largest ball that touches the outside where the one about a point does, as far as estimates go. It
  //! holds that one.
  Reach grow(const Eigen::Vector3d& point, Eigen::Vector3d& center) const;

  //! Points of the region to choose from, no farther apart than about the tolerance: of its surfaces and of
  //! its inside.
  std::vector<Eigen::Vector3d> samples() const;

 private:
  enum class Kind : std::uint8_t { kNear, kMixed, kFar };

  struct Cell {
    Eigen::Vector3d middle;
    double half;
    // Of the middle.
    CoverRegion::Near near;
    // The first of eight; zero without.
    std::uint32_t children = 0;
    Kind kind = Kind::kMixed;
    // Where no surface passes through it: whether it is inside.
    bool is_decided = false;
    bool is_inside = false;
    // Whether it, or a part of it, belongs to the outside.
    bool is_outside = false;
  };

  // A cell on the way to the nearest, and the least that its outside is away.
  struct Candidate {
    double distance;
    std::uint32_t cell;
    Eigen::Vector3d contact;
  };

  CoverOutside(const CoverRegion& region, double tolerance);

  bool divideAll(std::size_t max_cells);
  void classify(Cell& cell) const;
  void divide(std::uint32_t index);
  void flood();
  std::uint32_t neighbour(std::uint32_t index, int axis, double side) const;
  bool markParents(std::uint32_t index);
  void sampleBoundary();
  // Where that is exact, see `CoverRegion::signedDepth`.
  std::optional<Reach> reachOverSurface(const Eigen::Vector3d& point) const;
  bool isOutside(const Eigen::Vector3d& point) const;
  Candidate makeCandidate(std::uint32_t index, const Eigen::Vector3d& point) const;

  const CoverRegion& region_;
  double tolerance_;
  double leaf_half_;
  std::vector<Cell> cells_;
  // About half the tolerance apart, and the directions from the region.
  std::vector<Eigen::Vector3d> boundary_;
  std::vector<Eigen::Vector3d> normals_;
  BoundsTree boundary_tree_;
  // Kept for the memory.
  std::vector<Candidate> heap_;
};

}  // namespace kavo::internal
