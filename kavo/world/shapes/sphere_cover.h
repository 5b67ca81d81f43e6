#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "kavo/math/pose3.h"
#include "kavo/math/sphere.h"
#include "kavo/util/export.h"
#include "kavo/world/obstacle.h"

namespace kavo {

//! One of the shapes that are covered together.
struct CoverPart {
  //! Any but a half-space.
  ObstacleShape shape;
  //! Of the shape in the frame in which it is covered.
  Pose3 pose;
};

//! What is asked of a cover.
struct CoverOptions {
  //! How far a sphere may reach beyond the shapes, metres. Positive; with `max_spheres` it may be zero.
  double tolerance = 0.0;
  //! With no more spheres than that, at least one: if the tolerance takes more, the smallest (to 1 %) that
  //! does not is found in its place. Without, a cover has at most 20000 spheres.
  std::optional<std::size_t> max_spheres;
};

//! Spheres in which every point of some shapes lies.
struct SphereCover {
  //! Centres in the frame in which the shapes are covered, metres.
  std::vector<math::Sphere> spheres;
  //! How far they reach beyond the shapes at most, metres.
  double bulge = 0.0;
  //! That was kept: more than what was asked for where that would have taken too many spheres.
  double tolerance = 0.0;
};

//! Covers the union of the parts: every point of their surfaces, and of the inside where they are solid, lies
//! in one of few spheres, and none of these reaches farther beyond the union than the tolerance. That holds
//! for meshes of all kinds, open, with holes or running through themselves, since both are shown by dividing
//! space (docs/covers.md) and not by samples.
//!
//! A void that is shut off counts as inside where it is a question of how far a sphere reaches: what a ball
//! of the tolerance's radius cannot get to from outside, such as the inside of a surface with narrow gaps.
//!
//! \param parts At least one; a half-space, a size that is not positive (radii of points may be zero) and a
//!     pose that is not finite are fatal errors.
//! \return The same for the same input on every machine. How long it takes depends above all on the number of
//!     spheres: some tenths of a second for twenty of them, some seconds for a hundred.
KAVO_EXPORT SphereCover CoverBySpheres(const std::vector<CoverPart>& parts, const CoverOptions& options);

//! A tolerance that suits the size of the parts: a thirtieth of the diagonal of the box around them, at least
//! 1 mm and at most 50 mm. A link of an arm gets about 10 mm.
KAVO_EXPORT double DefaultCoverTolerance(const std::vector<CoverPart>& parts);

}  // namespace kavo
