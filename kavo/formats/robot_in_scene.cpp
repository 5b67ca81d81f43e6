#include "kavo/formats/robot_in_scene.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <variant>

#include "kavo/formats/file_error.h"
#include "kavo/formats/text_internal.h"
#include "kavo/kinematics/interface/kinematics.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/interface/robot_variants.h"

namespace kavo::formats {

namespace {

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Whether links may touch, by an entry for the two or a default that lets one touch anything; empty where the
// matrix does not say, or where a default forbids what the robot's own files know better.
std::optional<bool> FindEntry(const AllowedCollisions& matrix, const std::string& a, const std::string& b) {
  const bool has_entry = matrix.entries.count(a) != 0 && matrix.entries.count(b) != 0;
  const bool may_touch = matrix.allows(a, b);
  return has_entry || may_touch ? std::optional(may_touch) : std::nullopt;
}

// Which frames are one rigid body: links that only fixed joints are between, and what does not move against
// what is attached.
class Bodies {
 public:
  Bodies(const LoadedRobot& robot, const RobotDescriptionInternal& description) : robot_(robot) {
    const std::vector<std::string>& frames = description.collision().frames;
    std::vector<int> indices;
    indices.reserve(frames.size());
    for (const std::string& frame : frames) {
      indices.push_back(description.model().frame(frame));
    }
    const kinematics::Kinematics::Plan plan = description.model().plan(indices);
    for (std::size_t i = 0; i < frames.size(); ++i) {
      slots_[frames[i]] = plan.frames[i].slot;
    }
  }

  bool AreOne(const std::string& a, const std::string& b) const {
    const auto of_a = robot_.bodies.find(a);
    const auto of_b = robot_.bodies.find(b);
    return of_a != robot_.bodies.end() && of_b != robot_.bodies.end() ? of_a->second == of_b->second
                                                                      : slots_.at(a) == slots_.at(b);
  }

 private:
  const LoadedRobot& robot_;
  std::map<std::string, int> slots_;
};

std::vector<std::pair<std::string, std::string>> PairsUnder(const AllowedCollisions& matrix,
                                                            const LoadedRobot& robot,
                                                            const RobotDescriptionInternal& description) {
  const CollisionModel& collision = description.collision();
  std::set<std::pair<std::string, std::string>> own;
  for (const auto& [a, b] : collision.pairs) {
    own.insert(std::minmax(a, b));
  }
  const Bodies bodies(robot, description);
  std::vector<std::pair<std::string, std::string>> pairs;
  for (std::size_t i = 0; i < collision.frames.size(); ++i) {
    for (std::size_t k = i + 1; k < collision.frames.size(); ++k) {
      const std::string& a = collision.frames[i];
      const std::string& b = collision.frames[k];
      const bool is_own = own.count(std::minmax(a, b)) != 0;
      const std::optional<bool> may_touch = FindEntry(matrix, a, b);
      if (may_touch ? !*may_touch && (is_own || !bodies.AreOne(a, b)) : is_own) {
        pairs.emplace_back(a, b);
      }
    }
  }
  return pairs;
}

}  // namespace

kavo::AttachedObject PlaceAttached(const AttachedObject& attached, const RobotDescription& robot,
                                   const Eigen::VectorXd& q, const std::string& file, const Pose3& base_pose,
                                   const FramePoses& frames) {
  const SceneObject& object = attached.object;
  const std::string what = "object " + Quoted(object.id) + " attached to link " + Quoted(attached.link);
  const auto fail = [&](const std::string& found, const std::string& expected) -> FileError {
    return FileError(file, object.line, "found " + what + found + ", expected " + expected);
  };
  const std::unique_ptr<Kinematics> kinematics = robot.kinematics();
  const std::vector<std::string>& links = kinematics->frameNames();
  if (!Contains(links, attached.link)) {
    throw fail("", "a link of the robot");
  }
  if (object.id.empty() || Contains(links, object.id)) {
    throw fail(", which has the name of a link", "another name");
  }
  if (object.parts.empty()) {
    throw fail(" without a shape", "boxes, spheres, cylinders, cones or meshes");
  }
  const auto pose_of = [&](const std::string& frame) {
    return kinematics->pose(q, kinematics->frame(frame));
  };
  Pose3 base_from_object = base_pose.inverse();
  if (const auto found = frames.find(object.frame); found != frames.end()) {
    base_from_object = found->second;
  } else if (Contains(links, object.frame)) {
    base_from_object = pose_of(object.frame);
  } else if (!object.frame.empty()) {
    throw fail(" in frame " + Quoted(object.frame), "the world, a frame of this file or one of the robot");
  }
  kavo::AttachedObject placed;
  placed.name = object.id;
  placed.frame = attached.link;
  // Its own frame is that of its first shape: files give several shapes each its place.
  const Pose3& first = object.parts.front().pose;
  placed.pose = pose_of(attached.link).inverse() * base_from_object * first;
  for (const SceneObject::Part& part : object.parts) {
    if (std::holds_alternative<HalfSpaceObstacle>(part.shape)) {
      throw fail(" with a plane, which has no end", "boxes, spheres, cylinders, cones or meshes");
    }
    placed.parts.push_back({part.shape, first.inverse() * part.pose});
  }
  std::copy_if(attached.touch_links.begin(), attached.touch_links.end(),
               std::back_inserter(placed.touch_frames),
               [&](const std::string& link) { return Contains(links, link); });
  return placed;
}

std::shared_ptr<RobotDescription> WithSceneRules(const LoadedRobot& robot,
                                                 const RobotDescription& description, const Scene& scene) {
  const auto& internal = dynamic_cast<const RobotDescriptionInternal&>(description);
  ContactRules rules = ContactRulesOf(description);
  const std::vector<std::string>& frames = internal.model().frameNames();
  for (const auto& [link, padding] : scene.link_padding) {
    if (Contains(frames, link)) {
      rules.paddings[link] = padding;
    }
  }
  if (!scene.allowed_collisions) {
    return WithContactRules(description, rules);
  }
  const AllowedCollisions& matrix = *scene.allowed_collisions;
  for (const std::string& frame : internal.collision().frames) {
    for (const SceneObject& object : scene.objects) {
      if (matrix.allows(frame, object.id) && !Contains(rules.allowed_obstacles[frame], object.id)) {
        rules.allowed_obstacles[frame].push_back(object.id);
      }
    }
  }
  const std::shared_ptr<RobotDescription> ruled = WithContactRules(description, rules);
  return internal.collision().pairs.empty() ? ruled
                                            : WithCollisionPairs(*ruled, PairsUnder(matrix, robot, internal));
}

std::shared_ptr<RobotDescription> WithScene(const LoadedRobot& robot, const Scene& scene,
                                            const Eigen::VectorXd& q, const FramePoses& frames) {
  std::shared_ptr<RobotDescription> description = robot.description;
  for (const AttachedObject& attached : scene.attached) {
    description = WithAttached(*description, CoverObject(PlaceAttached(attached, *description, q, scene.file,
                                                                       scene.base_pose, frames)));
  }
  return WithSceneRules(robot, *description, scene);
}

}  // namespace kavo::formats
