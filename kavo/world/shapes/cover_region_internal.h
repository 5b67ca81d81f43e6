#pragma once

#include <Eigen/Core>
#include <memory>
#include <optional>
#include <vector>

#include "kavo/world/bounds_tree_internal.h"
#include "kavo/world/shapes/mesh_tree_internal.h"
#include "kavo/world/shapes/sphere_cover.h"
#include "kavo/world/solid_internal.h"

namespace kavo::internal {

//! The union of some shapes as a cover sees it: surfaces, and on which side of them a point is.
class CoverRegion {
 public:
  //! A point of a surface near to another.
  struct Near {
    //! From the other point to the nearest surface, exact to rounding.
    double distance;
    Eigen::Vector3d point;
    //! How far `point` is from the surface at most.
    double error;
  };

  //! Refuses as `CoverBySpheres` does.
  explicit CoverRegion(const std::vector<CoverPart>& parts);

  //! To the nearest surface of a part: a ball about `point` without that distance meets none, so that all of
  //! it is inside of the same parts.
  double distance(const Eigen::Vector3d& point) const;
  Near nearest(const Eigen::Vector3d& point) const;

  //! Whether a point is inside of a part.
  bool contains(const Eigen::Vector3d& point) const;

  //! A ball about `point` of that radius is inside of a part; not positive where the point is outside.
  double depth(const Eigen::Vector3d& point) const;

  //! How far a point of the region is from all that is outside, if that takes little and is exact: where
  //! there is one part only whose surface is all there is between inside and outside. Negative outside.
  std::optional<double> signedDepth(double distance, const Eigen::Vector3d& point) const;

  //! Around all parts.
  const Bounds& bounds() const { return bounds_; }
  //! Of the box around all parts.
  double diagonal() const;
  //! More than what rounding does to distances of points within the bounds.
  double rounding() const { return rounding_; }

 private:
  struct Part {
    Solid solid;
    // Keeps what the solid points to.
    std::shared_ptr<const Compound> compound;
    // Of a mesh, whose nearest point is known exactly.
    const MeshTree* mesh;
  };

  // More triangles than that may all be about as near to a point, in the middle of a ball.
  static constexpr std::size_t kManyTriangles = 20000;

  static double distance(const Part& part, const Eigen::Vector3d& point);
  static bool contains(const Part& part, const Eigen::Vector3d& point);

  std::vector<Part> parts_;
  Bounds bounds_{};
  double rounding_ = 0.0;
  bool has_one_surface_ = false;
};

}  // namespace kavo::internal
