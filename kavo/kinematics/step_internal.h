#pragma once

#include <Eigen/Core>

#include "kavo/kinematics/kinematics.h"
#include "kavo/math/rigid_transform.h"

// What one step of a kinematic program does. Shared by every way of running a program, so that all give the
// same bits.

namespace kavo::kinematics::internal {

//! result = base * offset.
inline void ApplyOffset(const math::RigidTransform& base, const Kinematics::Offset& offset,
                        math::RigidTransform& result) {
  const Eigen::Matrix3d& r = base.rotation;
  switch (offset.kind) {
    case Kinematics::RotationKind::kIdentity:
      result.rotation = r;
      break;
    case Kinematics::RotationKind::kAxes:
      for (int column = 0; column < 3; ++column) {
        const double sign = offset.sign[column];
        const int source = offset.source[column];
        for (int row = 0; row < 3; ++row) {
          result.rotation(row, column) = r(row, source) * sign;
        }
      }
      break;
    case Kinematics::RotationKind::kGeneral:
      for (int column = 0; column < 3; ++column) {
        const double x = offset.transform.rotation(0, column);
        const double y = offset.transform.rotation(1, column);
        const double z = offset.transform.rotation(2, column);
        for (int row = 0; row < 3; ++row) {
          result.rotation(row, column) = r(row, 0) * x + r(row, 1) * y + r(row, 2) * z;
        }
      }
      break;
  }
  const Eigen::Vector3d& t = offset.transform.translation;
  for (int row = 0; row < 3; ++row) {
    result.translation[row] =
        (r(row, 0) * t[0] + r(row, 1) * t[1] + r(row, 2) * t[2]) + base.translation[row];
  }
}

//! The slot of a step from the one that carries it (null: the base).
//! \param motion Sine of the coordinate of a revolute joint; the coordinate itself of a prismatic one.
//! \param cos Cosine of the coordinate of a revolute joint.
inline void RunStep(const Kinematics::Step& step, const math::RigidTransform* parent, double motion,
                    double cos, math::RigidTransform& slot) {
  if (parent == nullptr) {
    slot = step.origin.transform;
  } else {
    ApplyOffset(*parent, step.origin, slot);
  }
  if (step.motion == Kinematics::Motion::kRevolute) {
    const int i = step.axis == 2 ? 0 : step.axis + 1;
    const int j = step.axis == 0 ? 2 : step.axis - 1;
    const double sin = motion * step.sign;
    for (int row = 0; row < 3; ++row) {
      const double a = slot.rotation(row, i);
      const double b = slot.rotation(row, j);
      slot.rotation(row, i) = a * cos + b * sin;
      slot.rotation(row, j) = b * cos - a * sin;
    }
  } else {
    const Eigen::Vector3d shift(step.slide[0] * motion, step.slide[1] * motion, step.slide[2] * motion);
    const Eigen::Vector3d turned = parent == nullptr ? shift : math::Rotate(parent->rotation, shift);
    for (int row = 0; row < 3; ++row) {
      slot.translation[row] += turned[row];
    }
  }
}

//! The transform of an attached frame.
inline void PlaceFrame(const Kinematics::Attachment& attachment, const math::RigidTransform* slot,
                       math::RigidTransform& frame) {
  if (slot == nullptr) {
    frame = attachment.offset.transform;
  } else {
    ApplyOffset(*slot, attachment.offset, frame);
  }
}

}  // namespace kavo::kinematics::internal
