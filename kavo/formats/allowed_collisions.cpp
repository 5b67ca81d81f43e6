#include "kavo/formats/allowed_collisions.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <set>
#include <utility>

#include "kavo/formats/allowed_collisions_internal.h"
#include "kavo/formats/robot_file.h"
#include "kavo/formats/scene.h"
#include "kavo/formats/text_internal.h"
#include "kavo/kinematics/interface/robot_description_internal.h"

namespace kavo::formats {

bool AllowedCollisions::allows(const std::string& a, const std::string& b) const {
  const auto row = entries.find(a);
  const auto column = entries.find(b);
  if (row != entries.end() && column != entries.end()) {
    return values[row->second][column->second];
  }
  const auto of_a = defaults.find(a);
  const auto of_b = defaults.find(b);
  if (of_a == defaults.end() && of_b == defaults.end()) {
    return false;
  }
  return (of_a == defaults.end() || of_a->second) && (of_b == defaults.end() || of_b->second);
}

std::optional<AllowedCollisions> ReadAllowedCollisions(const YamlValue& matrix) {
  AllowedCollisions allowed;
  allowed.line = matrix.line();
  for (const YamlValue& name : matrix.elements("entry_names")) {
    if (!allowed.entries.emplace(name.text(), allowed.entries.size()).second) {
      name.fail("entry " + Quoted(name.text()) + " again", "different names");
    }
  }
  const std::vector<YamlValue> rows = matrix.elements("entry_values");
  const std::size_t size = allowed.entries.size();
  // The matrix grows with the square, though an alias may give its rows in few bytes.
  constexpr std::size_t kMaxEntries = 5000;
  if (size > kMaxEntries) {
    matrix.fail(std::to_string(size) + " entries", "at most " + std::to_string(kMaxEntries));
  }
  const auto check = [&](std::size_t found, const char* what, std::size_t expected) {
    if (found != expected) {
      matrix.fail(std::to_string(found) + what, std::to_string(expected) + ", one for each name");
    }
  };
  check(rows.size(), " rows of `entry_values`", size);
  for (const YamlValue& row : rows) {
    std::vector<bool> values;
    for (const YamlValue& value : row.isSequence() ? row.elements() : row.elements("enabled")) {
      values.push_back(value.flag());
    }
    check(values.size(), " columns of `entry_values`", size);
    allowed.values.push_back(values);
  }
  const std::vector<YamlValue> names = matrix.elements("default_entry_names");
  const std::vector<YamlValue> values = matrix.elements("default_entry_values");
  check(values.size(), " `default_entry_values`", names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    allowed.defaults[names[i].text()] = values[i].flag();
  }
  if (allowed.entries.empty() && allowed.defaults.empty()) {
    return std::nullopt;
  }
  return allowed;
}

namespace {

using NamePair = std::pair<std::string, std::string>;

// The pairs of links that the robot is looked at for, or those that it is not looked at for, if either is
// known.
class RobotPairs {
 public:
  explicit RobotPairs(const LoadedRobot& robot) {
    if (robot.srdf && !robot.srdf->disabled_pairs.empty()) {
      is_list_of_allowed_ = true;
      for (const Srdf::DisabledPair& pair : robot.srdf->disabled_pairs) {
        pairs_.insert(std::minmax(pair.link1, pair.link2));
      }
    } else if (const auto* description =
                   dynamic_cast<const RobotDescriptionInternal*>(robot.description.get())) {
      for (const auto& [a, b] : description->collision().pairs) {
        pairs_.insert(std::minmax(a, b));
      }
    }
  }

  bool AreKnown() const { return !pairs_.empty(); }
  bool MayTouch(const std::string& a, const std::string& b) const {
    return (pairs_.count(std::minmax(a, b)) != 0) == is_list_of_allowed_;
  }

 private:
  std::set<NamePair> pairs_;
  bool is_list_of_allowed_ = false;
};

}  // namespace

std::optional<Unhonoured> FindMatrixDifference(const Scene& scene, const LoadedRobot& robot) {
  if (!scene.allowed_collisions) {
    return std::nullopt;
  }
  const AllowedCollisions& allowed = *scene.allowed_collisions;
  const auto difference = [&](const std::string& what) {
    return Unhonoured{Unhonoured::Kind::kAllowedCollisionMatrix, what, scene.file, allowed.line};
  };
  const RobotPairs pairs(robot);
  for (auto a = robot.bodies.begin(); a != robot.bodies.end(); ++a) {
    for (auto b = std::next(a); pairs.AreKnown() && b != robot.bodies.end(); ++b) {
      const bool may_touch = allowed.allows(a->first, b->first);
      if (a->second != b->second && may_touch != pairs.MayTouch(a->first, b->first)) {
        return difference("an allowed collision matrix by which links " + Quoted(a->first) + " and " +
                          Quoted(b->first) + (may_touch ? " may" : " must not") +
                          " touch, other than by the robot's " + (robot.srdf ? "SRDF" : "own pairs"));
      }
    }
    for (const SceneObject& object : scene.objects) {
      if (!object.parts.empty() && allowed.allows(a->first, object.id)) {
        return difference("an allowed collision matrix by which link " + Quoted(a->first) + " and object " +
                          Quoted(object.id) + " may touch");
      }
    }
  }
  return std::nullopt;
}

}  // namespace kavo::formats
