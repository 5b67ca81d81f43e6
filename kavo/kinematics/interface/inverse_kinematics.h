#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/pose_target.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/util/export.h"

namespace kavo {

//! How `SolveInverseKinematics` searches.
struct InverseKinematicsOptions {
  //! The search ends with this many solutions; at least 1.
  std::size_t max_solutions = 1;
  //! Random restarts are numbered: the configuration that restart k begins at depends on `seed` and k alone.
  //! Those from this number on are used.
  std::uint64_t first_restart = 0;
  //! How many of them at most.
  std::uint64_t max_restarts = 100;
  //! Of the random restarts.
  std::uint32_t seed = 1;
  //! Configurations to begin at. Restarts count only once all of these have led somewhere or nowhere.
  std::vector<Eigen::VectorXd> seeds = {};
  //! Solutions are sorted by the distance from it; without one they are in the order found.
  std::optional<Eigen::VectorXd> reference = std::nullopt;
  //! What else a solution has to be, such as free of collisions; it is asked about each one once.
  std::function<bool(const Eigen::VectorXd&)> filter = {};
};

//! A configuration and how far the frame is from its target there.
struct NearestPose {
  //! The configuration, within the limits.
  Eigen::VectorXd q;
  //! The distance from the target, metres, over the coordinates that count.
  double position_error = 0.0;
  //! The angle of the rotation that is left, radians, about the axes that count.
  double orientation_error = 0.0;
  //! The coordinates, ascending, that stand at a limit and would have to go beyond it to come nearer.
  std::vector<std::size_t> coordinates_at_limits;
};

//! What a search for configurations found.
struct InverseKinematicsResult {
  //! Within the limits, each at least 1e-3 from each other one (Euclidean; whole turns of periodic
  //! coordinates do not count).
  std::vector<Eigen::VectorXd> solutions;
  //! Where no configuration with the pose was found at all: the nearest that the search got. Absent, too, if
  //! there was nothing to begin at.
  std::optional<NearestPose> nearest;
  //! Random restarts that were begun.
  std::uint64_t num_restarts = 0;
  //! Configurations with the pose that the filter refused.
  std::uint64_t num_filtered = 0;
};

//! Finds configurations in which a frame of a robot has a pose.
//!
//! Holds the scratch memory of its queries: one thread at a time. Equal questions have equal answers, bit for
//! bit, whatever was asked before. Targets that are not finite, tolerances that are not positive, and
//! configurations of another length than the robot's or that are not finite, are fatal errors.
//!
//! A coordinate that turns joints and whose range is 2 pi or more is looked for on one turn only: the one
//! around its value in the reference, else the first seed, else the default configuration. Coordinates that
//! do not move the frame stay as they are there.
//!
//! Method: damped least squares (Wampler 1986; Nakamura and Hanafusa 1986), with a damping in proportion to
//! the squared error (after Sugihara 2011).
class KAVO_EXPORT InverseKinematics {
 public:
  //! \param robot As this library's builder or loaders made it; fatal otherwise. Not needed afterwards.
  //! \param frame Name of the frame; an unknown one is a fatal error whose message lists the names there are.
  InverseKinematics(const RobotDescription& robot, const std::string& frame);
  ~InverseKinematics();
  //! Leaves the other one good for destruction and for being assigned to.
  InverseKinematics(InverseKinematics&&) noexcept;
  //! As above.
  InverseKinematics& operator=(InverseKinematics&&) noexcept;

  //! Searches from seeds and from random restarts.
  InverseKinematicsResult solve(const PoseTarget& target, const InverseKinematicsOptions& options = {});

  //! The solution that lies downhill from a configuration: for a target that is a small step away it is near.
  //! Joints do not go round by whole turns.
  //! \param q Brought within the limits first.
  //! \param nearest Where there is no solution: how near it got. May be null.
  std::optional<Eigen::VectorXd> follow(const Eigen::VectorXd& q, const PoseTarget& target,
                                        NearestPose* nearest = nullptr);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

//! Configurations in which a frame of a robot has a pose; see `InverseKinematics`, which saves the set-up
//! where there are several targets.
//!
//! @code
//! const auto robot = kavo::LoadFrankaRobotDescription();
//! const auto kinematics = robot->kinematics();
//! kavo::PoseTarget target;
//! target.pose = kavo::Pose3(Eigen::Quaterniond(0.0, 1.0, 0.0, 0.0), {0.5, 0.1, 0.3});  // pointing down
//! const kavo::InverseKinematicsResult result = kavo::SolveInverseKinematics(*robot, "tool", target);
//! const kavo::Pose3 pose = kinematics->pose(result.solutions.front(), kinematics->frame("tool"));
//! assert((pose.translation() - target.pose.translation()).norm() <= target.position_tolerance);
//!
//! target.pose = kavo::Pose3::FromTranslation({2.0, 0.0, 0.3});
//! const kavo::InverseKinematicsResult too_far = kavo::SolveInverseKinematics(*robot, "tool", target);
//! assert(too_far.solutions.empty());
//! std::cout << kavo::Explain(*robot, too_far) << '\n';
//! @endcode
KAVO_EXPORT InverseKinematicsResult SolveInverseKinematics(const RobotDescription& robot,
                                                           const std::string& frame, const PoseTarget& target,
                                                           const InverseKinematicsOptions& options = {});

//! Such as "the nearest it got: 12 mm, 3 degrees; joint4 at its limit".
KAVO_EXPORT std::string Explain(const RobotDescription& robot, const NearestPose& nearest);
//! Why a search has no solution; of one that has some, their number.
KAVO_EXPORT std::string Explain(const RobotDescription& robot, const InverseKinematicsResult& result);

}  // namespace kavo
