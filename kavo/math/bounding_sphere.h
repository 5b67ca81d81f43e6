#pragma once

#include <vector>

#include "kavo/math/sphere.h"
#include "kavo/util/export.h"

namespace kavo::math {

//! How the enclosing sphere is found.
enum class SebbMethod : int {
  //! One pass of enlargements in list order (after Ritter, 1990): encloses, but is not the smallest.
  kRitter = 0,
  //! The smallest enclosing sphere.
  kSmallest = 1,
};

//! A sphere that encloses every sphere of the list (to rounding, never less than that).
//!
//! With `kSmallest` its radius is the smallest possible to 1e-9 relative. The search is a simplex-like walk
//! over support sets of at most four spheres (the LP-type problem of Fischer and Gärtner, "The smallest
//! enclosing ball of balls", 2003): from one support set to the next the radius grows strictly, so it ends on
//! degenerate input too.
//!
//! \param spheres At least one sphere; centres finite, radii finite and not negative. Fatal otherwise.
KAVO_EXPORT Sphere ComputeBoundingSphere(const std::vector<Sphere>& spheres,
                                         SebbMethod method = SebbMethod::kSmallest);

}  // namespace kavo::math
