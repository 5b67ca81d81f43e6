#include "apps/kavo/builtin_robots.h"

#include <memory>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/frame_pairs.h"

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
  robot.tip_frame = robot.description->kinematics()->frameNames().back();
  return robot;
}

}  // namespace kavo::command
