#include "kavo/formats/robot_file.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <set>
#include <utility>

#include "kavo/formats/file_error.h"
#include "kavo/formats/sphere_cover_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/urdf_internal.h"
#include "kavo/formats/yaml_value_internal.h"
#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

namespace {

using Spheres = std::vector<math::Sphere>;

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// Names in quotes, separated by commas.
class NameList {
 public:
  void add(const std::string& name) { text_ += (text_.empty() ? "" : ", ") + Quoted(name); }
  // For the end of a sentence such as "expected one of ...".
  std::string text() const { return text_.empty() ? "nothing (there are none)" : text_; }

 private:
  std::string text_;
};

// One call of `ParseRobot`: the files, and what becomes of each joint.
class Loader {
 public:
  Loader(const FileText& urdf, const std::optional<FileText>& srdf, const RobotFileOptions& options)
      : options_(options), urdf_(ParseUrdf(urdf.text, urdf.file)) {
    if (srdf) {
      srdf_ = ParseSrdf(srdf->text, srdf->file);
    }
    for (std::size_t i = 0; i < urdf_.links.size(); ++i) {
      link_indices_.emplace(urdf_.links[i].name, i);
    }
    for (std::size_t i = 0; i < urdf_.joints.size(); ++i) {
      joint_indices_.emplace(urdf_.joints[i].name, i);
    }
  }

  LoadedRobot load(const std::optional<FileText>& spheres) {
    chooseCoordinates();
    placeJoints();
    LoadedRobot robot;
    robot.name = urdf_.name;
    if (srdf_) {
      robot.end_effectors = srdf_->end_effectors;
    }
    robot.named_configurations = namedConfigurations();
    const std::vector<Spheres> link_spheres = placeSpheres(spheres, robot.uncovered_links);
    robot.description = build(robot.named_configurations, link_spheres);
    robot.tip_frame = tipFrame();
    warn(robot.uncovered_links, link_spheres);
    return robot;
  }

 private:
  // What a joint's value is: coordinate `coordinate` times `multiplier` plus `offset`; without a coordinate,
  // the offset alone.
  struct Motion {
    std::size_t coordinate = kNone;
    double multiplier = 1.0;
    double offset = 0.0;
  };

  [[noreturn]] static void fail(const std::string& file, int line, const std::string& found,
                                const std::string& expected) {
    throw FileError(file, line, "found " + found + ", expected " + expected);
  }

  bool canMove(std::size_t joint) const {
    return urdf_.joints[joint].type != JointType::kFixed && !urdf_.joints[joint].mimic;
  }

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
    const auto joint = joint_indices_.find(name);
    if (joint == joint_indices_.end() || !canMove(joint->second)) {
      std::string found = "no joint " + Quoted(name);
      if (joint != joint_indices_.end()) {
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
    coordinate_of_.assign(urdf_.joints.size(), kNone);
    if (!options_.joints.empty()) {
      for (const std::string& name : options_.joints) {
        const std::size_t joint = movableJoint(name);
        if (coordinate_of_[joint] != kNone) {
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
    if (coordinates_.empty()) {
      fail(urdf_.file, 0,
           options_.group.empty() ? "no joint that moves"
                                  : "group " + Quoted(options_.group) + " without a joint that moves",
           "at least one");
    }
  }

  void addCoordinate(std::size_t joint) {
    coordinate_of_[joint] = coordinates_.size();
    coordinates_.push_back(joint);
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
      const auto joint = joint_indices_.find(name);
      if (joint != joint_indices_.end()) {
        is_chosen[joint->second] = true;
      } else if (std::find(srdf_->virtual_joints.begin(), srdf_->virtual_joints.end(), name) ==
                 srdf_->virtual_joints.end()) {
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
      chain_tip_ = chain.tip_link;
    }
  }

  std::size_t groupLink(const Srdf::Group& group, const std::string& name) const {
    const auto link = link_indices_.find(name);
    if (link == link_indices_.end()) {
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

  // The value of each joint that stays, and whom the others follow.
  void placeJoints() {
    std::vector<double> held(urdf_.joints.size(), 0.0);
    for (std::size_t joint = 0; joint < urdf_.joints.size(); ++joint) {
      if (canMove(joint)) {
        const kinematics::JointLimits& limits = urdf_.joints[joint].limits;
        held[joint] = std::clamp(0.0, limits.min, limits.max);
      }
    }
    for (const auto& [name, value] : options_.joint_values) {
      const std::size_t joint = movableJoint(name);
      const Urdf::Joint& known = urdf_.joints[joint];
      if (coordinate_of_[joint] != kNone) {
        fail(urdf_.file, known.line,
             "a value for joint " + Quoted(name) + ", which is a coordinate of the c-space",
             "a joint outside it");
      }
      if (!(known.limits.min <= value && value <= known.limits.max)) {
        fail(urdf_.file, known.line, "the value " + NumberText(value) + " for joint " + Quoted(name),
             "one in [" + NumberText(known.limits.min) + ", " + NumberText(known.limits.max) + "]");
      }
      held[joint] = value;
    }
    for (std::size_t joint = 0; joint < urdf_.joints.size(); ++joint) {
      Motion motion;
      std::size_t at = joint;
      for (; urdf_.joints[at].mimic; at = urdf_.joints[at].mimic->joint) {
        motion.offset += motion.multiplier * urdf_.joints[at].mimic->offset;
        motion.multiplier *= urdf_.joints[at].mimic->multiplier;
      }
      motion.coordinate = coordinate_of_[at];
      if (motion.coordinate == kNone) {
        motion.offset += motion.multiplier * held[at];
      }
      if (!std::isfinite(motion.offset) || !std::isfinite(motion.multiplier)) {
        fail(urdf_.file, urdf_.joints[joint].line,
             "joint " + Quoted(urdf_.joints[joint].name) + " that mimics another one by numbers too large",
             "a finite value");
      }
      motions_.push_back(motion);
    }
  }

  bool doesMove(std::size_t joint) const {
    return urdf_.joints[joint].type != JointType::kFixed && motions_[joint].coordinate != kNone;
  }

  std::map<std::string, Eigen::VectorXd> namedConfigurations() const {
    std::map<std::string, Eigen::VectorXd> configurations;
    if (!srdf_) {
      return configurations;
    }
    std::set<std::string> of_chosen_group;
    for (const Srdf::GroupState& state : srdf_->group_states) {
      Eigen::VectorXd q(static_cast<Eigen::Index>(coordinates_.size()));
      NameList missing;
      bool is_complete = true;
      for (std::size_t i = 0; i < coordinates_.size(); ++i) {
        const std::string& name = urdf_.joints[coordinates_[i]].name;
        const auto value = state.joint_values.find(name);
        if (value != state.joint_values.end()) {
          q[static_cast<Eigen::Index>(i)] = value->second;
        } else {
          missing.add(name);
          is_complete = false;
        }
      }
      const bool is_of_chosen_group = !options_.group.empty() && state.group == options_.group;
      if (!is_complete) {
        if (is_of_chosen_group) {
          KAVO_LOG(LogLevel::kWarning)
              << srdf_->file << ":" << state.line << ": group state " << Quoted(state.name)
              << " has no value for " << missing.text() << " and is left out.";
        }
        continue;
      }
      if (is_of_chosen_group && of_chosen_group.insert(state.name).second) {
        configurations[state.name] = q;
      } else {
        configurations.emplace(state.name, q);
      }
    }
    return configurations;
  }

  // The spheres of each link.
  std::vector<Spheres> placeSpheres(const std::optional<FileText>& file,
                                    std::vector<LoadedRobot::UncoveredLink>& uncovered) {
    std::map<std::string, Spheres> given;
    if (file) {
      given = readSpheres(*file);
    }
    if (srdf_) {
      given.insert(srdf_->link_spheres.begin(), srdf_->link_spheres.end());
    }
    std::vector<Spheres> link_spheres;
    for (const Urdf::Link& link : urdf_.links) {
      Spheres spheres;
      if (const auto found = given.find(link.name); found != given.end()) {
        spheres = found->second;
      } else {
        bool is_uncovered = false;
        for (const Urdf::Collision& collision : link.collisions) {
          const std::optional<Spheres> cover = coverSolid(link, collision);
          if (cover) {
            spheres.insert(spheres.end(), cover->begin(), cover->end());
          } else if (!std::exchange(is_uncovered, true)) {
            uncovered.push_back({link.name, kindText(collision.kind)});
          }
        }
      }
      link_spheres.push_back(std::move(spheres));
    }
    return link_spheres;
  }

  std::map<std::string, Spheres> readSpheres(const FileText& file) const {
    std::map<std::string, Spheres> given;
    for (const auto& [link, list] : YamlValue(file.text, file.file).get("collision_spheres").entries()) {
      if (link_indices_.count(link) == 0) {
        list.fail("spheres of link " + Quoted(link), "a link of the robot");
      }
      const auto [place, is_new] = given.emplace(link, Spheres());
      if (!is_new) {
        list.fail("link " + Quoted(link) + " for the second time", "different links");
      }
      for (const YamlValue& value : list.elements()) {
        const math::Sphere sphere = {value.get("center").vector(), value.get("radius").number()};
        if (sphere.radius <= 0.0) {
          value.get("radius").fail("a positive radius");
        }
        place->second.push_back(sphere);
      }
    }
    return given;
  }

  static const char* kindText(Urdf::Collision::Kind kind) {
    switch (kind) {
      case Urdf::Collision::Kind::kSphere:
        return "sphere";
      case Urdf::Collision::Kind::kBox:
        return "box";
      case Urdf::Collision::Kind::kCylinder:
        return "cylinder";
      case Urdf::Collision::Kind::kMesh:
        return "mesh";
    }
    return "";
  }

  // The spheres that stand for a solid, in the link's frame; none if nothing does.
  std::optional<Spheres> coverSolid(const Urdf::Link& link, const Urdf::Collision& collision) const {
    const bool is_sphere = collision.kind == Urdf::Collision::Kind::kSphere;
    if (collision.kind == Urdf::Collision::Kind::kMesh || (!is_sphere && !options_.cover_tolerance)) {
      return std::nullopt;
    }
    std::optional<Spheres> cover;
    if (is_sphere) {
      cover = Spheres{{Eigen::Vector3d::Zero(), collision.radius}};
    } else if (collision.kind == Urdf::Collision::Kind::kBox) {
      cover = CoverBox(0.5 * collision.size, *options_.cover_tolerance);
    } else {
      cover = CoverCylinder(collision.radius, 0.5 * collision.length, *options_.cover_tolerance);
    }
    const std::string solid = std::string("a ") + kindText(collision.kind) + " of link " + Quoted(link.name);
    if (!cover) {
      fail(urdf_.file, collision.line,
           solid + " that takes more than " + std::to_string(kMaxCoverSpheres) + " spheres to cover it to " +
               NumberText(*options_.cover_tolerance) + " m",
           "a larger tolerance");
    }
    for (math::Sphere& sphere : *cover) {
      sphere.center = collision.pose * sphere.center;
      if (!std::isfinite(sphere.center[0]) || !std::isfinite(sphere.center[1]) ||
          !std::isfinite(sphere.center[2]) || !std::isfinite(sphere.radius)) {
        fail(urdf_.file, collision.line, solid + " that is too large or too far away", "finite numbers");
      }
    }
    return cover;
  }

  std::shared_ptr<RobotDescription> build(const std::map<std::string, Eigen::VectorXd>& configurations,
                                          const std::vector<Spheres>& link_spheres) const {
    const std::optional<Eigen::VectorXd> default_configuration = chooseDefault(configurations);
    RobotDescriptionBuilder builder(urdf_.links[0].name);
    // The builder numbers the coordinates in the order in which it gets them.
    for (std::size_t i = 0; i < coordinates_.size(); ++i) {
      Joint joint = makeJoint(coordinates_[i]);
      joint.limits = urdf_.joints[coordinates_[i]].limits;
      if (default_configuration) {
        joint.default_value = (*default_configuration)[static_cast<Eigen::Index>(i)];
      }
      builder.addJoint(std::move(joint));
    }
    for (std::size_t i = 0; i < urdf_.joints.size(); ++i) {
      if (coordinate_of_[i] != kNone) {
        continue;
      }
      Joint joint = makeJoint(i);
      const Motion& motion = motions_[i];
      if (!doesMove(i)) {
        joint.held_value = motion.offset;
      } else {
        const std::string& followed = urdf_.joints[coordinates_[motion.coordinate]].name;
        joint.mimic = Joint::Mimic{followed, motion.multiplier, motion.offset};
      }
      builder.addJoint(std::move(joint));
    }
    for (std::size_t i = 0; i < urdf_.links.size(); ++i) {
      for (const math::Sphere& sphere : link_spheres[i]) {
        builder.addCollisionSphere(urdf_.links[i].name, sphere.center, sphere.radius);
      }
    }
    if (options_.self_collision) {
      addPairs(link_spheres, builder);
    }
    return builder.build();
  }

  Joint makeJoint(std::size_t index) const {
    const Urdf::Joint& from = urdf_.joints[index];
    Joint joint;
    joint.name = from.name;
    joint.type = from.type;
    joint.parent_frame = urdf_.links[from.parent].name;
    joint.child_frame = urdf_.links[index + 1].name;
    joint.origin = from.origin;
    joint.axis = from.axis;
    return joint;
  }

  std::optional<Eigen::VectorXd> chooseDefault(
      const std::map<std::string, Eigen::VectorXd>& configurations) const {
    for (const char* name : {"ready", "home", "default"}) {
      const auto found = configurations.find(name);
      if (found == configurations.end()) {
        continue;
      }
      bool is_within = true;
      for (std::size_t i = 0; i < coordinates_.size(); ++i) {
        const kinematics::JointLimits& limits = urdf_.joints[coordinates_[i]].limits;
        const double value = found->second[static_cast<Eigen::Index>(i)];
        is_within = is_within && limits.min <= value && value <= limits.max;
      }
      if (is_within) {
        return found->second;
      }
    }
    return std::nullopt;
  }

  void addPairs(const std::vector<Spheres>& link_spheres, RobotDescriptionBuilder& builder) const {
    // Each rigid body by its first link, and the pairs of bodies that a moving joint connects.
    std::vector<std::size_t> bodies = {0};
    std::set<std::pair<std::size_t, std::size_t>> neighbours;
    for (std::size_t joint = 0; joint < urdf_.joints.size(); ++joint) {
      const std::size_t parent_body = bodies[urdf_.joints[joint].parent];
      bodies.push_back(doesMove(joint) ? joint + 1 : parent_body);
      neighbours.emplace(parent_body, bodies.back());
    }
    std::set<std::pair<std::string, std::string>> disabled;
    if (srdf_) {
      for (const Srdf::DisabledPair& pair : srdf_->disabled_pairs) {
        disabled.insert(std::minmax(pair.link1, pair.link2));
      }
    }
    for (std::size_t a = 0; a < urdf_.links.size(); ++a) {
      for (std::size_t b = a + 1; b < urdf_.links.size(); ++b) {
        if (link_spheres[a].empty() || link_spheres[b].empty() || bodies[a] == bodies[b]) {
          continue;
        }
        const bool is_disabled =
            disabled.empty() ? neighbours.count(std::minmax(bodies[a], bodies[b])) != 0
                             : disabled.count(std::minmax(urdf_.links[a].name, urdf_.links[b].name)) != 0;
        if (!is_disabled) {
          builder.addCollisionPair(urdf_.links[a].name, urdf_.links[b].name);
        }
      }
    }
  }

  std::string tipFrame() const {
    if (!chain_tip_.empty()) {
      return chain_tip_;
    }
    if (srdf_ && !options_.group.empty()) {
      for (const Srdf::EndEffector& end_effector : srdf_->end_effectors) {
        if (end_effector.parent_group == options_.group &&
            link_indices_.count(end_effector.parent_link) != 0) {
          return end_effector.parent_link;
        }
      }
    }
    // Numbers of coordinates and of joints before each link.
    std::vector<std::pair<std::size_t, std::size_t>> before = {{0, 0}};
    std::size_t tip = 0;
    for (std::size_t joint = 0; joint < urdf_.joints.size(); ++joint) {
      const auto [coordinates, joints] = before[urdf_.joints[joint].parent];
      before.emplace_back(coordinates + (coordinate_of_[joint] != kNone ? 1 : 0), joints + 1);
      if (before.back() > before[tip]) {
        tip = joint + 1;
      }
    }
    return urdf_.links[tip].name;
  }

  void warn(const std::vector<LoadedRobot::UncoveredLink>& uncovered,
            const std::vector<Spheres>& link_spheres) const {
    if (!uncovered.empty()) {
      std::string names;
      for (const LoadedRobot::UncoveredLink& link : uncovered) {
        names += (names.empty() ? "" : ", ") + Quoted(link.name) + " (" + link.kind + ")";
      }
      KAVO_LOG(LogLevel::kWarning) << urdf_.file << ": collision geometry of " << uncovered.size()
                                   << (uncovered.size() == 1 ? " link" : " links")
                                   << " is not covered by spheres and will not be checked: " << names << ".";
    } else if (std::all_of(link_spheres.begin(), link_spheres.end(),
                           [](const Spheres& spheres) { return spheres.empty(); })) {
      KAVO_LOG(LogLevel::kWarning) << urdf_.file
                                   << ": the robot has no collision geometry: nothing will be checked.";
    }
  }

  const RobotFileOptions& options_;
  Urdf urdf_;
  std::optional<Srdf> srdf_;
  std::map<std::string, std::size_t> link_indices_;
  std::map<std::string, std::size_t> joint_indices_;
  // The joints that are coordinates, in c-space order, and for each joint the coordinate that it is.
  std::vector<std::size_t> coordinates_;
  std::vector<std::size_t> coordinate_of_;
  std::vector<Motion> motions_;
  // Tip of the last chain of the chosen group and of those that belong to it; empty if they have none.
  std::string chain_tip_;
};

std::optional<FileText> ReadOptional(const std::string& file) {
  return file.empty() ? std::nullopt : std::optional(FileText{file, ReadTextFile(file)});
}

}  // namespace

LoadedRobot ParseRobot(const FileText& urdf, const std::optional<FileText>& srdf,
                       const std::optional<FileText>& spheres, const RobotFileOptions& options) {
  const std::optional<double> cover_tolerance = options.cover_tolerance;
  KAVO_CHECK(!cover_tolerance || (std::isfinite(*cover_tolerance) && *cover_tolerance > 0.0),
             "formats/robot_file", 40)
      << "Collision geometry is to be covered to " << *cover_tolerance
      << " m; the tolerance must be positive and finite.";
  return Loader(urdf, srdf, options).load(spheres);
}

LoadedRobot LoadRobot(const std::string& urdf_file, const RobotFileOptions& options) {
  return ParseRobot({urdf_file, ReadTextFile(urdf_file)}, ReadOptional(options.srdf_file),
                    ReadOptional(options.spheres_file), options);
}

}  // namespace kavo::formats
