#include "kavo/motion_planning/util/path_check.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/util/inspector_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/util/path_check";

class Checker {
 public:
  Checker(const RobotDescription& robot, const WorldView& world_view)
      : inspector_(robot, world_view), world_view_(world_view) {}

  void Visit(const PathPlace& place) {
    ++result_.num_configurations;
    const ConfigurationInspection found = inspector_.Look(place.configuration);
    NoteLimitMargin(place);
    if (found.clearance && (!result_.clearance || found.clearance->distance < result_.clearance->distance)) {
      result_.clearance = {
          found.clearance->distance, found.clearance->frame, found.clearance->obstacle, {}, place};
    }
    if (found.self_clearance &&
        (!result_.self_clearance || found.self_clearance->distance < result_.self_clearance->distance)) {
      const ConfigurationInspection::SelfClearance& nearest = *found.self_clearance;
      result_.self_clearance = {nearest.distance, {nearest.frames[0], nearest.frames[1]}, place};
    }
    if (!found.IsValid()) {
      ++result_.num_bad;
      if (!result_.first_bad) {
        result_.first_bad = {place, *found.Fault()};
      }
    }
  }

  void Stop() { result_.was_stopped = true; }

  // With the names of the obstacles, which are looked up only here.
  PathCheck Result() {
    if (result_.clearance) {
      result_.clearance->obstacle_name = world_view_.name(result_.clearance->obstacle);
    }
    if (result_.first_bad && result_.first_bad->fault.contact) {
      ConfigurationFault::Contact& contact = *result_.first_bad->fault.contact;
      contact.obstacle_name = world_view_.name(contact.obstacle);
    }
    return result_;
  }

 private:
  void NoteLimitMargin(const PathPlace& place) {
    const std::vector<kinematics::JointLimits>& limits = inspector_.Limits();
    for (std::size_t i = 0; i < limits.size(); ++i) {
      const double value = place.configuration[static_cast<Eigen::Index>(i)];
      const double distance = std::min(value - limits[i].min, limits[i].max - value);
      if (std::isfinite(distance) && (!result_.limit_margin || distance < result_.limit_margin->distance)) {
        result_.limit_margin = {distance, i, place};
      }
    }
  }

  internal::Inspector inspector_;
  WorldView world_view_;
  PathCheck result_;
};

}  // namespace

PathCheck CheckPath(const RobotDescription& robot, const WorldView& world_view,
                    const std::vector<Eigen::VectorXd>& path, double step_size,
                    const StopCondition& stop_condition) {
  KAVO_CHECK(!path.empty(), kFile, 150) << "There is no configuration to check.";
  KAVO_CHECK(step_size > 0.0, kFile, 151) << "The step [" << step_size << "] must be positive.";
  for (std::size_t i = 0; i < path.size(); ++i) {
    KAVO_CHECK(static_cast<std::size_t>(path[i].size()) == robot.numCSpaceCoords(), kFile, 153)
        << "Waypoint " << i << " has " << path[i].size() << " coordinates, the robot "
        << robot.numCSpaceCoords() << ".";
  }

  Checker checker(robot, world_view);
  checker.Visit({0, 0.0, path.front()});
  const auto visit = [&](const PathPlace& place) {
    if (stop_condition && stop_condition()) {
      checker.Stop();
      return false;
    }
    checker.Visit(place);
    return true;
  };
  bool goes_on = true;
  for (std::size_t i = 0; goes_on && i + 1 < path.size(); ++i) {
    const double length = math::Distance(path[i], path[i + 1]);
    const double num_parts = std::isfinite(length) ? std::max(1.0, std::ceil(length / step_size)) : 1.0;
    KAVO_CHECK(num_parts <= std::numeric_limits<int>::max(), kFile, 163)
        << "A segment of length [" << length << "] has too many parts of [" << step_size
        << "] to be checked.";
    const Eigen::VectorXd segment = path[i + 1] - path[i];
    for (int k = 1; goes_on && k < static_cast<int>(num_parts); ++k) {
      const double fraction = k / num_parts;
      goes_on = visit({i, fraction, path[i] + segment * fraction});
    }
    goes_on = goes_on && visit({i, 1.0, path[i + 1]});
  }
  return checker.Result();
}

}  // namespace kavo::planning
