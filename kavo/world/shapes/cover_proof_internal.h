#pragma once

#include <Eigen/Core>
#include <vector>

#include "kavo/math/sphere.h"
#include "kavo/util/export.h"
#include "kavo/world/shapes/cover_region_internal.h"

namespace kavo::internal {

//! Points of a region that lie in none of some spheres; none if every point of it lies in one, which is then
//! proven. Cubes that hold a point of the region are divided until each is in one of the spheres with all its
//! corners. A cube smaller than `smallest` that is in none counts as not covered, so that a point on the rim
//! of spheres that just meet may be among the points.
//! \param spacing Neighbours of a point that was found are passed over up to that distance.
KAVO_INTERNAL_EXPORT std::vector<Eigen::Vector3d> FindUncovered(const CoverRegion& region,
                                                                const std::vector<math::Sphere>& spheres,
                                                                double spacing, double smallest);

}  // namespace kavo::internal
