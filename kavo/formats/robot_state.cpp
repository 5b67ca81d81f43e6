#include <cstddef>
#include <vector>

#include "kavo/formats/robot_state_internal.h"
#include "kavo/formats/text_internal.h"

namespace kavo::formats {

std::map<std::string, double> ReadJointState(const YamlValue& robot_state) {
  std::map<std::string, double> joints;
  const std::optional<YamlValue> state = robot_state.find("joint_state");
  if (!state) {
    return joints;
  }
  const std::vector<YamlValue> names = state->elements("name");
  const std::vector<YamlValue> positions = state->elements("position");
  if (names.size() != positions.size()) {
    state->fail(
        std::to_string(names.size()) + " joint names and " + std::to_string(positions.size()) + " positions",
        "one position for each name");
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string name = names[i].text();
    if (!joints.emplace(name, positions[i].number()).second) {
      names[i].fail("joint " + Quoted(name) + " again", "one position for each joint");
    }
  }
  return joints;
}

std::optional<Pose3> ReadBasePose(const YamlValue& robot_state) {
  const std::optional<YamlValue> state = robot_state.find("multi_dof_joint_state");
  const std::vector<YamlValue> transforms = state ? state->elements("transforms") : std::vector<YamlValue>();
  if (transforms.empty()) {
    return std::nullopt;
  }
  if (transforms.size() > 1) {
    transforms[1].fail("a second transform of the robot state", "one, of the robot base");
  }
  return transforms.front().pose("translation", "rotation");
}

std::string ReadFrameName(const YamlValue& stamped) {
  const std::optional<YamlValue> header = stamped.find("header");
  const std::optional<YamlValue> frame = header ? header->find("frame_id") : std::nullopt;
  const std::string name = frame ? frame->text() : "";
  return name.empty() || name.front() != '/' ? name : name.substr(1);
}

}  // namespace kavo::formats
