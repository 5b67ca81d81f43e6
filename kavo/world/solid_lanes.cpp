#include "kavo/world/solid_lanes_internal.h"

#include <cmath>

#include "kavo/world/ball_model_internal.h"

namespace kavo::internal {

LaneSolid::LaneSolid(const Solid& solid)
    : radius(static_cast<float>(solid.radius)), rounding(static_cast<float>(solid.padding)) {
  margin = Rounded(static_cast<double>(BallModel::kMargin) * solid.magnitude);
  // Which of the solid's axes lies along each of the world's, -1 where none does.
  int along[3] = {-1, -1, -1};
  for (int row = 0; row < 3; ++row) {
    center[row] = static_cast<float>(solid.center[row]);
    half[row] = static_cast<float>(solid.half[row]);
    for (int axis = 0; axis < 3; ++axis) {
      rotation[row][axis] = static_cast<float>(solid.rotation[row][axis]);
      // The axis is off by 2e-7 at most, which the margin has room for.
      if (std::fabs(solid.rotation[row][axis]) >= 1.0 - 1e-14) {
        along[axis] = row;
      }
    }
  }
  switch (solid.kind) {
    case Solid::Kind::kSphere:
      kind = Kind::kBall;
      rounding = static_cast<float>(solid.radius + solid.padding);
      break;
    case Solid::Kind::kBox:
      kind = Kind::kBox;
      if (along[0] >= 0 && along[1] >= 0 && along[2] >= 0) {
        kind = Kind::kAlignedBox;
        for (int axis = 0; axis < 3; ++axis) {
          half[axis] = static_cast<float>(solid.half[along[axis]]);
        }
      }
      break;
    case Solid::Kind::kCylinder:
      kind = along[2] == 2 ? Kind::kUprightCylinder : Kind::kCylinder;
      break;
    case Solid::Kind::kCapsule:
      kind = Kind::kCapsule;
      rounding = static_cast<float>(solid.radius + solid.padding);
      break;
    case Solid::Kind::kHalfSpace:
      kind = Kind::kHalfSpace;
      break;
    case Solid::Kind::kCone: {
      kind = Kind::kCone;
      const double slope = std::sqrt(solid.radius * solid.radius + 4.0 * solid.half[2] * solid.half[2]);
      half[0] = static_cast<float>(solid.radius / slope);
      half[1] = static_cast<float>(2.0 * solid.half[2] / slope);
      break;
    }
    case Solid::Kind::kCompound:
      kind = Kind::kCompound;
      compound = solid.compound;
      filling = solid.filling;
      is_solid = solid.interior != Interior::kEmpty && compound->parts() == Compound::Parts::kTriangles;
      break;
  }
}

}  // namespace kavo::internal
