#include "kavo/world/solid_internal.h"

#include <limits>
#include <variant>

#include "kavo/math/rigid_transform.h"
#include "kavo/world/shapes/cell_tree_internal.h"
#include "kavo/world/shapes/mesh_tree_internal.h"
#include "kavo/world/shapes/point_cloud.h"
#include "kavo/world/shapes/point_tree_internal.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::internal {

namespace {

// Scaling by a power of two changes no digit.
constexpr double kDown = 0x1p-600;
constexpr double kUp = 0x1p600;

void ToLocal(const Solid& solid, const double* point, double (&local)[3]) {
  const double dx = point[0] - solid.center[0];
  const double dy = point[1] - solid.center[1];
  const double dz = point[2] - solid.center[2];
  const auto& r = solid.rotation;
  local[0] = r[0][0] * dx + r[0][1] * dy + r[0][2] * dz;
  local[1] = r[1][0] * dx + r[1][1] * dy + r[1][2] * dz;
  local[2] = r[2][0] * dx + r[2][1] * dy + r[2][2] * dz;
}

// In the plane through the axis, as a triangle: `side` is the distance from the axis.
double DistanceFromCone(double radius, double half_height, double side, double z) {
  // Along the slope, from the apex down; in two steps, so that no square of a small size vanishes.
  const double larger = std::max(radius, 2.0 * half_height);
  double across = radius / larger;
  double down = 2.0 * half_height / larger;
  const double unit = std::sqrt(across * across + down * down);
  across /= unit;
  down /= unit;
  const double slope = larger * unit;
  const double below_apex = half_height - z;
  const double beyond_slope = side * down - below_apex * across;
  const double beyond_base = -half_height - z;
  const double nearest_face = std::max(beyond_slope, beyond_base);
  if (nearest_face <= 0.0) {
    return nearest_face;
  }
  const double along = std::min(std::max(side * across + below_apex * down, 0.0), slope);
  const double from_slope_side = side - along * across;
  const double from_slope_z = below_apex - along * down;
  const double squared = from_slope_side * from_slope_side + from_slope_z * from_slope_z;
  if (beyond_base <= 0.0) {
    return std::sqrt(squared);
  }
  const double outside_side = std::max(side - radius, 0.0);
  return std::sqrt(std::min(squared, outside_side * outside_side + beyond_base * beyond_base));
}

double DistanceFromCompound(const Solid& solid, const double* local) {
  const double distance = solid.compound->signedDistance(local, solid.interior);
  return solid.filling != nullptr ? std::min(distance, solid.filling->signedDistance(local, solid.interior))
                                  : distance;
}

double DistanceWithoutPadding(const Solid& solid, const double* point) {
  if (solid.kind == Solid::Kind::kSphere) {
    const double dx = point[0] - solid.center[0];
    const double dy = point[1] - solid.center[1];
    const double dz = point[2] - solid.center[2];
    return std::sqrt(dx * dx + dy * dy + dz * dz) - solid.radius;
  }
  double local[3];
  ToLocal(solid, point, local);
  const auto [x, y, z] = local;
  switch (solid.kind) {
    case Solid::Kind::kSphere:
      break;
    case Solid::Kind::kHalfSpace:
      return z;
    case Solid::Kind::kCapsule: {
      const double outside_z = std::max(std::fabs(z) - solid.half[2], 0.0);
      return std::sqrt(x * x + y * y + outside_z * outside_z) - solid.radius;
    }
    case Solid::Kind::kCylinder: {
      const double beyond_side = std::sqrt(x * x + y * y) - solid.radius;
      const double beyond_z = std::fabs(z) - solid.half[2];
      const double nearest_face = std::max(beyond_side, beyond_z);
      if (nearest_face <= 0.0) {
        return nearest_face;
      }
      const double outside_side = std::max(beyond_side, 0.0);
      const double outside_z = std::max(beyond_z, 0.0);
      return std::sqrt(outside_side * outside_side + outside_z * outside_z);
    }
    case Solid::Kind::kBox: {
      const double beyond[3] = {std::fabs(x) - solid.half[0], std::fabs(y) - solid.half[1],
                                std::fabs(z) - solid.half[2]};
      return DistanceFromBox(beyond);
    }
    case Solid::Kind::kCone:
      return DistanceFromCone(solid.radius, solid.half[2], std::sqrt(x * x + y * y), z);
    case Solid::Kind::kCompound:
      return DistanceFromCompound(solid, local);
  }
  return 0.0;
}

// Stores what depends on the kind of the shape.
struct SetShape {
  void operator()(const SphereObstacle& sphere) const {
    solid.kind = Solid::Kind::kSphere;
    solid.radius = sphere.radius;
  }
  void operator()(const BoxObstacle& box) const {
    solid.kind = Solid::Kind::kBox;
    for (int axis = 0; axis < 3; ++axis) {
      solid.half[axis] = 0.5 * box.size[axis];
    }
  }
  void operator()(const CylinderObstacle& cylinder) const {
    setRound(Solid::Kind::kCylinder, cylinder.radius, cylinder.height);
  }
  void operator()(const CapsuleObstacle& capsule) const {
    setRound(Solid::Kind::kCapsule, capsule.radius, capsule.height);
  }
  void operator()(const HalfSpaceObstacle&) const { solid.kind = Solid::Kind::kHalfSpace; }
  void operator()(const ConeObstacle& cone) const { setRound(Solid::Kind::kCone, cone.radius, cone.height); }
  void operator()(const MeshObstacle& mesh) const {
    setCompound(*mesh.mesh->tree());
    solid.interior = mesh.interior;
    solid.filling = mesh.interior == Interior::kSolid ? mesh.mesh->tree()->filling() : nullptr;
  }
  void operator()(const PointCloudObstacle& cloud) const { setCompound(*cloud.cloud->tree()); }
  void operator()(const OctreeObstacle& octree) const { setCompound(*octree.octree->tree()); }

  void setRound(Solid::Kind kind, double radius, double height) const {
    solid.kind = kind;
    solid.radius = radius;
    solid.half[2] = 0.5 * height;
  }
  void setCompound(const Compound& compound) const {
    solid.kind = Solid::Kind::kCompound;
    solid.compound = &compound;
  }

  Solid& solid;
};

struct GetCompound {
  std::shared_ptr<const Compound> operator()(const MeshObstacle& mesh) const { return mesh.mesh->tree(); }
  std::shared_ptr<const Compound> operator()(const PointCloudObstacle& cloud) const {
    return cloud.cloud->tree();
  }
  std::shared_ptr<const Compound> operator()(const OctreeObstacle& octree) const {
    return octree.octree->tree();
  }
  template <class Other>
  std::shared_ptr<const Compound> operator()(const Other&) const {
    return nullptr;
  }
};

// How far a compound reaches from the centre along an axis of the world: by the boxes at the top of its tree,
// which tell more than one around all of it.
void AddBounds(const Solid& solid, const Compound& compound, int axis, double& low, double& high) {
  const BoundsGroup& top = compound.tree().groups.front();
  low = std::numeric_limits<double>::infinity();
  high = -low;
  for (std::size_t lane = 0; lane < BoundsGroup::kSize; ++lane) {
    double middle = 0.0;
    double extent = 0.0;
    for (int local = 0; local < 3; ++local) {
      const auto lowest = static_cast<double>(top.low[local][lane]);
      const auto highest = static_cast<double>(top.high[local][lane]);
      middle += solid.rotation[local][axis] * (0.5 * lowest + 0.5 * highest);
      extent += std::fabs(solid.rotation[local][axis]) * (0.5 * highest - 0.5 * lowest);
    }
    // Not where the lane is empty.
    if (extent >= 0.0) {
      low = std::min(low, middle - extent);
      high = std::max(high, middle + extent);
    }
  }
  const double rounding = solid.compound->extent() * 0x1p-22;
  low -= rounding;
  high += rounding;
}

}  // namespace

Solid::Solid(const ObstacleShape& shape, const Pose3& pose, double padding_in) : padding(padding_in) {
  const math::RigidTransform transform(pose);
  for (int row = 0; row < 3; ++row) {
    center[row] = transform.translation[row];
    for (int column = 0; column < 3; ++column) {
      rotation[row][column] = transform.rotation(column, row);
    }
  }
  std::visit(SetShape{*this}, shape);
  magnitude = radius + padding + (compound != nullptr ? compound->extent() : 0.0);
  for (int axis = 0; axis < 3; ++axis) {
    magnitude += std::fabs(center[axis]) + half[axis];
  }
}

Solid Solid::scaled(double factor) const {
  Solid result = *this;
  result.radius *= factor;
  result.padding *= factor;
  result.magnitude *= factor;
  for (int axis = 0; axis < 3; ++axis) {
    result.center[axis] *= factor;
    result.half[axis] *= factor;
  }
  return result;
}

std::shared_ptr<const Compound> CompoundOf(const ObstacleShape& shape) {
  return std::visit(GetCompound{}, shape);
}

Bounds BoundsOf(const Solid& solid) {
  Bounds bounds{};
  const double reach = solid.radius + solid.half[0] + solid.half[1] + solid.half[2] + solid.padding +
                       (solid.compound != nullptr ? solid.compound->extent() : 0.0);
  for (int axis = 0; axis < 3; ++axis) {
    double low = 0.0;
    double high = 0.0;
    if (solid.compound != nullptr) {
      AddBounds(solid, *solid.compound, axis, low, high);
    } else {
      for (int local = 0; local < 3; ++local) {
        high += std::fabs(solid.rotation[local][axis]) * solid.half[local];
      }
      if (solid.kind == Solid::Kind::kCylinder || solid.kind == Solid::Kind::kCone) {
        const double x = solid.rotation[0][axis];
        const double y = solid.rotation[1][axis];
        high += solid.radius * std::sqrt(x * x + y * y);
      } else {
        high += solid.radius;
      }
      low = -high;
    }
    // The rotation is one to rounding only, which the computed distance sees and the true extent does not.
    const double more = solid.padding + (reach + std::fabs(solid.center[axis])) * 0x1p-44;
    // Cut to finite numbers: the middle of an infinite box would be NaN, which no sorting survives.
    constexpr double kLargest = std::numeric_limits<double>::max();
    bounds.low[axis] = std::max(solid.center[axis] + (low - more), -kLargest);
    bounds.high[axis] = std::min(solid.center[axis] + (high + more), kLargest);
  }
  return bounds;
}

double SignedDistance(const Solid& solid, const double* point) {
  return DistanceWithoutPadding(solid, point) - solid.padding;
}

bool Touches(const Solid& solid, const double* point, double radius) {
  if (solid.kind != Solid::Kind::kCompound) {
    return SignedDistance(solid, point) <= radius;
  }
  double local[3];
  ToLocal(solid, point, local);
  return solid.compound->touches(local, radius, solid.padding, solid.interior) ||
         (solid.filling != nullptr && solid.filling->touches(local, radius, solid.padding, solid.interior));
}

double SignedDistanceAtAnyScale(const Solid& solid, const double* point) {
  const double magnitude = solid.magnitude + std::fabs(point[0]) + std::fabs(point[1]) + std::fabs(point[2]);
  if (magnitude <= kLargestPlainMagnitude) {
    return SignedDistance(solid, point);
  }
  const double near[3] = {point[0] * kDown, point[1] * kDown, point[2] * kDown};
  const Solid scaled = solid.scaled(kDown);
  if (solid.kind != Solid::Kind::kCompound) {
    return SignedDistance(scaled, near) * kUp;
  }
  double local[3];
  ToLocal(scaled, near, local);
  if (std::fabs(local[0]) + std::fabs(local[1]) + std::fabs(local[2]) <= kLargestPlainMagnitude * kDown) {
    const double unscaled[3] = {local[0] * kUp, local[1] * kUp, local[2] * kUp};
    return DistanceFromCompound(solid, unscaled) - solid.padding;
  }
  // From so far away all of it is one point.
  return (std::sqrt(local[0] * local[0] + local[1] * local[1] + local[2] * local[2]) - scaled.padding) * kUp;
}

}  // namespace kavo::internal
