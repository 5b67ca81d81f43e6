#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <memory>
#include <optional>

#include "kavo/math/pose3.h"
#include "kavo/motion_planning/environment/configuration_fault.h"
#include "kavo/motion_planning/environment/environment.h"
#include "kavo/motion_planning/environment/robot_environment_config.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! A robot arm among obstacles. A configuration holds one value for each joint (radians, or metres for a
//! prismatic one); it is valid when each joint is within its closed limits, no collision sphere of the robot
//! touches an obstacle, and no two spheres touch whose frames are one of the robot's collision pairs. A
//! configuration that is not finite is never valid. A continuous joint without limits is within them
//! everywhere; it is sampled from [-pi, pi].
//!
//! Not even the const operations of one environment may run on several threads at once: they share scratch
//! memory and random generators.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::SphereObstacle{0.3}, kavo::Pose3::FromTranslation({1.7, 0.6, 0.0}), "ball");
//! const kavo::planning::RobotEnvironmentConfig config =
//! kavo::planning::BuildThreeLinkRobotEnvironmentConfig(
//!     world.view(), {1.0, 1.0, 1.0}, /*max_sampling_attempts=*/100, /*c_space_seed=*/1);
//! const auto environment = kavo::planning::CreateRobotEnvironment(config);
//! assert(environment->IsValidConfiguration(Eigen::Vector3d(-0.4, 0.1, 0.2)));
//! const auto fault = environment->FindFault(Eigen::Vector3d(0.5, 0.0, -0.3));
//! assert(fault && fault->contact->obstacle_name == "ball");
//! @endcode
class KAVO_EXPORT RobotEnvironment : public Environment {
 public:
  //! Position of the task-space frame relative to the robot base (metres), wherever the base stands in the
  //! world. A wrong length of `q` is a fatal error, here and below.
  virtual Eigen::Vector3d TaskSpacePosition(const Eigen::VectorXd& q) const = 0;

  //! Derivative of `TaskSpacePosition`.
  //! \param[out] jacobian Sized 3 x `CSpaceDimension()` by the caller; another size is a fatal error.
  virtual void GetTaskSpacePositionJacobian(const Eigen::VectorXd& q, Eigen::MatrixXd& jacobian) const = 0;

  //! A random point of the task-space limits, tested against nothing; empty, with a warning, without such
  //! limits.
  virtual std::optional<Eigen::Vector3d> SampleTaskSpace() const = 0;

  //! Takes the world as it is now.
  virtual void UpdateWorldView() = 0;

  //! Places the robot base in the world; identity at first. Task-space positions do not depend on it. A pose
  //! that is not finite is a fatal error.
  virtual void SetBasePose(const Pose3& base_pose) = 0;

  //! What the environment has done since it was created.
  struct Statistics {
    //! Configurations checked, also those that a planner looked ahead to and did not reach.
    std::uint64_t num_validity_checks = 0;
    //! Random configurations and task-space positions.
    std::uint64_t num_samples_drawn = 0;
    //! Random configurations that were not valid.
    std::uint64_t num_samples_rejected = 0;
    //! Motions checked, curves among them.
    std::uint64_t num_motions = 0;
    //! Placements of the robot that checking motions took.
    std::uint64_t num_placements = 0;
    //! How often a part of a motion had to be divided.
    std::uint64_t num_divisions = 0;
  };
  //! The counts so far; they never go back.
  virtual Statistics GetStatistics() const = 0;

  //! Why `q` is not valid; empty if it is. Slower than the check itself.
  virtual std::optional<ConfigurationFault> FindFault(const Eigen::VectorXd& q) const = 0;

  //! A number that is another one once the world as the environment sees it, or the base pose, has changed
  //! since the last call: what was said of configurations may not hold any more. A view may also be updated
  //! through its copies, and so in the middle of a query. The default is an environment that never changes.
  virtual std::uint64_t Revision() const { return 0; }

  //! For each coordinate how far a unit of it moves any point of the robot's collision spheres, at most:
  //! metres for each radian or metre. What makes a joint that slides and one that turns comparable. The
  //! default does not know, and takes all for equal.
  virtual Eigen::VectorXd MotionSpeeds() const { return Eigen::VectorXd::Ones(CSpaceDimension()); }

  //! Goes over to another form of the robot (see robot_variants.h), such as one that holds something; as
  //! `RobotEnvironmentConfig::SetRobot`. Random sequences go on where they are. An environment that has not
  //! overridden this default knows no other form: a fatal error.
  virtual void SetRobot(const RobotDescription& robot);

 protected:
  //! See `Environment`.
  using Environment::Environment;
};

//! An environment under the weighted squared distance (see `WeightedSquaredL2Norm`), which goes the short way
//! round in periodic coordinates.
//!
//! Limits whose minimum is above the maximum are warned about: no configuration is valid then, or, for
//! task-space limits, samples come from [-1, 1]. An unknown frame name among the collision spheres, a sphere
//! that is not finite or has a negative radius, and another number of weights than joints are fatal errors.
KAVO_EXPORT std::shared_ptr<RobotEnvironment> CreateRobotEnvironment(const RobotEnvironmentConfig& config);

}  // namespace kavo::planning
