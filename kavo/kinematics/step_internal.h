#pragma once

#include <Eigen/Core>

#include "kavo/kinematics/kinematics.h"
#include "kavo/math/rigid_transform.h"

// What one step of a kinematic program does. Shared by every exact way of running a program, so that all give
// the same bits.

namespace kavo::kinematics::internal {

//! A rigid transform by columns: the axes of the moved frame, then its origin. Each column has a fourth
//! place, which is computed and never read, so that a column is a whole number of vector registers.
struct alignas(32) Columns {
  double axes[3][4];
  double origin[4];

  Eigen::Vector3d axis(int i) const { return {axes[i][0], axes[i][1], axes[i][2]}; }
  Eigen::Vector3d position() const { return {origin[0], origin[1], origin[2]}; }
};

//! Fills the slot of a step from the one that carries it (null: the base).
//! \param motion Sine of the coordinate of a revolute joint; the coordinate itself of a prismatic one.
//! \param cos Cosine of the coordinate of a revolute joint.
void RunStep(const Kinematics::Step& step, const Columns* parent, double motion, double cos, Columns* slot);

//! The transform of an attached frame; `slot` is null on the base.
void PlaceFrame(const Kinematics::Attachment& attachment, const Columns* slot, math::RigidTransform* frame);

//! Runs all steps of a plan, then places its frames.
//! \param motions, cosines As for `RunStep`, one for each step.
void RunPlan(const Kinematics::Plan& plan, const double* motions, const double* cosines, Columns* slots,
             math::RigidTransform* frames);

//! Displacement of a sliding joint per unit, in the base, from the slot that carries it.
Eigen::Vector3d SlideInBase(const Kinematics::Step& step, const Columns& parent);

}  // namespace kavo::kinematics::internal
