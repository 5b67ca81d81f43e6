#pragma once

#include <Eigen/Core>
#include <optional>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/environment/configuration_fault.h"
#include "kavo/motion_planning/util/stop_condition.h"
#include "kavo/util/export.h"
#include "kavo/world/world_view.h"

namespace kavo::planning {

//! All that is wrong with a configuration, and how near it is to contact. Metres, radians.
struct KAVO_EXPORT ConfigurationInspection {
  //! The gap between a collision sphere of the robot and an obstacle, beyond the padding that its frame has,
  //! negative where they overlap.
  struct Clearance {
    double distance;            //!< Metres.
    std::string frame;          //!< That carries the sphere.
    ObstacleHandle obstacle;    //!< Its handle.
    std::string obstacle_name;  //!< Its name, also once it was removed.
  };
  //! The gap between two spheres of frames that must not touch each other, negative where they overlap.
  struct SelfClearance {
    double distance;        //!< Metres.
    std::string frames[2];  //!< That carry the spheres.
  };

  //! Every coordinate beyond its range, or not finite.
  std::vector<ConfigurationFault::Limit> limits;
  //! Every sphere that touches an obstacle, with the one that it reaches deepest into.
  std::vector<ConfigurationFault::Contact> contacts;
  //! Every two spheres that touch each other though they must not.
  std::vector<ConfigurationFault::SelfContact> self_contacts;
  //! Frames with a sphere whose place is not a finite number.
  std::vector<std::string> unplaced_frames;
  //! The smallest of each, the first among equals; empty where there is nothing to measure: no obstacle or no
  //! sphere, no pair of frames, a configuration that is not finite.
  std::optional<Clearance> clearance;
  //! The clearance of frames that a coordinate moves: what is fixed to the base is as near as ever.
  std::optional<Clearance> moving_clearance;
  //! Of the robot to itself, likewise.
  std::optional<SelfClearance> self_clearance;

  //! Whether nothing is touched, beyond a limit or placed nowhere.
  bool IsValid() const {
    return limits.empty() && contacts.empty() && self_contacts.empty() && unplaced_frames.empty();
  }

  //! What of it `RobotEnvironment::FindFault` would say; empty for a valid configuration.
  std::optional<ConfigurationFault> Fault() const;
};

//! Looks at configurations one by one, without anything that plans: joint by joint against the limits, sphere
//! by sphere against the nearest obstacle (of those that its frame must not touch) and, for a robot with
//! collision pairs, against its own spheres. Slow and plain. Touching counts as contact.
//! \param robot As this library's builder or loaders made it; fatal otherwise.
//! \param world_view The obstacles, in the frame of the robot's base.
//! \param configurations Of the robot's number of coordinates; otherwise a fatal error.
//! \param stop_condition Asked before each configuration but the first; once it holds, no more are looked at.
//! \return One for each configuration that was looked at.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::SphereObstacle{0.3}, kavo::Pose3::FromTranslation({1.7, 0.6, 0.0}), "ball");
//! const auto robot = kavo::LoadThreeLinkArmRobotDescription();
//! const auto inspections = kavo::planning::InspectConfigurations(
//!     *robot, world.view(), {Eigen::Vector3d(-0.4, 0.1, 0.2), Eigen::Vector3d(0.4, -0.1, -0.2)});
//! assert(inspections[0].IsValid() && inspections[0].clearance->obstacle_name == "ball");
//! assert(!inspections[1].IsValid() && inspections[1].contacts.front().obstacle_name == "ball");
//! @endcode
KAVO_EXPORT std::vector<ConfigurationInspection> InspectConfigurations(
    const RobotDescription& robot, const WorldView& world_view,
    const std::vector<Eigen::VectorXd>& configurations, const StopCondition& stop_condition = {});

}  // namespace kavo::planning
