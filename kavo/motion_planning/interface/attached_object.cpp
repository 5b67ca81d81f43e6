#include "kavo/motion_planning/interface/attached_object.h"

#include <algorithm>

#include "kavo/kinematics/interface/kinematics.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/util/log_message.h"

namespace kavo {

namespace {

constexpr char kFile[] = "motion_planning/interface/attached_object";

Pose3 PoseOf(const MotionPlanner& planner, const std::string& frame, const Eigen::VectorXd& q) {
  const std::unique_ptr<Kinematics> kinematics = planner.robot()->kinematics();
  return kinematics->pose(q, kinematics->frame(frame));
}

}  // namespace

AttachedBody CoverObject(const AttachedObject& object) {
  KAVO_CHECK(!object.parts.empty(), kFile, 24)
      << "An object \"" << object.name << "\" cannot be attached: it has no parts.";
  const CoverOptions options{object.cover_tolerance.value_or(DefaultCoverTolerance(object.parts)), {}};
  return {object.name,         object.frame,
          object.pose,         CoverBySpheres(object.parts, options).spheres,
          object.touch_frames, object.allowed_obstacles};
}

AttachedObject AttachFromWorld(MotionPlanner& planner, World& world, const std::string& obstacle,
                               const std::string& frame, const Eigen::VectorXd& q,
                               const std::vector<std::string>& touch_frames,
                               const std::vector<std::string>& allowed_obstacles) {
  std::vector<World::Obstacle> obstacles = world.describe();
  obstacles.erase(std::remove_if(obstacles.begin(), obstacles.end(),
                                 [&](const World::Obstacle& other) {
                                   return !other.is_enabled || other.name != obstacle;
                                 }),
                  obstacles.end());
  KAVO_CHECK(!obstacles.empty(), kFile, 44) << "There is no obstacle \"" << obstacle << "\" to be attached.";
  const Pose3& pose = obstacles.front().pose;
  AttachedObject object;
  object.name = obstacle;
  object.frame = frame;
  object.pose = PoseOf(planner, frame, q).inverse() * pose;
  for (const World::Obstacle& part : obstacles) {
    object.parts.push_back({part.shape, pose.inverse() * part.pose});
  }
  object.touch_frames = touch_frames;
  object.allowed_obstacles = allowed_obstacles;
  try {
    // Out of the way first, since its name must not be that of an obstacle; for good once it is attached.
    for (const World::Obstacle& part : obstacles) {
      world.disable(part.handle);
    }
    planner.updateWorldView();
    planner.attach(object);
  } catch (...) {
    for (const World::Obstacle& part : obstacles) {
      world.enable(part.handle);
    }
    planner.updateWorldView();
    throw;
  }
  for (const World::Obstacle& part : obstacles) {
    world.remove(part.handle);
  }
  return object;
}

std::vector<ObstacleHandle> DetachIntoWorld(MotionPlanner& planner, World& world, const std::string& name,
                                            const Eigen::VectorXd& q) {
  // Where it is, as long as it is part of the robot.
  const Pose3 pose = PoseOf(planner, name, q);
  const AttachedObject object = planner.detach(name);
  std::vector<ObstacleHandle> handles;
  try {
    handles.reserve(object.parts.size());
    for (const CoverPart& part : object.parts) {
      handles.push_back(world.add(part.shape, pose * part.pose, object.name));
    }
    planner.updateWorldView();
  } catch (...) {
    // Neither lost nor there twice.
    for (const ObstacleHandle handle : handles) {
      world.remove(handle);
    }
    planner.attach(object);
    throw;
  }
  return handles;
}

}  // namespace kavo
