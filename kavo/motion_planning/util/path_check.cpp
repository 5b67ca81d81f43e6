#include "kavo/motion_planning/util/path_check.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <utility>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/math/sphere.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/util/log_message.h"
#include "kavo/world/ball_model_internal.h"
#include "kavo/world/snapshot_internal.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/util/path_check";

double Distance(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
  const Eigen::Vector3d d = a - b;
  return std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
}

class Checker {
 public:
  Checker(const RobotDescription& robot, const WorldView& world_view)
      : limits_(ExtractJointLimits(&robot)),
        kinematics_(robot.kinematics()),
        world_view_(world_view),
        snapshot_(kavo::internal::SnapshotOf(world_view_)) {
    // `ExtractJointLimits` has refused any other kind.
    const auto& description = dynamic_cast<const RobotDescriptionInternal&>(robot);
    for (const std::string& frame : description.collision().frames) {
      const CollisionModel& collision = description.collision();
      shapes_.push_back({frame,
                         kinematics_->frame(frame),
                         collision.spheresOf(frame),
                         collision.paddingOf(frame),
                         snapshot_->named(collision.allowedObstaclesOf(frame)),
                         {}});
    }
    for (const auto& [frame_a, frame_b] : description.collision().pairs) {
      const auto a = FindShape(frame_a);
      const auto b = FindShape(frame_b);
      if (a != shapes_.size() && b != shapes_.size()) {
        pairs_.emplace_back(a, b);
      }
    }
  }

  void Visit(const PathPlace& place) {
    ++result_.num_configurations;
    ConfigurationFault fault;
    CheckLimits(place, fault);
    if (math::IsFinite(place.configuration)) {
      PlaceSpheres(place.configuration);
      CheckObstacles(place, fault);
      CheckPairs(place, fault);
    }
    if (fault.limit || fault.contact || fault.self_contact || fault.unplaced_frame) {
      ++result_.num_bad;
      if (!result_.first_bad) {
        result_.first_bad = {place, std::move(fault)};
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
  // The spheres of one frame.
  struct Shape {
    std::string frame;
    Kinematics::FrameHandle handle;
    std::vector<math::Sphere> spheres;
    // How far from obstacles they have to stay.
    double padding;
    // Those that they may touch.
    kavo::internal::ObstacleSet allowed;
    // In the world, for the configuration that is looked at.
    std::vector<Eigen::Vector3d> centers;
  };

  std::size_t FindShape(const std::string& frame) const {
    const auto has_name = [&](const Shape& shape) { return shape.frame == frame; };
    return static_cast<std::size_t>(std::find_if(shapes_.begin(), shapes_.end(), has_name) - shapes_.begin());
  }

  void CheckLimits(const PathPlace& place, ConfigurationFault& fault) {
    for (std::size_t i = 0; i < limits_.size(); ++i) {
      const double value = place.configuration[static_cast<Eigen::Index>(i)];
      const auto [lower, upper] = limits_[i];
      if (!fault.limit && !(lower <= value && value <= upper && std::isfinite(value))) {
        fault.limit = {i, value, lower, upper};
      }
      const double distance = std::min(value - lower, upper - value);
      if (std::isfinite(distance) && (!result_.limit_margin || distance < result_.limit_margin->distance)) {
        result_.limit_margin = {distance, i, place};
      }
    }
  }

  void PlaceSpheres(const Eigen::VectorXd& q) {
    for (Shape& shape : shapes_) {
      const Pose3 pose = kinematics_->pose(q, shape.handle);
      shape.centers.clear();
      for (const math::Sphere& sphere : shape.spheres) {
        shape.centers.emplace_back(pose * sphere.center);
      }
    }
  }

  void CheckObstacles(const PathPlace& place, ConfigurationFault& fault) {
    for (const Shape& shape : shapes_) {
      for (std::size_t k = 0; k < shape.spheres.size(); ++k) {
        const double radius = shape.spheres[k].radius + shape.padding;
        if (!shape.centers[k].allFinite()) {
          fault.unplaced_frame = shape.frame;
          continue;
        }
        const auto nearest = snapshot_->nearestObstacle(shape.centers[k], &shape.allowed);
        if (!nearest) {
          continue;
        }
        const double distance = nearest->distance - radius;
        if (!result_.clearance || distance < result_.clearance->distance) {
          result_.clearance = {distance, shape.frame, nearest->obstacle, {}, place};
        }
        if (distance <= 0.0 && !fault.limit && (!fault.contact || -distance > fault.contact->depth)) {
          fault.contact = {shape.frame, k, shape.centers[k], radius, nearest->obstacle, {}, -distance};
        }
      }
    }
  }

  void CheckPairs(const PathPlace& place, ConfigurationFault& fault) {
    for (const auto& [index_a, index_b] : pairs_) {
      const Shape& a = shapes_[index_a];
      const Shape& b = shapes_[index_b];
      for (std::size_t i = 0; i < a.spheres.size(); ++i) {
        for (std::size_t k = 0; k < b.spheres.size(); ++k) {
          const double distance =
              Distance(a.centers[i], b.centers[k]) - a.spheres[i].radius - b.spheres[k].radius;
          if (!result_.self_clearance || distance < result_.self_clearance->distance) {
            result_.self_clearance = {distance, {a.frame, b.frame}, place};
          }
          if (distance <= 0.0 && !fault.limit && !fault.contact &&
              (!fault.self_contact || -distance > fault.self_contact->depth)) {
            fault.self_contact = {{a.frame, b.frame}, {i, k}, -distance};
          }
        }
      }
    }
  }

  std::vector<kinematics::JointLimits> limits_;
  std::unique_ptr<Kinematics> kinematics_;
  WorldView world_view_;
  std::shared_ptr<const kavo::internal::Snapshot> snapshot_;
  std::vector<Shape> shapes_;
  // Indices of shapes that must not touch each other.
  std::vector<std::pair<std::size_t, std::size_t>> pairs_;
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
