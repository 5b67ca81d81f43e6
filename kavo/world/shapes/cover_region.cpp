#include "kavo/world/shapes/cover_region_internal.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <variant>

#include "kavo/util/log_message.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::internal {

namespace {

constexpr char kFile[] = "world/shapes/sphere_cover";

Eigen::Vector3d ToLocal(const Solid& solid, const Eigen::Vector3d& point) {
  const double x = point[0] - solid.center[0];
  const double y = point[1] - solid.center[1];
  const double z = point[2] - solid.center[2];
  const auto& axes = solid.rotation;
  return {axes[0][0] * x + axes[0][1] * y + axes[0][2] * z, axes[1][0] * x + axes[1][1] * y + axes[1][2] * z,
          axes[2][0] * x + axes[2][1] * y + axes[2][2] * z};
}

Eigen::Vector3d ToOuter(const Solid& solid, const Eigen::Vector3d& local) {
  const auto& axes = solid.rotation;
  Eigen::Vector3d point;
  for (int axis = 0; axis < 3; ++axis) {
    point[axis] =
        axes[0][axis] * local[0] + axes[1][axis] * local[1] + axes[2][axis] * local[2] + solid.center[axis];
  }
  return point;
}

bool HasSize(const ObstacleShape& shape) {
  struct {
    bool operator()(const SphereObstacle& sphere) { return sphere.radius > 0.0; }
    bool operator()(const BoxObstacle& box) {
      return box.size[0] > 0.0 && box.size[1] > 0.0 && box.size[2] > 0.0;
    }
    bool operator()(const CylinderObstacle& cylinder) {
      return cylinder.radius > 0.0 && cylinder.height > 0.0;
    }
    bool operator()(const CapsuleObstacle& capsule) { return capsule.radius > 0.0 && capsule.height >= 0.0; }
    bool operator()(const HalfSpaceObstacle&) { return false; }
    bool operator()(const ConeObstacle& cone) { return cone.radius > 0.0 && cone.height > 0.0; }
    bool operator()(const MeshObstacle& mesh) { return mesh.mesh != nullptr; }
    bool operator()(const PointCloudObstacle& cloud) { return cloud.cloud != nullptr; }
    bool operator()(const OctreeObstacle& octree) { return octree.octree != nullptr; }
  } visitor;
  return std::visit(visitor, shape);
}

}  // namespace

CoverRegion::CoverRegion(const std::vector<CoverPart>& parts) {
  KAVO_CHECK(!parts.empty(), kFile, 58) << "There is nothing to cover.";
  for (int axis = 0; axis < 3; ++axis) {
    bounds_.low[axis] = std::numeric_limits<double>::infinity();
    bounds_.high[axis] = -std::numeric_limits<double>::infinity();
  }
  for (const CoverPart& part : parts) {
    KAVO_CHECK(HasSize(part.shape), kFile, 64)
        << "A half-space, or a shape whose sizes are not positive, cannot be covered by spheres.";
    const Solid solid(part.shape, part.pose, 0.0);
    KAVO_CHECK(solid.magnitude <= Compound::kLargestLength, kFile, 67)
        << "A shape that is covered by spheres is not finite, or too large.";
    const Bounds around = BoundsOf(solid);
    for (int axis = 0; axis < 3; ++axis) {
      bounds_.low[axis] = std::min(bounds_.low[axis], around.low[axis]);
      bounds_.high[axis] = std::max(bounds_.high[axis], around.high[axis]);
    }
    rounding_ = std::max(rounding_, 0x1p-44 * solid.magnitude);
    const std::shared_ptr<const Compound> compound = CompoundOf(part.shape);
    const auto* mesh = dynamic_cast<const MeshTree*>(compound.get());
    parts_.push_back({solid, compound, mesh});
    if (solid.filling != nullptr) {
      parts_.push_back({solid, compound, nullptr});
      parts_.back().solid.compound = solid.filling;
      parts_.back().solid.filling = nullptr;
    }
  }
  struct {
    bool operator()(const MeshObstacle& mesh) {
      return mesh.interior != Interior::kEmpty && mesh.mesh->isClosed() && mesh.mesh->numPieces() == 1 &&
             mesh.mesh->triangles().size() <= kManyTriangles;
    }
    bool operator()(const PointCloudObstacle&) { return false; }
    bool operator()(const OctreeObstacle&) { return false; }
    bool operator()(const SphereObstacle&) { return true; }
    bool operator()(const BoxObstacle&) { return true; }
    bool operator()(const CylinderObstacle&) { return true; }
    bool operator()(const CapsuleObstacle&) { return true; }
    bool operator()(const ConeObstacle&) { return true; }
    bool operator()(const HalfSpaceObstacle&) { return false; }
  } has_one_surface;
  has_one_surface_ = parts.size() == 1 && std::visit(has_one_surface, parts[0].shape);
}

double CoverRegion::diagonal() const {
  double sum = 0.0;
  for (int axis = 0; axis < 3; ++axis) {
    const double side = bounds_.high[axis] - bounds_.low[axis];
    sum += side * side;
  }
  return std::sqrt(sum);
}

double CoverRegion::distance(const Part& part, const Eigen::Vector3d& point) {
  return part.mesh != nullptr ? part.mesh->nearest(ToLocal(part.solid, point)).distance
                              : std::fabs(SignedDistance(part.solid, point.data()));
}

bool CoverRegion::contains(const Part& part, const Eigen::Vector3d& point) {
  return part.mesh != nullptr ? part.solid.interior != Interior::kEmpty &&
                                    part.mesh->contains(ToLocal(part.solid, point).data())
                              : SignedDistance(part.solid, point.data()) <= 0.0;
}

double CoverRegion::distance(const Eigen::Vector3d& point) const {
  double least = std::numeric_limits<double>::infinity();
  for (const Part& part : parts_) {
    least = std::min(least, distance(part, point));
  }
  return least;
}

CoverRegion::Near CoverRegion::nearest(const Eigen::Vector3d& point) const {
  Near nearest{std::numeric_limits<double>::infinity(), point, 0.0};
  const Part* nearest_part = nullptr;
  for (const Part& part : parts_) {
    if (part.mesh != nullptr) {
      const MeshTree::Nearest near = part.mesh->nearest(ToLocal(part.solid, point));
      if (near.distance < nearest.distance) {
        nearest = {near.distance, ToOuter(part.solid, near.point), rounding_};
        nearest_part = nullptr;
      }
    } else if (const double distance = std::fabs(SignedDistance(part.solid, point.data()));
               distance < nearest.distance) {
      nearest.distance = distance;
      nearest_part = &part;
    }
  }
  if (nearest_part == nullptr) {
    return nearest;
  }
  // Against the gradient of the signed distance.
  const Solid& solid = nearest_part->solid;
  const double step = std::max(0x1p-20 * nearest.distance, 16.0 * rounding_);
  Eigen::Vector3d gradient;
  for (int axis = 0; axis < 3; ++axis) {
    Eigen::Vector3d ahead = point;
    Eigen::Vector3d behind = point;
    ahead[axis] += step;
    behind[axis] -= step;
    gradient[axis] = SignedDistance(solid, ahead.data()) - SignedDistance(solid, behind.data());
  }
  const double length =
      std::sqrt(gradient[0] * gradient[0] + gradient[1] * gradient[1] + gradient[2] * gradient[2]);
  if (length > 0.0) {
    nearest.point = point - (SignedDistance(solid, point.data()) / length) * gradient;
  }
  nearest.error = std::fabs(SignedDistance(solid, nearest.point.data())) + rounding_;
  return nearest;
}

bool CoverRegion::contains(const Eigen::Vector3d& point) const {
  return std::any_of(parts_.begin(), parts_.end(), [&](const Part& part) { return contains(part, point); });
}

double CoverRegion::depth(const Eigen::Vector3d& point) const {
  double depth = 0.0;
  for (const Part& part : parts_) {
    if (contains(part, point)) {
      depth = std::max(depth, distance(part, point) - rounding_);
    }
  }
  return depth;
}

std::optional<double> CoverRegion::signedDepth(double distance, const Eigen::Vector3d& point) const {
  if (!has_one_surface_) {
    return std::nullopt;
  }
  return contains(parts_[0], point) ? distance : -distance;
}

}  // namespace kavo::internal
