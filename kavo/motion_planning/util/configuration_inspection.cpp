#include "kavo/motion_planning/util/configuration_inspection.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/util/inspector_internal.h"
#include "kavo/util/log_message.h"
#include "kavo/world/ball_model_internal.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/util/configuration_inspection";

double Distance(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
  const Eigen::Vector3d d = a - b;
  return std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
}

// The first of those that are deepest.
template <class Contact>
const Contact& Deepest(const std::vector<Contact>& contacts) {
  return *std::max_element(contacts.begin(), contacts.end(),
                           [](const Contact& a, const Contact& b) { return a.depth < b.depth; });
}

bool IsMoved(const kinematics::Kinematics& model, const std::string& frame) {
  int index = model.frame(frame);
  while (index >= 0 && model.frames()[static_cast<std::size_t>(index)].coordinate < 0) {
    index = model.frames()[static_cast<std::size_t>(index)].parent;
  }
  return index >= 0;
}

}  // namespace

std::optional<ConfigurationFault> ConfigurationInspection::Fault() const {
  ConfigurationFault fault;
  if (!limits.empty()) {
    fault.limit = limits.front();
  } else if (!contacts.empty()) {
    fault.contact = Deepest(contacts);
  } else if (!self_contacts.empty()) {
    fault.self_contact = Deepest(self_contacts);
  } else if (!unplaced_frames.empty()) {
    fault.unplaced_frame = unplaced_frames.back();
  } else {
    return std::nullopt;
  }
  return fault;
}

namespace internal {

Inspector::Inspector(const RobotDescription& robot, const WorldView& world_view)
    : limits_(ExtractJointLimits(&robot)),
      kinematics_(robot.kinematics()),
      snapshot_(kavo::internal::SnapshotOf(world_view)) {
  // `ExtractJointLimits` has refused any other kind.
  const auto& description = dynamic_cast<const RobotDescriptionInternal&>(robot);
  for (const std::string& frame : description.collision().frames) {
    const CollisionModel& collision = description.collision();
    shapes_.push_back({frame,
                       kinematics_->frame(frame),
                       collision.spheresOf(frame),
                       IsMoved(description.model(), frame),
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

ConfigurationInspection Inspector::Look(const Eigen::VectorXd& q) {
  ConfigurationInspection found;
  LookAtLimits(q, found);
  if (math::IsFinite(q)) {
    PlaceSpheres(q);
    LookAtObstacles(found);
    LookAtPairs(found);
  }
  return found;
}

std::size_t Inspector::FindShape(const std::string& frame) const {
  const auto has_name = [&](const Shape& shape) { return shape.frame == frame; };
  return static_cast<std::size_t>(std::find_if(shapes_.begin(), shapes_.end(), has_name) - shapes_.begin());
}

void Inspector::LookAtLimits(const Eigen::VectorXd& q, ConfigurationInspection& found) const {
  for (std::size_t i = 0; i < limits_.size(); ++i) {
    const double value = q[static_cast<Eigen::Index>(i)];
    const auto [lower, upper] = limits_[i];
    if (!(lower <= value && value <= upper && std::isfinite(value))) {
      found.limits.push_back({i, value, lower, upper});
    }
  }
}

void Inspector::PlaceSpheres(const Eigen::VectorXd& q) {
  for (Shape& shape : shapes_) {
    const Pose3 pose = kinematics_->pose(q, shape.handle);
    shape.centers.clear();
    for (const math::Sphere& sphere : shape.spheres) {
      shape.centers.emplace_back(pose * sphere.center);
    }
  }
}

void Inspector::LookAtObstacles(ConfigurationInspection& found) const {
  for (const Shape& shape : shapes_) {
    for (std::size_t k = 0; k < shape.spheres.size(); ++k) {
      const double radius = shape.spheres[k].radius + shape.padding;
      if (!shape.centers[k].allFinite()) {
        found.unplaced_frames.push_back(shape.frame);
        continue;
      }
      const auto nearest = snapshot_->nearestObstacle(shape.centers[k], &shape.allowed);
      if (!nearest) {
        continue;
      }
      const double distance = nearest->distance - radius;
      if (!found.clearance || distance < found.clearance->distance) {
        found.clearance = {distance, shape.frame, nearest->obstacle, {}};
      }
      if (shape.is_moved && (!found.moving_clearance || distance < found.moving_clearance->distance)) {
        found.moving_clearance = {distance, shape.frame, nearest->obstacle, {}};
      }
      if (distance <= 0.0) {
        found.contacts.push_back(
            {shape.frame, k, shape.centers[k], radius, nearest->obstacle, {}, -distance});
      }
    }
  }
}

void Inspector::LookAtPairs(ConfigurationInspection& found) const {
  for (const auto& [index_a, index_b] : pairs_) {
    const Shape& a = shapes_[index_a];
    const Shape& b = shapes_[index_b];
    for (std::size_t i = 0; i < a.spheres.size(); ++i) {
      for (std::size_t k = 0; k < b.spheres.size(); ++k) {
        const double distance =
            Distance(a.centers[i], b.centers[k]) - a.spheres[i].radius - b.spheres[k].radius;
        if (!found.self_clearance || distance < found.self_clearance->distance) {
          found.self_clearance = {distance, {a.frame, b.frame}};
        }
        if (distance <= 0.0) {
          found.self_contacts.push_back({{a.frame, b.frame}, {i, k}, -distance});
        }
      }
    }
  }
}

}  // namespace internal

std::vector<ConfigurationInspection> InspectConfigurations(const RobotDescription& robot,
                                                           const WorldView& world_view,
                                                           const std::vector<Eigen::VectorXd>& configurations,
                                                           const StopCondition& stop_condition) {
  internal::Inspector inspector(robot, world_view);
  std::vector<ConfigurationInspection> inspections;
  for (const Eigen::VectorXd& q : configurations) {
    KAVO_CHECK(static_cast<std::size_t>(q.size()) == robot.numCSpaceCoords(), kFile, 1)
        << "A configuration has " << q.size() << " coordinates, the robot " << robot.numCSpaceCoords() << ".";
    if (!inspections.empty() && stop_condition && stop_condition()) {
      break;
    }
    ConfigurationInspection& found = inspections.emplace_back(inspector.Look(q));
    for (auto* const clearance : {&found.clearance, &found.moving_clearance}) {
      if (*clearance) {
        (*clearance)->obstacle_name = world_view.name((*clearance)->obstacle);
      }
    }
    for (ConfigurationFault::Contact& contact : found.contacts) {
      contact.obstacle_name = world_view.name(contact.obstacle);
    }
  }
  return inspections;
}

}  // namespace kavo::planning
