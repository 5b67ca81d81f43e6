#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "kavo/formats/file_error.h"
#include "kavo/formats/robot_joints_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/math/constants_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

void NameList::add(const std::string& name, const std::string& more) {
  text_ += (text_.empty() ? "" : ", ") + Quoted(name) + more;
}

namespace {

constexpr std::size_t kNone = RobotJoints::kNone;

// Wider ranges of a joint are hardly meant: turns, and metres.
constexpr double kMaxTurns = 1000.0;
constexpr double kMaxSlide = 1000.0;

// Whether a joint has a value of its own.
bool CanMove(const Urdf::Joint& joint) { return joint.type != JointType::kFixed && !joint.mimic; }

class Chooser {
 public:
  Chooser(const Urdf& urdf, const std::optional<Srdf>& srdf, const RobotFileOptions& options)
      : urdf_(urdf), srdf_(srdf), options_(options) {}

  RobotJoints choose() {
    chooseCoordinates();
    checkValues();
    joints_.motions = PlaceJoints(urdf_, joints_, options_.joint_values);
    return std::move(joints_);
  }

 private:
  [[noreturn]] static void fail(const std::string& file, int line, const std::string& found,
                                const std::string& expected) {
    throw FileError(file, line, "found " + found + ", expected " + expected);
  }

  bool canMove(std::size_t joint) const { return CanMove(urdf_.joints[joint]); }

  std::string movableJoints() const {
    NameList names;
    for (std::size_t i = 0; i < urdf_.joints.size(); ++i) {
      if (canMove(i)) {
        names.add(urdf_.joints[i].name);
      }
    }
    return names.text();
  }

  // A joint that the options name as one that can move by itself.
  std::size_t movableJoint(const std::string& name) const {
    const auto joint = urdf_.joint_indices.find(name);
    if (joint == urdf_.joint_indices.end() || !canMove(joint->second)) {
      std::string found = "no joint " + Quoted(name);
      if (joint != urdf_.joint_indices.end()) {
        const Urdf::Joint& known = urdf_.joints[joint->second];
        found = "joint " + Quoted(name) +
                (known.mimic ? ", which follows " + Quoted(urdf_.joints[known.mimic->joint].name)
                             : ", which is fixed");
      }
      fail(urdf_.file, 0, found, "one of " + movableJoints());
    }
    return joint->second;
  }

  void chooseCoordinates() {
    if (!options_.group.empty() && !options_.joints.empty()) {
      fail(urdf_.file, 0, "both a group and a list of joints", "one of them");
    }
    joints_.coordinate_of.assign(urdf_.joints.size(), kNone);
    if (!options_.joints.empty()) {
      for (const std::string& name : options_.joints) {
        const std::size_t joint = movableJoint(name);
        if (joints_.coordinate_of[joint] != kNone) {
          fail(urdf_.file, 0, "joint " + Quoted(name) + " twice in the list", "different joints");
        }
        addCoordinate(joint);
      }
      return;
    }
    std::vector<bool> is_chosen(urdf_.joints.size(), true);
    if (!options_.group.empty()) {
      is_chosen.assign(urdf_.joints.size(), false);
      const Srdf::Group& group = findGroup(options_.group, srdf_ ? srdf_->file : urdf_.file, 0);
      addGroup(group, is_chosen);
    }
    for (std::size_t joint = 0; joint < urdf_.joints.size(); ++joint) {
      if (is_chosen[joint] && canMove(joint)) {
        addCoordinate(joint);
      }
    }
    if (joints_.coordinates.empty()) {
      fail(urdf_.file, 0,
           options_.group.empty() ? "no joint that moves"
                                  : "group " + Quoted(options_.group) + " without a joint that moves",
           "at least one");
    }
  }

  void addCoordinate(std::size_t joint) {
    joints_.coordinate_of[joint] = joints_.coordinates.size();
    joints_.coordinates.push_back(joint);
    const Urdf::Joint& known = urdf_.joints[joint];
    const double range = known.limits.max - known.limits.min;
    const bool is_turning = known.type == JointType::kRevolute;
    if (!known.limits.isUnlimited() && range > (is_turning ? kMaxTurns * math::kTwoPi : kMaxSlide)) {
      KAVO_LOG(LogLevel::kWarning) << urdf_.file << ":" << known.line << ": joint " << Quoted(known.name)
                                   << " ranges over " << NumberText(range)
                                   << (is_turning ? " rad, more than a thousand turns"
                                                  : " m, more than a kilometre")
                                   << ": planning will take long, if it comes to an end at all.";
    }
  }

  const Srdf::Group& findGroup(const std::string& name, const std::string& file, int line) const {
    NameList names;
    if (srdf_) {
      for (const Srdf::Group& group : srdf_->groups) {
        if (group.name == name) {
          return group;
        }
        names.add(group.name);
      }
    }
    fail(file, line, "no group " + Quoted(name), "one of " + names.text());
  }

  // Marks the joints of a group and of those that belong to it. Walks down with the way that led to each
  // group: none may belong to itself.
  void addGroup(const Srdf::Group& chosen, std::vector<bool>& is_chosen) {
    struct Place {
      const Srdf::Group* group;
      std::size_t next_subgroup;
    };
    std::vector<Place> way = {{&chosen, 0}};
    std::set<std::string> on_way = {chosen.name};
    std::set<std::string> known = on_way;
    addMembers(chosen, is_chosen);
    while (!way.empty()) {
      const Srdf::Group& group = *way.back().group;
      if (way.back().next_subgroup == group.subgroups.size()) {
        on_way.erase(group.name);
        way.pop_back();
        continue;
      }
      const std::string& name = group.subgroups[way.back().next_subgroup++];
      if (on_way.count(name) != 0) {
        fail(srdf_->file, group.line, "group " + Quoted(name) + " inside itself",
             "groups that do not contain each other");
      }
      if (known.insert(name).second) {
        const Srdf::Group& subgroup = findGroup(name, srdf_->file, group.line);
        addMembers(subgroup, is_chosen);
        on_way.insert(name);
        way.push_back({&subgroup, 0});
      }
    }
  }

  // Marks what a group names itself.
  void addMembers(const Srdf::Group& group, std::vector<bool>& is_chosen) {
    for (const std::string& name : group.joints) {
      const auto joint = urdf_.joint_indices.find(name);
      if (joint != urdf_.joint_indices.end()) {
        is_chosen[joint->second] = true;
      } else if (srdf_->findVirtualJoint(name) == nullptr) {
        fail(srdf_->file, group.line, "joint " + Quoted(name) + " in group " + Quoted(group.name),
             "a joint of the robot");
      }
    }
    for (const std::string& name : group.links) {
      const std::size_t link = groupLink(group, name);
      if (link != 0) {
        is_chosen[link - 1] = true;
      }
    }
    for (const Srdf::Chain& chain : group.chains) {
      addChain(groupLink(group, chain.base_link), groupLink(group, chain.tip_link), is_chosen);
      if (joints_.chain_tip.empty()) {
        joints_.chain_tip = chain.tip_link;
      }
    }
  }

  std::size_t groupLink(const Srdf::Group& group, const std::string& name) const {
    const auto link = urdf_.link_indices.find(name);
    if (link == urdf_.link_indices.end()) {
      fail(srdf_->file, group.line, "link " + Quoted(name) + " in group " + Quoted(group.name),
           "a link of the robot");
    }
    return link->second;
  }

  // Marks the joints between two links. A link comes after the one that carries it, so that the later one of
  // the two is never above the other.
  void addChain(std::size_t base, std::size_t tip, std::vector<bool>& is_chosen) const {
    while (base != tip) {
      std::size_t& later = base > tip ? base : tip;
      is_chosen[later - 1] = true;
      later = urdf_.joints[later - 1].parent;
    }
  }

  void checkValues() const {
    for (const auto& [name, value] : options_.joint_values) {
      const std::size_t joint = movableJoint(name);
      const Urdf::Joint& known = urdf_.joints[joint];
      if (joints_.coordinate_of[joint] != kNone) {
        fail(urdf_.file, known.line,
             "a value for joint " + Quoted(name) + ", which is a coordinate of the c-space",
             "a joint outside it");
      }
      if (!(known.limits.min <= value && value <= known.limits.max && std::isfinite(value))) {
        fail(urdf_.file, known.line, "the value " + NumberText(value) + " for joint " + Quoted(name),
             "one in [" + NumberText(known.limits.min) + ", " + NumberText(known.limits.max) + "]");
      }
    }
  }

  const Urdf& urdf_;
  const std::optional<Srdf>& srdf_;
  const RobotFileOptions& options_;
  RobotJoints joints_;
};

}  // namespace

RobotJoints ChooseJoints(const Urdf& urdf, const std::optional<Srdf>& srdf, const RobotFileOptions& options) {
  return Chooser(urdf, srdf, options).choose();
}

double RestOf(const Urdf::Joint& joint) { return std::clamp(0.0, joint.limits.min, joint.limits.max); }

std::vector<RobotJoints::Motion> PlaceJoints(const Urdf& urdf, const RobotJoints& joints,
                                             const std::map<std::string, double>& options,
                                             const std::map<std::string, double>& state) {
  std::vector<double> held(urdf.joints.size(), 0.0);
  for (std::size_t i = 0; i < urdf.joints.size(); ++i) {
    const Urdf::Joint& joint = urdf.joints[i];
    if (!CanMove(joint)) {
      continue;
    }
    held[i] = RestOf(joint);
    for (const auto* values : {&state, &options}) {
      if (const auto value = values->find(joint.name);
          value != values->end() && std::isfinite(value->second)) {
        held[i] = value->second;
      }
    }
  }
  std::vector<RobotJoints::Motion> motions;
  for (std::size_t joint = 0; joint < urdf.joints.size(); ++joint) {
    RobotJoints::Motion motion;
    std::size_t at = joint;
    for (; urdf.joints[at].mimic; at = urdf.joints[at].mimic->joint) {
      motion.offset += motion.multiplier * urdf.joints[at].mimic->offset;
      motion.multiplier *= urdf.joints[at].mimic->multiplier;
    }
    motion.coordinate = joints.coordinate_of[at];
    if (motion.coordinate == kNone) {
      motion.offset += motion.multiplier * held[at];
    }
    if (!std::isfinite(motion.offset) || !std::isfinite(motion.multiplier)) {
      throw FileError(urdf.file, urdf.joints[joint].line,
                      "found joint " + Quoted(urdf.joints[joint].name) +
                          " that mimics another one by numbers too large, expected a finite value");
    }
    motions.push_back(motion);
  }
  return motions;
}

}  // namespace kavo::formats
