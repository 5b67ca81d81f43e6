#pragma once

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kavo/formats/drawn_shape.h"
#include "kavo/util/export.h"
#include "kavo/world/shapes/octree.h"

namespace kavo::formats {

// What is left of shapes that are too large to be drawn whole. What is not too large stays as it is.

//! The largest number n such that things of these sizes, each cut down to n, come to no more than a budget
//! together: what is small stays whole.
KAVO_INTERNAL_EXPORT std::size_t FairLimit(std::vector<std::size_t> sizes, std::size_t budget);

//! A surface of no more than so many triangles: vertices of one cell of a grid become one (Rossignac and
//! Borrel, 1993), unless their surface faces other ways, so that plates and rods thinner than a cell keep
//! their sides; it lies where the planes of its triangles meet (Lindstrom, 2000). The grid is as fine as the
//! limit allows.
//! \param limit At least 12: the box around the surface, where nothing else is left of it.
KAVO_INTERNAL_EXPORT DrawnMesh ThinMesh(const std::vector<Eigen::Vector3d>& vertices,
                                        const std::vector<std::array<std::uint32_t, 3>>& triangles,
                                        std::size_t limit);

//! No more than so many of the points, as evenly spread as the points themselves are: not denser where there
//! are more of them.
KAVO_INTERNAL_EXPORT std::vector<Eigen::Vector3d> ThinPoints(const std::vector<Eigen::Vector3d>& points,
                                                             std::size_t limit);

//! No more than so many cells in which all of them lie, about: small ones are joined to larger ones.
KAVO_INTERNAL_EXPORT std::vector<Octree::Cell> ThinCells(const std::vector<Octree::Cell>& cells,
                                                         std::size_t limit);

}  // namespace kavo::formats
