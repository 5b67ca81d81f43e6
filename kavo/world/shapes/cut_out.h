#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "kavo/math/sphere.h"
#include "kavo/util/export.h"
#include "kavo/world/shapes/octree.h"
#include "kavo/world/shapes/point_cloud.h"

namespace kavo {

//! What is left of a cloud without the points whose balls touch one of some spheres, such as those of a robot
//! that its own camera sees.
struct RemainingPoints {
  //! In their former order; null if none is left, the cloud itself if all are.
  std::shared_ptr<const PointCloud> cloud;
  //! Points that were left out.
  std::size_t num_cut = 0;
};

//! \param spheres In the frame of the cloud; metres.
KAVO_EXPORT RemainingPoints CutOut(const std::shared_ptr<const PointCloud>& cloud,
                                   const std::vector<math::Sphere>& spheres);

//! What is left of an octree without the cells that touch one of some spheres. A larger cell is taken apart,
//! into eighths, as long as these are no smaller than the smallest cell that the octree has.
struct RemainingCells {
  //! Null if none is left, the octree itself if all are.
  std::shared_ptr<const Octree> octree;
  //! As many cells of the smallest size.
  std::size_t num_cut = 0;
};

//! \param spheres In the frame of the octree; metres.
KAVO_EXPORT RemainingCells CutOut(const std::shared_ptr<const Octree>& octree,
                                  const std::vector<math::Sphere>& spheres);

}  // namespace kavo
