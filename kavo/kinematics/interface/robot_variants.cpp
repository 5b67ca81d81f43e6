#include "kavo/kinematics/interface/robot_variants.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <set>

#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/util/log_message.h"
#include "kavo/util/to_string.h"

namespace kavo {

namespace {

constexpr char kFile[] = "kinematics/interface/robot_variants";

using Data = RobotDescriptionInternal::Data;

const Data& DataOf(const RobotDescription& robot) {
  // Says so if the description is of another kind.
  ExtractJointLimits(&robot);
  return static_cast<const RobotDescriptionInternal&>(robot).data();
}

bool IsKnown(const Data& data, const std::string& frame) {
  const std::vector<std::string>& names = data.kinematics.frameNames();
  return std::find(names.begin(), names.end(), frame) != names.end();
}

void CheckBody(const Data& data, const AttachedBody& body) {
  KAVO_CHECK(!body.name.empty(), kFile, 36) << "A body that is to be attached has no name.";
  KAVO_CHECK(!IsKnown(data, body.name), kFile, 37)
      << "A body \"" << body.name << "\" cannot be attached: the robot has a frame of that name.";
  KAVO_CHECK(body.pose.isFinite(), kFile, 39)
      << "Body \"" << body.name << "\" cannot be attached at a pose that is not finite.";
  for (const auto& [center, radius] : body.spheres) {
    KAVO_CHECK(center.allFinite() && std::isfinite(radius) && radius > 0.0, kFile, 42)
        << "A sphere of body \"" << body.name << "\", of radius " << radius << " at "
        << util::ToString(center) << ", must be finite, its radius positive.";
  }
}

}  // namespace

std::unique_ptr<RobotDescription> WithAttached(const RobotDescription& robot, const AttachedBody& body) {
  Data data = DataOf(robot);
  CheckBody(data, body);
  // Unknown names, here and below, are fatal errors that list those there are.
  const int parent = data.kinematics.frame(body.frame);
  std::set<std::string> touchable;
  for (const std::string& frame : body.touch_frames) {
    data.kinematics.frame(frame);
    touchable.insert(frame);
  }
  if (!data.collision.pairs.empty() && !body.spheres.empty()) {
    std::vector<int> frames = {parent};
    for (const std::string& frame : data.collision.frames) {
      frames.push_back(data.kinematics.frame(frame));
    }
    const kinematics::Kinematics::Plan plan = data.kinematics.plan(frames);
    for (std::size_t i = 0; i < data.collision.frames.size(); ++i) {
      const std::string& frame = data.collision.frames[i];
      if (plan.frames[i + 1].slot != plan.frames[0].slot && touchable.count(frame) == 0) {
        data.collision.pairs.emplace_back(frame, body.name);
      }
    }
  }
  data.kinematics = data.kinematics.withFrame(body.name, parent, body.pose);
  for (const math::Sphere& sphere : body.spheres) {
    data.collision.addSphere(body.name, sphere);
  }
  if (!body.allowed_obstacles.empty()) {
    data.collision.allowed_obstacles[body.name] = body.allowed_obstacles;
  }
  data.attached.push_back(body);
  return std::make_unique<RobotDescriptionInternal>(std::move(data));
}

std::unique_ptr<RobotDescription> WithoutAttached(const RobotDescription& robot, const std::string& name) {
  Data data = DataOf(robot);
  const auto body = std::find_if(data.attached.begin(), data.attached.end(),
                                 [&](const AttachedBody& attached) { return attached.name == name; });
  KAVO_CHECK(body != data.attached.end(), kFile, 83) << "Nothing named \"" << name << "\" is attached.";
  data.attached.erase(body);
  data.kinematics = data.kinematics.withoutFrame(data.kinematics.frame(name));
  data.collision.removeFrame(name);
  return std::make_unique<RobotDescriptionInternal>(std::move(data));
}

std::vector<AttachedBody> AttachedBodies(const RobotDescription& robot) { return DataOf(robot).attached; }

std::string LastOwnFrame(const RobotDescription& robot) {
  const auto* const internal = dynamic_cast<const RobotDescriptionInternal*>(&robot);
  const std::vector<std::string> names = robot.kinematics()->frameNames();
  return names[names.size() - 1 - (internal != nullptr ? internal->data().attached.size() : 0)];
}

std::unique_ptr<RobotDescription> WithContactRules(const RobotDescription& robot, const ContactRules& rules) {
  Data data = DataOf(robot);
  for (const auto& [frame, padding] : rules.paddings) {
    data.kinematics.frame(frame);
    KAVO_CHECK(std::isfinite(padding) && padding >= 0.0, kFile, 103)
        << "The padding " << padding << " of frame \"" << frame << "\" must be finite and not negative.";
  }
  for (const auto& [frame, unused] : rules.allowed_obstacles) {
    data.kinematics.frame(frame);
  }
  data.collision.paddings = rules.paddings;
  data.collision.allowed_obstacles = rules.allowed_obstacles;
  return std::make_unique<RobotDescriptionInternal>(std::move(data));
}

ContactRules ContactRulesOf(const RobotDescription& robot) {
  const CollisionModel& collision = DataOf(robot).collision;
  return {collision.paddings, collision.allowed_obstacles};
}

std::unique_ptr<RobotDescription> WithCollisionPairs(
    const RobotDescription& robot, const std::vector<std::pair<std::string, std::string>>& pairs) {
  Data data = DataOf(robot);
  data.collision.pairs.clear();
  std::set<std::pair<std::string, std::string>> known;
  for (const auto& [frame_a, frame_b] : pairs) {
    data.kinematics.frame(frame_a);
    data.kinematics.frame(frame_b);
    KAVO_CHECK(frame_a != frame_b, kFile, 126) << "Frame \"" << frame_a << "\" cannot collide with itself.";
    if (known.insert(std::minmax(frame_a, frame_b)).second) {
      data.collision.pairs.emplace_back(frame_a, frame_b);
    }
  }
  return std::make_unique<RobotDescriptionInternal>(std::move(data));
}

}  // namespace kavo
