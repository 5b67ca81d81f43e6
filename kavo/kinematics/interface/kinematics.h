#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/frame_sweep.h"
#include "kavo/math/pose3.h"
#include "kavo/util/export.h"

namespace kavo {

//! Kinematic model of a robot: where its frames are for a configuration.
//!
//! Poses and positions are relative to the robot base, in metres; coordinates are radians (revolute,
//! continuous joints) or metres (prismatic joints). A model is immutable: any number of threads may ask it at
//! once. In the models of this library a configuration of another length than `numCSpaceCoords()`, and a
//! handle of a frame that the model does not have, are fatal errors.
//!
//! @code
//! const auto robot = kavo::LoadFrankaRobotDescription();
//! const auto kinematics = robot->kinematics();
//! const auto tool = kinematics->frame("tool");
//! const Eigen::VectorXd q = robot->defaultCSpaceConfiguration();
//! const Eigen::Vector3d position = kinematics->position(q, tool);
//! assert(position == kinematics->pose(q, tool).translation());
//! assert(kinematics->positionJacobian(q, tool).cols() == 7);
//! @endcode
class KAVO_EXPORT Kinematics {
 public:
  //! Names one frame of one model. Cheap to copy.
  class KAVO_EXPORT FrameHandle {
   public:
    //! What a handle stands for.
    struct Impl {
      //! Position of the frame in the model's `frameNames()`. A frame comes after the one it is attached to.
      int index;
    };

    //! For models, which hand them out; a wrong index is fatal when the handle is used.
    explicit FrameHandle(int index) : impl_(std::make_shared<const Impl>(Impl{index})) {}

    //! See `Impl::index`.
    int index() const { return impl_->index; }

   private:
    std::shared_ptr<const Impl> impl_;
  };

  virtual ~Kinematics();

  //! Number of c-space coordinates, n below.
  virtual std::size_t numCSpaceCoords() const = 0;

  //! The names of all frames; each frame comes after the one it is attached to, the base frame first.
  virtual const std::vector<std::string>& frameNames() const = 0;

  //! The handle of a frame. An unknown name is a fatal error whose message lists the names there are.
  virtual FrameHandle frame(const std::string& frame_name) const = 0;

  //! Pose of the frame relative to the robot base: maps coordinates in the frame to the base.
  virtual Pose3 pose(const Eigen::VectorXd& cspace_config, const FrameHandle& frame) const = 0;

  //! Position of the frame's origin relative to the robot base.
  virtual Eigen::Vector3d position(const Eigen::VectorXd& cspace_config, const FrameHandle& frame) const = 0;

  //! Derivative of `position` with respect to the coordinates, 3 x n: metres per radian, or per metre for a
  //! prismatic joint.
  virtual Eigen::MatrixXd positionJacobian(const Eigen::VectorXd& cspace_config,
                                           const FrameHandle& frame) const = 0;

  //! A sweep over the given frames. It must not outlive this model. The default asks `pose` frame by frame.
  virtual std::unique_ptr<FrameSweep> frameSweep(const std::vector<FrameHandle>& frames) const;

 protected:
  Kinematics() = default;
  Kinematics(const Kinematics&) = default;             //!< For derived classes.
  Kinematics& operator=(const Kinematics&) = default;  //!< For derived classes.
};

}  // namespace kavo
