#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/environment/configuration_fault.h"
#include "kavo/motion_planning/util/stop_condition.h"
#include "kavo/util/export.h"
#include "kavo/world/world_view.h"

namespace kavo::planning {

//! Where on a path.
struct PathPlace {
  //! Index of the segment: from waypoint `segment` to the next one.
  std::size_t segment = 0;
  //! From 0, at the segment's first waypoint, to 1.
  double fraction = 0.0;
  //! What the robot is in there.
  Eigen::VectorXd configuration;
};

//! What `CheckPath` found.
struct PathCheck {
  //! A configuration that is not valid, and why.
  struct Bad {
    PathPlace place;           //!< Where it is.
    ConfigurationFault fault;  //!< What is wrong with it.
  };
  //! The gap between a collision sphere of the robot and an obstacle, beyond the padding that its frame has
  //! (see `ContactRules`), negative where they overlap. Metres.
  struct Clearance {
    double distance;          //!< Metres.
    std::string frame;        //!< That carries the sphere.
    ObstacleHandle obstacle;  //!< Its handle.
    //! Its name, also once it was removed from the world.
    std::string obstacle_name;
    PathPlace place;  //!< Where it is that small.
  };
  //! The gap between two spheres of frames that must not touch each other, negative where they overlap.
  //! Metres.
  struct SelfClearance {
    double distance;        //!< Metres.
    std::string frames[2];  //!< That carry the spheres.
    PathPlace place;        //!< Where it is that small.
  };
  //! The distance of a coordinate to the nearer of its limits, negative beyond it. Coordinates without limits
  //! have none.
  struct LimitMargin {
    double distance;         //!< Radians or metres.
    std::size_t coordinate;  //!< Index, from 0.
    PathPlace place;         //!< Where it is that small.
  };

  //! Configurations that were looked at.
  std::size_t num_configurations = 0;
  //! Those of them that are not valid.
  std::size_t num_bad = 0;
  //! The one that comes first along the path; empty if the path is valid.
  std::optional<Bad> first_bad;
  //! The smallest to an obstacle along the whole path, the first among equals. This and the next two are
  //! empty where there is nothing to measure: no obstacle or no sphere, no pair of frames, no coordinate.
  std::optional<Clearance> clearance;
  //! Of the robot to itself.
  std::optional<SelfClearance> self_clearance;
  //! To the limits of the joints.
  std::optional<LimitMargin> limit_margin;

  //! Whether the stop condition ended the check: nothing is known of what was not looked at.
  bool was_stopped = false;

  //! Whether nothing bad was found, and nothing left out.
  bool IsValid() const { return !first_bad && !was_stopped; }
};

//! Looks at a path anew, without anything that planned it: joint by joint against the limits, sphere by
//! sphere against the nearest obstacle (of those that its frame must not touch) and, for a robot with
//! collision pairs, against its own spheres. Slow and plain.
//!
//! Every segment is divided evenly into parts no longer than `step_size` (Euclidean, in c-space); all
//! waypoints are looked at. Between two such points an obstacle's edge may still be grazed: the finer the
//! step, the less deep. Touching counts as collision, as everywhere.
//! \param robot As this library's builder or loaders made it; fatal otherwise.
//! \param world_view The obstacles, in the frame of the robot's base.
//! \param path At least one configuration of the robot's number of coordinates; otherwise a fatal error. One
//!     that is not finite is not valid.
//! \param step_size Positive; otherwise, and for a segment of more parts than an int can count, a fatal
//!     error.
//! \param stop_condition Asked before each configuration but the first.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::SphereObstacle{0.3}, kavo::Pose3::FromTranslation({1.7, 0.6, 0.0}), "ball");
//! const auto robot = kavo::LoadThreeLinkArmRobotDescription();
//! const std::vector<Eigen::VectorXd> path = {Eigen::Vector3d(-0.4, 0.1, 0.2), Eigen::Vector3d(1.7, -0.2,
//! -0.3)}; const kavo::planning::PathCheck check = kavo::planning::CheckPath(*robot, world.view(), path,
//! 0.01); assert(!check.IsValid() && check.first_bad->fault.contact->obstacle_name == "ball");
//! @endcode
KAVO_EXPORT PathCheck CheckPath(const RobotDescription& robot, const WorldView& world_view,
                                const std::vector<Eigen::VectorXd>& path, double step_size,
                                const StopCondition& stop_condition = {});

}  // namespace kavo::planning
