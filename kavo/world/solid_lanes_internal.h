#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kavo/world/solid_internal.h"

namespace kavo::internal {

//! A solid in single precision, as the lanes of a ball model are tested against it.
struct LaneSolid {
  enum class Kind : std::uint8_t {
    kBall,
    kBox,
    kAlignedBox,
    kCylinder,
    kUprightCylinder,
    kCapsule,
    kHalfSpace,
    kCone,
    kCompound
  };

  LaneSolid() = default;
  explicit LaneSolid(const Solid& solid);

  Kind kind = Kind::kBall;
  float center[3] = {0.0f, 0.0f, 0.0f};
  //! Rows are the axes of the solid's frame in world coordinates.
  float rotation[3][3] = {};
  //! As in `Solid`, for an aligned box along the world's axes. Cone: x and y hold what its slope goes
  //! outwards and down for each metre.
  float half[3] = {0.0f, 0.0f, 0.0f};
  float radius = 0.0f;
  //! How far it reaches beyond what distances are measured from: the radius of a ball or capsule, the
  //! padding.
  float rounding = 0.0f;
  //! What rounding may cost on the solid's side.
  float margin = 0.0f;
  //! As in `Solid`.
  const Compound* compound = nullptr;
  const Compound* filling = nullptr;
  bool is_solid = false;
};

//! The solids of a snapshot as the lanes see them.
struct SolidLanes {
  //! Half-spaces, which no box encloses.
  std::vector<LaneSolid> half_spaces;
  //! In the order of the snapshot's solids.
  std::vector<LaneSolid> solids;
};

}  // namespace kavo::internal
