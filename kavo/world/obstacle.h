#pragma once

#include <Eigen/Core>
#include <memory>
#include <variant>

namespace kavo {

class Octree;
class PointCloud;
class TriangleMesh;

//! A ball about the origin of the obstacle's frame. Metres, here and below.
struct SphereObstacle {
  double radius = 0.0;  //!< Positive.
};

//! A box centred on the origin of the obstacle's frame, sides along its axes.
struct BoxObstacle {
  //! Full side lengths along x, y, z; positive.
  Eigen::Vector3d size = Eigen::Vector3d::Zero();
};

//! A solid cylinder about the z axis of the obstacle's frame, centred on its origin, with flat ends.
struct CylinderObstacle {
  double radius = 0.0;  //!< Positive.
  //! Distance between the flat ends.
  double height = 0.0;
};

//! All points within `radius` of a segment on the z axis of the obstacle's frame, centred on its origin.
struct CapsuleObstacle {
  double radius = 0.0;  //!< Positive.
  //! Length of the segment; the capsule is `height` + 2 `radius` long.
  double height = 0.0;
};

//! All points with z <= 0 in the obstacle's frame, such as the floor.
struct HalfSpaceObstacle {};

//! A solid cone about the z axis of the obstacle's frame: its base, of that radius, at z = -height / 2, its
//! apex at z = height / 2.
struct ConeObstacle {
  double radius = 0.0;  //!< Positive.
  double height = 0.0;  //!< Between base and apex; positive.
};

//! What of a mesh is solid beside its surface.
enum class Interior {
  //! The inside of every piece that is closed, whichever way its faces turn. Other pieces are surfaces.
  kIfClosed,
  //! Of a surface that is not closed too: cells of a grid of some ten thousand that it keeps clear of, where
  //! most of the six rays along the axes of the mesh cross it an odd number of times.
  kSolid,
  //! Nothing.
  kEmpty
};

//! A mesh (see `kavo/world/shapes/triangle_mesh.h`) in the obstacle's frame.
struct MeshObstacle {
  std::shared_ptr<const TriangleMesh> mesh;  //!< Not null.
  Interior interior = Interior::kIfClosed;   //!< What of it is solid.
};

//! Points with a ball around each (see `kavo/world/shapes/point_cloud.h`) in the obstacle's frame.
struct PointCloudObstacle {
  std::shared_ptr<const PointCloud> cloud;  //!< Not null.
};

//! Cells of an octree (see `kavo/world/shapes/octree.h`) in the obstacle's frame.
struct OctreeObstacle {
  std::shared_ptr<const Octree> octree;  //!< Not null.
};

//! What an obstacle may be.
using ObstacleShape =
    std::variant<SphereObstacle, BoxObstacle, CylinderObstacle, CapsuleObstacle, HalfSpaceObstacle,
                 ConeObstacle, MeshObstacle, PointCloudObstacle, OctreeObstacle>;

}  // namespace kavo
