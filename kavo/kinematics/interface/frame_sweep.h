#pragma once

#include <Eigen/Core>
#include <vector>

#include "kavo/math/rigid_transform.h"
#include "kavo/util/export.h"

namespace kavo {

//! Places a fixed list of frames, all in one pass over the robot.
//!
//! A sweep owns the scratch memory of its queries, so that a query allocates nothing; each thread needs a
//! sweep of its own. Made by `Kinematics::frameSweep`.
//!
//! @code
//! const auto robot = kavo::LoadThreeLinkArmRobotDescription();
//! const auto kinematics = robot->kinematics();
//! std::vector<kavo::Kinematics::FrameHandle> frames;
//! for (const std::string& name : kinematics->frameNames()) {
//!   frames.push_back(kinematics->frame(name));
//! }
//! const auto sweep = kinematics->frameSweep(frames);
//! const auto& poses = sweep->compute(robot->defaultCSpaceConfiguration());
//! assert(poses.size() == frames.size());
//! @endcode
class KAVO_EXPORT FrameSweep {
 public:
  virtual ~FrameSweep();

  //! The transforms of the frames relative to the robot base at configuration `q`, in the order of the list
  //! that the sweep was made for. The reference holds until the next call. The length of `q` must be the
  //! number of c-space coordinates; it is not checked.
  virtual const std::vector<math::RigidTransform>& compute(const Eigen::VectorXd& q) = 0;

 protected:
  FrameSweep() = default;
  FrameSweep(const FrameSweep&) = default;             //!< For derived classes.
  FrameSweep& operator=(const FrameSweep&) = default;  //!< For derived classes.
};

}  // namespace kavo
