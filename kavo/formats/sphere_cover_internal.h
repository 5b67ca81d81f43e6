#pragma once

#include <Eigen/Core>
#include <optional>
#include <vector>

#include "kavo/math/sphere.h"

namespace kavo::formats {

// Spheres that stand for a solid: every point of it lies in one of them, and none reaches beyond it by more
// than the tolerance (positive; metres). None if that would take more than `kMaxCoverSpheres`.
//
// How far a sphere whose centre is in a convex solid reaches beyond it is its radius less the distance from
// its centre to the surface.

constexpr std::size_t kMaxCoverSpheres = 5000;

//! A box about the origin. Cells of a grid along the axes carry a sphere each, around their corners. What the
//! outer cells enclose is a smaller box whose spheres may reach farther, so that they become larger towards
//! the inside.
//! \param half_size Half of the edge lengths along x, y and z; positive.
std::optional<std::vector<math::Sphere>> CoverBox(const Eigen::Vector3d& half_size, double tolerance);

//! A cylinder about the z axis, centred at the origin. Spheres along the axis (of a flat cylinder: on rings
//! in the middle plane) reach beyond the surface by the tolerance and so cover what is inside; what they
//! leave open along the two edges is covered by rings of spheres that become smaller towards the edge.
//! \param radius, half_length Positive.
std::optional<std::vector<math::Sphere>> CoverCylinder(double radius, double half_length, double tolerance);

}  // namespace kavo::formats
