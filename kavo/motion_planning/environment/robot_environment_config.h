#pragma once

#include <Eigen/Core>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/collision_model.h"
#include "kavo/kinematics/interface/configuration_limits.h"
#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/kinematics.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/math/sphere.h"
#include "kavo/util/export.h"
#include "kavo/world/world_view.h"

namespace kavo::planning {

//! Everything that a `RobotEnvironment` is built from. A value: environments copy what they need, so that
//! later changes touch only environments built afterwards.
class KAVO_EXPORT RobotEnvironmentConfig {
 public:
  //! Takes kinematics, joint limits and collision spheres from the description, which is not kept. The
  //! task-space frame is the last frame of the kinematics; there are no task-space limits yet.
  //!
  //! \param robot_description The robot, as this library's builder or loaders made it; fatal otherwise.
  //! \param world_view_in The obstacles.
  //! \param distance_weights_in Weights of the squared distance between configurations, one for each joint;
  //!   another number of weights than joints is a fatal error.
  //! \param max_sampling_attempts_in Random configurations that `SampleConfiguration` tries before it gives
  //!   up. A negative number is practically unlimited.
  //! \param c_space_seed_in Joint i is sampled with the seed `c_space_seed_in` + i.
  //! \param task_space_seed_in Seed of the task-space samples.
  RobotEnvironmentConfig(const RobotDescription* robot_description, const WorldView& world_view_in,
                         const Eigen::VectorXd& distance_weights_in, int max_sampling_attempts_in,
                         int c_space_seed_in, int task_space_seed_in);

  //! The kinematic model, shared with every environment built from this configuration.
  std::shared_ptr<kavo::Kinematics> Kinematics() const { return kinematics_; }
  //! Number of c-space coordinates of the kinematics.
  int NumJoints() const { return static_cast<int>(kinematics_->numCSpaceCoords()); }
  //! Names of the frames that carry collision spheres, in the order in which each got its first one.
  const std::vector<std::string>& FrameNames() const { return collision_.frames; }
  //! Names of all frames of the kinematics.
  std::vector<std::string> GetFrameNames() const { return kinematics_->frameNames(); }
  //! In coordinate order, radians or metres.
  const std::vector<kinematics::JointLimits>& JointLimits() const { return joint_limits_; }
  //! The coordinates of the description in which a whole turn changes nothing.
  const std::vector<Eigen::Index>& PeriodicCoordinates() const { return periodic_coordinates_; }
  //! The spheres of a frame in the frame's coordinates (metres), in the order added; empty for a frame
  //! without any.
  std::vector<math::Sphere> CollisionSpheres(const std::string& frame_name) const {
    return collision_.spheresOf(frame_name);
  }
  //! The pairs of frames of the description that must not touch each other.
  const std::vector<std::pair<std::string, std::string>>& CollisionPairs() const { return collision_.pairs; }
  //! All of the collision geometry, also paddings and what may touch which obstacles.
  const CollisionModel& Collision() const { return collision_; }
  //! The frame whose position is the task-space position.
  kavo::Kinematics::FrameHandle GetTaskSpaceFrame() const { return task_space_frame_; }
  //! The box to sample in task space, relative to the robot base (metres); empty until one was set.
  std::optional<kinematics::ConfigurationLimits> TryGetTaskSpaceLimits() const { return task_space_limits_; }

  //! Sets the task-space frame and returns its handle. An unknown name (case counts) is warned about, changes
  //! nothing and gives an empty result.
  std::optional<kavo::Kinematics::FrameHandle> SetTaskSpaceFrame(const std::string& frame_name);

  //! Sets the box to sample in task space; its dimension must be 3, otherwise a fatal error.
  void SetTaskSpaceLimits(kinematics::ConfigurationLimits task_space_limits);

  //! Attaches a collision sphere to a frame. Neither the name nor the sphere is checked here; an unknown name
  //! surfaces when an environment is created.
  void AddCollisionSphere(const std::string& frame_name, const math::Sphere& sphere);

  //! Attaches all collision spheres of a description, and adds its collision pairs to those that are there.
  //! \param robot_description As for the constructor.
  void AddCollisionSpheres(const RobotDescription* robot_description);

  //! Goes over to another form of the robot, such as one that holds something (see robot_variants.h): its
  //! kinematics and its collision geometry take the place of those that are there, also of spheres that were
  //! added. Fatal unless it has the same coordinates and limits, and the task-space frame.
  //! \param robot_description As for the constructor.
  void SetRobot(const RobotDescription* robot_description);

  //! A fatal error unless there are as many joint limits and distance weights as joints. Called when the
  //! configuration is made; the weights may have been changed since.
  void ValidateInput() const;

  //! The obstacles. This and the fields below may be changed until an environment is made.
  WorldView world_view;
  int max_sampling_attempts;         //!< Random configurations tried for one sample.
  int c_space_seed;                  //!< Joint i is sampled with this + i.
  int task_space_seed;               //!< Of random positions.
  Eigen::VectorXd distance_weights;  //!< Of the squared distance, one for each joint.

 private:
  std::shared_ptr<kavo::Kinematics> kinematics_;
  int num_joints_;
  std::vector<kinematics::JointLimits> joint_limits_;
  std::vector<Eigen::Index> periodic_coordinates_;
  std::optional<kinematics::ConfigurationLimits> task_space_limits_;
  CollisionModel collision_;
  kavo::Kinematics::FrameHandle task_space_frame_;
};

//! The configuration of the built-in Franka arm, with task-space seed 142. Parameters as for the constructor
//! above.
KAVO_EXPORT RobotEnvironmentConfig BuildFrankaRobotEnvironmentConfig(const WorldView& world_view,
                                                                     const Eigen::VectorXd& distance_weights,
                                                                     int max_sampling_attempts,
                                                                     int c_space_seed);

//! The configuration of the built-in three-link arm, with task-space seed 142. Parameters as for the
//! constructor above.
KAVO_EXPORT RobotEnvironmentConfig
BuildThreeLinkRobotEnvironmentConfig(const WorldView& world_view, const Eigen::Vector3d& distance_weights,
                                     int max_sampling_attempts, int c_space_seed);

}  // namespace kavo::planning
