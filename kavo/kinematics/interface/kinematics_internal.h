#pragma once

#include "kavo/kinematics/interface/kinematics.h"
#include "kavo/kinematics/kinematics.h"

namespace kavo {

//! `Kinematics` of the robots that this library builds: wraps the model value.
//!
//! A configuration of the wrong length and a handle whose index this model does not have are fatal errors.
//! Its sweeps hold all that they need and may outlive the model.
class KAVO_EXPORT KinematicsInternal : public Kinematics {
 public:
  //! From a model value, which it keeps.
  explicit KinematicsInternal(kinematics::Kinematics model);
  ~KinematicsInternal() override;

  std::size_t numCSpaceCoords() const override;
  const std::vector<std::string>& frameNames() const override;
  FrameHandle frame(const std::string& frame_name) const override;
  Pose3 pose(const Eigen::VectorXd& cspace_config, const FrameHandle& frame) const override;
  Eigen::Vector3d position(const Eigen::VectorXd& cspace_config, const FrameHandle& frame) const override;
  Eigen::MatrixXd positionJacobian(const Eigen::VectorXd& cspace_config,
                                   const FrameHandle& frame) const override;
  std::unique_ptr<FrameSweep> frameSweep(const std::vector<FrameHandle>& frames) const override;

  //! The model value.
  const kinematics::Kinematics& model() const { return model_; }

 private:
  void checkConfiguration(const Eigen::VectorXd& cspace_config) const;
  int checkedIndex(const FrameHandle& frame) const;

  kinematics::Kinematics model_;
};

}  // namespace kavo
