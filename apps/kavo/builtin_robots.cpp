#include "apps/kavo/builtin_robots.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/frame_pairs.h"
#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/interface/robot_variants.h"

namespace kavo::command {

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

// What 'kavo pairs' finds: all that may touch.
Pairs PairsOfFranka() {
  const std::pair<const char*, std::vector<const char*>> pairs[] = {
      {"base", {"link4", "link5", "link6", "link7", "hand", "left_finger", "right_finger"}},
      {"link1", {"link5", "link6", "link7", "hand", "left_finger", "right_finger"}},
      {"link2", {"link5", "link6", "link7", "hand", "left_finger", "right_finger"}},
      {"link3", {"left_finger", "right_finger"}},
      {"link4", {"hand", "left_finger", "right_finger"}},
      {"link5", {"hand", "left_finger", "right_finger"}}};
  Pairs all;
  for (const auto& [frame, others] : pairs) {
    for (const char* const other : others) {
      all.emplace_back(frame, other);
    }
  }
  return all;
}

}  // namespace

bool IsBuiltin(const std::string& name) { return name == "franka" || name == "three_link"; }

formats::LoadedRobot LoadBuiltin(const std::string& name, bool self_collision) {
  formats::LoadedRobot robot;
  robot.name = name;
  robot.description = name == "franka" ? LoadFrankaRobotDescription() : LoadThreeLinkArmRobotDescription();
  if (self_collision) {
    robot.description = WithCollisionPairs(*robot.description,
                                           name == "franka" ? PairsOfFranka() : Pairs{{"link1", "link3"}});
  }
  robot.motion_limits =
      name == "franka" ? planning::FrankaMotionLimits() : planning::DefaultMotionLimits(*robot.description);
  const std::unique_ptr<Kinematics> kinematics = robot.description->kinematics();
  robot.tip_frame = kinematics->frameNames().back();
  // Both are chains: what as many joints carry is one body.
  const auto& model = dynamic_cast<const KinematicsInternal&>(*kinematics).model();
  for (const std::string& frame :
       dynamic_cast<const RobotDescriptionInternal&>(*robot.description).collision().frames) {
    robot.bodies[frame] = model.plan({model.frame(frame)}).steps.size();
  }
  return robot;
}

}  // namespace kavo::command
