#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/kinematics.h"
#include "kavo/kinematics/lane_sweep_internal.h"
#include "kavo/math/lane_transforms_internal.h"
#include "kavo/math/pose3.h"
#include "kavo/math/rigid_transform.h"
#include "kavo/math/sphere.h"
#include "kavo/motion_planning/environment/configuration_fault.h"
#include "kavo/motion_planning/environment/motion_proof_internal.h"
#include "kavo/motion_planning/environment/robot_balls_internal.h"
#include "kavo/motion_planning/environment/robot_environment_config.h"
#include "kavo/world/obstacle_set_internal.h"
#include "kavo/world/world_view.h"

namespace kavo::internal {

class Snapshot;

}  // namespace kavo::internal

namespace kavo::planning::internal {

//! The collision spheres of a robot against a world and against each other. Limits are not looked at.
//!
//! `Touches` decides one configuration exactly. `FindFree` asks about several at once: a filter in single
//! precision settles nearly all of them, and what is too close for it goes to `Touches`, so that both give
//! the same answers. Holds the scratch memory of its queries: one thread at a time.
class RobotCollision {
 public:
  //! The most configurations for one call of `FindFree`.
  static constexpr int kBatch = static_cast<int>(math::kNumLanes);

  //! An unknown frame name among the collision spheres is a fatal error.
  explicit RobotCollision(const RobotEnvironmentConfig& config);

  //! Goes over to the robot of another configuration; the world and the base stay.
  void SetRobot(const RobotEnvironmentConfig& config);

  void UpdateWorldView() { world_view_.update(); }
  void SetBasePose(const Pose3& base_pose);

  //! As `RobotEnvironment::Revision`.
  std::uint64_t Revision();

  //! Whether a sphere touches an obstacle, or another sphere that it must not touch. A configuration that is
  //! not finite counts as touching.
  bool Touches(const Eigen::VectorXd& q);

  //! Which configurations touch nothing: bit i stands for configuration i.
  //! \param coordinates Coordinate c of configuration i at [c * `kBatch` + i], finite for those that are
  //!     asked about.
  //! \param wanted The configurations to be asked about. The bits of others are zero.
  //! \param only_below_first Whether those above the first that touches are of no interest: their bits are
  //!     zero then.
  std::uint32_t FindFree(const double* coordinates, std::uint32_t wanted, bool only_below_first);

  //! Whether nothing is touched anywhere on a motion, nor approached nearer than `MotionProof::kClearance`.
  //! \param motion As `MotionProof::IsFree` takes it: both ends, or control points.
  template <class... Motion>
  bool IsFreeMotion(const Motion&... motion) {
    LookAtWorld();
    return !fixed_are_near_ && (collections_.empty() || proof_->IsFree(world_view_, base_, motion...));
  }
  const MotionProof::Work& ProofWork() const { return proof_->GetWork(); }
  //! As `RobotEnvironment::MotionSpeeds`.
  Eigen::VectorXd MotionSpeeds() const;

  //! The deepest contact with an obstacle, and of two spheres that must not touch; empty without any.
  std::optional<ConfigurationFault::Contact> DeepestContact(const Eigen::VectorXd& q);
  std::optional<ConfigurationFault::SelfContact> DeepestSelfContact(const Eigen::VectorXd& q);

  //! The name of a frame with a sphere that a configuration places nowhere finite; empty without any.
  std::optional<std::string> UnplacedFrame(const Eigen::VectorXd& q);

 private:
  // The spheres of one frame, in the frame's coordinates.
  struct Collection {
    std::string frame_name;
    std::vector<math::Sphere> spheres;
    math::Sphere bounding_sphere;
    // How far from obstacles they have to stay.
    double padding = 0.0;
    // The names of those that they may touch, and which these are in the world that is known.
    std::vector<std::string> allowed_obstacles;
    kavo::internal::ObstacleSet allowed;
  };

  void LookAtWorld();
  void LookAtFixedFrames();
  bool IsTouched(const Collection& collection, const Eigen::Vector3d& center, double radius) const;
  bool CollectionTouches(const Collection& collection, const math::RigidTransform& pose,
                         double clearance = 0.0) const;
  bool TouchesItself(const std::vector<math::RigidTransform>& frames) const;
  bool MayTouch(std::size_t a, std::size_t b, const std::vector<math::RigidTransform>& frames) const;

  WorldView world_view_;
  // At the last call of `Revision`. Kept, so that no later snapshot can be mistaken for it.
  std::shared_ptr<const kavo::internal::Snapshot> known_snapshot_;
  std::uint64_t revision_ = 0;
  // Pose of the robot base in the world; empty for the identity, which changes no bit of a frame's pose.
  std::optional<math::RigidTransform> base_;
  // Shared with the configuration; `sweep_` must not outlive it.
  std::shared_ptr<kavo::Kinematics> kinematics_;
  // In the order of checking, one for each frame of the sweeps.
  std::vector<Collection> collections_;
  // Indices of collections that must not touch each other.
  std::vector<std::pair<std::size_t, std::size_t>> pairs_;
  std::unique_ptr<FrameSweep> sweep_;
  // For several configurations at once.
  std::unique_ptr<kinematics::internal::LaneSweep> lane_sweep_;
  std::optional<RobotBalls> balls_;
  std::optional<MotionProof> proof_;
  // Frames that never move, and what was found of them at a revision: whether they touch the world, and
  // whether they come too near for a proof.
  std::vector<std::size_t> fixed_collections_;
  // Of what was looked at in the world.
  std::uint64_t looked_at_ = 0;
  bool fixed_touch_ = false;
  bool fixed_are_near_ = false;
  Eigen::VectorXd q_;
};

}  // namespace kavo::planning::internal
