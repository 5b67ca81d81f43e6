#pragma once

#include <Eigen/Core>

#include "kavo/kinematics/kinematics.h"
#include "kavo/math/rigid_transform.h"

// What one step of a kinematic program does. Shared by every way of running a program, so that all give the
// same bits.

namespace kavo::kinematics::internal {

//! A rigid transform by columns: the axes of the moved frame, then its origin. Each column has a fourth
//! place, which is computed and never read, so that a column is a whole number of vector registers.
struct alignas(32) Columns {
  double axes[3][4];
  double origin[4];

  Columns() = default;
  explicit Columns(const math::RigidTransform& transform) {
    for (int column = 0; column < 3; ++column) {
      for (int row = 0; row < 3; ++row) {
        axes[column][row] = transform.rotation(row, column);
      }
      axes[column][3] = 0.0;
    }
    for (int row = 0; row < 3; ++row) {
      origin[row] = transform.translation[row];
    }
    origin[3] = 0.0;
  }

  Eigen::Vector3d axis(int i) const { return {axes[i][0], axes[i][1], axes[i][2]}; }
  Eigen::Vector3d position() const { return {origin[0], origin[1], origin[2]}; }

  void store(math::RigidTransform& transform) const {
    for (int column = 0; column < 3; ++column) {
      for (int row = 0; row < 3; ++row) {
        transform.rotation(row, column) = axes[column][row];
      }
    }
    for (int row = 0; row < 3; ++row) {
      transform.translation[row] = origin[row];
    }
  }

  //! out = axes[0] * x + axes[1] * y + axes[2] * z.
  void combine(double x, double y, double z, double* out) const {
    for (int row = 0; row < 4; ++row) {
      out[row] = axes[0][row] * x + axes[1][row] * y + axes[2][row] * z;
    }
  }
};

//! base * offset.
inline Columns ApplyOffset(const Columns& base, const Kinematics::Offset& offset) {
  Columns result;
  switch (offset.kind) {
    case Kinematics::RotationKind::kIdentity:
      result = base;
      break;
    case Kinematics::RotationKind::kAxes:
      for (int column = 0; column < 3; ++column) {
        const double sign = offset.sign[column];
        const double* source = base.axes[offset.source[column]];
        for (int row = 0; row < 4; ++row) {
          result.axes[column][row] = source[row] * sign;
        }
      }
      break;
    case Kinematics::RotationKind::kGeneral:
      for (int column = 0; column < 3; ++column) {
        const auto turned = offset.transform.rotation.col(column);
        base.combine(turned[0], turned[1], turned[2], result.axes[column]);
      }
      break;
  }
  const Eigen::Vector3d& t = offset.transform.translation;
  base.combine(t[0], t[1], t[2], result.origin);
  for (int row = 0; row < 4; ++row) {
    result.origin[row] += base.origin[row];
  }
  return result;
}

//! The slot of a step from the one that carries it (null: the base).
//! \param motion Sine of the coordinate of a revolute joint; the coordinate itself of a prismatic one.
//! \param cos Cosine of the coordinate of a revolute joint.
inline Columns RunStep(const Kinematics::Step& step, const Columns* parent, double motion, double cos) {
  Columns slot = parent == nullptr ? Columns(step.origin.transform) : ApplyOffset(*parent, step.origin);
  if (step.motion == Kinematics::Motion::kRevolute) {
    double* const a = slot.axes[step.axis == 2 ? 0 : step.axis + 1];
    double* const b = slot.axes[step.axis == 0 ? 2 : step.axis - 1];
    const double sin = motion * step.sign;
    double turned_a[4];
    double turned_b[4];
    for (int row = 0; row < 4; ++row) {
      turned_a[row] = a[row] * cos + b[row] * sin;
      turned_b[row] = b[row] * cos - a[row] * sin;
    }
    for (int row = 0; row < 4; ++row) {
      a[row] = turned_a[row];
      b[row] = turned_b[row];
    }
  } else {
    double shift[4] = {step.slide[0] * motion, step.slide[1] * motion, step.slide[2] * motion, 0.0};
    if (parent != nullptr) {
      parent->combine(shift[0], shift[1], shift[2], shift);
    }
    for (int row = 0; row < 4; ++row) {
      slot.origin[row] += shift[row];
    }
  }
  return slot;
}

//! The transform of an attached frame.
inline void PlaceFrame(const Kinematics::Attachment& attachment, const Columns* slot,
                       math::RigidTransform& frame) {
  if (slot == nullptr) {
    frame = attachment.offset.transform;
  } else {
    ApplyOffset(*slot, attachment.offset).store(frame);
  }
}

}  // namespace kavo::kinematics::internal
