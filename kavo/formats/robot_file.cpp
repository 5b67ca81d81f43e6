#include "kavo/formats/robot_file.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <set>
#include <utility>

#include "kavo/formats/file_error.h"
#include "kavo/formats/link_cover_internal.h"
#include "kavo/formats/robot_joints_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/urdf_internal.h"
#include "kavo/formats/yaml_value_internal.h"
#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

namespace {

using Spheres = std::vector<math::Sphere>;

constexpr std::size_t kNone = RobotJoints::kNone;

std::optional<FileText> ReadOptional(const std::string& file, std::size_t max_size) {
  return file.empty() ? std::nullopt : std::optional(FileText{file, ReadTextFile(file, max_size)});
}

}  // namespace

class RobotFiles::Impl {
 public:
  Impl(const FileText& urdf, const std::optional<FileText>& srdf, const std::optional<FileText>& spheres,
       const RobotFileOptions& options)
      : options_(options), urdf_(ParseUrdf(urdf.text, urdf.file)) {
    if (srdf) {
      srdf_ = ParseSrdf(srdf->text, srdf->file);
    }
    joints_ = ChooseJoints(urdf_, srdf_, options_);
    without_description_.name = urdf_.name;
    without_description_.origin =
        std::make_shared<const LoadedRobot::Origin>(LoadedRobot::Origin{urdf, options.packages});
    if (srdf_) {
      without_description_.end_effectors = srdf_->end_effectors;
      without_description_.srdf = std::make_shared<const Srdf>(*srdf_);
    }
    without_description_.named_configurations = namedConfigurations();
    if (srdf_) {
      warnOfSrdf();
    }
    without_description_.tip_frame = tipFrame();
    without_description_.motion_limits = motionLimits();
    link_spheres_ = placeSpheres(spheres);
    const std::vector<std::size_t> bodies = rigidBodies();
    for (std::size_t link = 0; link < urdf_.links.size(); ++link) {
      if (!link_spheres_[link].empty()) {
        without_description_.bodies[urdf_.links[link].name] = bodies[link];
      }
    }
    if (without_description_.uncovered_links.empty() &&
        std::all_of(link_spheres_.begin(), link_spheres_.end(),
                    [](const Spheres& of_link) { return of_link.empty(); })) {
      KAVO_LOG(LogLevel::kWarning) << urdf_.file
                                   << ": the robot has no collision geometry: nothing will be checked.";
    }
  }

  LoadedRobot make(const std::map<std::string, double>& state) const {
    LoadedRobot robot = without_description_;
    const std::vector<RobotJoints::Motion> motions =
        PlaceJoints(urdf_, joints_, options_.joint_values, state);
    robot.other_joints = otherJoints(motions);
    robot.description = build(robot.named_configurations, motions);
    return robot;
  }

 private:
  [[noreturn]] static void fail(const std::string& file, int line, const std::string& found,
                                const std::string& expected) {
    throw FileError(file, line, "found " + found + ", expected " + expected);
  }

  planning::MotionLimits motionLimits() const {
    const auto unknown = Eigen::VectorXd::Constant(static_cast<Eigen::Index>(joints_.coordinates.size()),
                                                   std::numeric_limits<double>::infinity());
    planning::MotionLimits limits{unknown, unknown, {}};
    for (std::size_t i = 0; i < joints_.coordinates.size(); ++i) {
      limits.velocity[static_cast<Eigen::Index>(i)] = urdf_.joints[joints_.coordinates[i]].velocity;
    }
    return limits;
  }

  std::map<std::string, Eigen::VectorXd> namedConfigurations() const {
    std::map<std::string, Eigen::VectorXd> configurations;
    if (!srdf_) {
      return configurations;
    }
    std::set<std::string> of_chosen_group;
    for (const Srdf::GroupState& state : srdf_->group_states) {
      Eigen::VectorXd q(static_cast<Eigen::Index>(joints_.coordinates.size()));
      NameList missing;
      for (std::size_t i = 0; i < joints_.coordinates.size(); ++i) {
        const std::string& name = urdf_.joints[joints_.coordinates[i]].name;
        const auto value = state.joint_values.find(name);
        if (value != state.joint_values.end()) {
          q[static_cast<Eigen::Index>(i)] = value->second;
        } else {
          missing.add(name);
        }
      }
      const bool is_of_chosen_group = !options_.group.empty() && state.group == options_.group;
      if (!missing.isEmpty()) {
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

  // What in an SRDF does not fit the robot, though the rest can be used.
  void warnOfSrdf() const {
    if (srdf_->robot_name != urdf_.name) {
      KAVO_LOG(LogLevel::kWarning) << srdf_->file << ": is for a robot " << Quoted(srdf_->robot_name)
                                   << ", the URDF describes " << Quoted(urdf_.name) << ".";
    }
    std::set<std::string> unknown;
    for (const Srdf::DisabledPair& pair : srdf_->disabled_pairs) {
      for (const std::string& link : {pair.link1, pair.link2}) {
        if (urdf_.link_indices.count(link) == 0 && unknown.insert(link).second) {
          KAVO_LOG(LogLevel::kWarning) << srdf_->file << ":" << pair.line << ": collisions are disabled for "
                                       << Quoted(link) << ", which is no link of the robot.";
        }
      }
    }
    for (const Srdf::GroupState& state : srdf_->group_states) {
      for (const auto& [name, value] : state.joint_values) {
        const auto joint = urdf_.joint_indices.find(name);
        if (joint == urdf_.joint_indices.end()) {
          if (srdf_->findVirtualJoint(name) == nullptr) {
            KAVO_LOG(LogLevel::kWarning)
                << srdf_->file << ":" << state.line << ": group state " << Quoted(state.name) << " names "
                << Quoted(name) << ", which is no joint of the robot.";
          }
          continue;
        }
        const Urdf::Joint& known = urdf_.joints[joint->second];
        if (known.type != JointType::kFixed && !(known.limits.min <= value && value <= known.limits.max)) {
          KAVO_LOG(LogLevel::kWarning)
              << srdf_->file << ":" << state.line << ": group state " << Quoted(state.name) << " puts "
              << Quoted(name) << " at " << NumberText(value) << ", outside its limits "
              << NumberText(known.limits.min) << " and " << NumberText(known.limits.max) << ".";
        }
      }
    }
  }

  // The spheres of each link.
  std::vector<Spheres> placeSpheres(const std::optional<FileText>& file) {
    using Source = LoadedRobot::LinkShape::Source;
    const std::map<std::string, Spheres> of_file =
        file ? readSpheres(*file) : std::map<std::string, Spheres>();
    const std::map<std::string, Spheres> of_srdf =
        srdf_ ? srdf_->link_spheres : std::map<std::string, Spheres>();
    LinkCovers covers(urdf_, options_);
    std::vector<LinkCovers::Cover> of_links;
    for (std::size_t i = 0; i < urdf_.links.size(); ++i) {
      const Urdf::Link& link = urdf_.links[i];
      LinkCovers::Cover of_link{i, {}, shapeOf(link), true};
      if (const auto given = of_file.find(link.name); given != of_file.end()) {
        of_link.shape.source = Source::kSpheresFile;
        of_link.spheres = given->second;
      } else if (const auto found = of_srdf.find(link.name); found != of_srdf.end()) {
        of_link.shape.source = Source::kSrdf;
        of_link.spheres = found->second;
      } else if (of_link.shape.num_balls < link.collisions.size() && options_.cover) {
        covers.add(i, of_link.shape);
      } else {
        of_link.shape.source = of_link.shape.num_balls > 0 ? Source::kUrdf : Source::kNone;
        of_link.is_whole = of_link.shape.num_balls == link.collisions.size();
        of_link.spheres = ballsOf(link);
      }
      of_links.push_back(std::move(of_link));
    }
    for (LinkCovers::Cover& cover : covers.make()) {
      of_links[cover.link] = std::move(cover);
    }
    std::vector<Spheres> link_spheres;
    for (LinkCovers::Cover& of_link : of_links) {
      const Urdf::Link& link = urdf_.links[of_link.link];
      if (!of_link.is_whole) {
        without_description_.uncovered_links.push_back({link.name, firstUncovered(link)});
      }
      of_link.shape.num_spheres = of_link.spheres.size();
      if (!link.collisions.empty() || of_link.shape.source != Source::kNone) {
        without_description_.link_shapes.push_back(std::move(of_link.shape));
      }
      link_spheres.push_back(std::move(of_link.spheres));
    }
    return link_spheres;
  }

  std::map<std::string, Spheres> readSpheres(const FileText& file) const {
    YamlValue links(file.text, file.file);
    for (const char* const key : {"robot_cfg", "kinematics", "collision_spheres"}) {
      links = links.find(key).value_or(links);
    }
    std::map<std::string, Spheres> given;
    for (const auto& [link, list] : links.entries()) {
      if (urdf_.link_indices.count(link) == 0) {
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

  static LoadedRobot::LinkShape shapeOf(const Urdf::Link& link) {
    LoadedRobot::LinkShape shape;
    shape.link = link.name;
    for (const Urdf::Collision& collision : link.collisions) {
      switch (collision.kind) {
        case Urdf::Collision::Kind::kSphere:
          ++shape.num_balls;
          break;
        case Urdf::Collision::Kind::kBox:
          ++shape.num_boxes;
          break;
        case Urdf::Collision::Kind::kCylinder:
          ++shape.num_cylinders;
          break;
        case Urdf::Collision::Kind::kMesh:
          ++shape.num_meshes;
          break;
      }
    }
    return shape;
  }

  // The spheres of a link's geometry, in the link's frame.
  Spheres ballsOf(const Urdf::Link& link) const {
    Spheres spheres;
    for (const Urdf::Collision& collision : link.collisions) {
      if (collision.kind != Urdf::Collision::Kind::kSphere) {
        continue;
      }
      spheres.push_back({collision.pose.translation(), collision.radius});
      if (!spheres.back().center.allFinite()) {
        fail(urdf_.file, collision.line, "a sphere of link " + Quoted(link.name) + " that is too far away",
             "finite numbers");
      }
    }
    return spheres;
  }

  // With covers only meshes can be what is left.
  std::string firstUncovered(const Urdf::Link& link) const {
    for (const Urdf::Collision& collision : link.collisions) {
      switch (collision.kind) {
        case Urdf::Collision::Kind::kSphere:
          break;
        case Urdf::Collision::Kind::kBox:
        case Urdf::Collision::Kind::kCylinder:
          if (!options_.cover) {
            return collision.kind == Urdf::Collision::Kind::kBox ? "box" : "cylinder";
          }
          break;
        case Urdf::Collision::Kind::kMesh:
          return "mesh";
      }
    }
    return "";
  }

  std::shared_ptr<RobotDescription> build(const std::map<std::string, Eigen::VectorXd>& configurations,
                                          const std::vector<RobotJoints::Motion>& motions) const {
    const std::optional<Eigen::VectorXd> default_configuration = chooseDefault(configurations);
    RobotDescriptionBuilder builder(urdf_.links[0].name);
    // The builder numbers the coordinates in the order in which it gets them.
    for (std::size_t i = 0; i < joints_.coordinates.size(); ++i) {
      Joint joint = makeJoint(joints_.coordinates[i]);
      if (joint.type != JointType::kContinuous) {
        joint.limits = urdf_.joints[joints_.coordinates[i]].limits;
      }
      if (default_configuration) {
        joint.default_value = (*default_configuration)[static_cast<Eigen::Index>(i)];
      }
      builder.addJoint(std::move(joint));
    }
    for (std::size_t i = 0; i < urdf_.joints.size(); ++i) {
      if (joints_.coordinate_of[i] != kNone) {
        continue;
      }
      Joint joint = makeJoint(i);
      const RobotJoints::Motion& motion = motions[i];
      if (!joints_.doesMove(i)) {
        joint.held_value = motion.offset;
      } else {
        const std::string& followed = urdf_.joints[joints_.coordinates[motion.coordinate]].name;
        joint.mimic = Joint::Mimic{followed, motion.multiplier, motion.offset};
      }
      builder.addJoint(std::move(joint));
    }
    for (std::size_t i = 0; i < urdf_.links.size(); ++i) {
      for (const math::Sphere& sphere : link_spheres_[i]) {
        builder.addCollisionSphere(urdf_.links[i].name, sphere.center, sphere.radius);
      }
    }
    const bool lists_pairs = srdf_ && !srdf_->disabled_pairs.empty();
    if (options_.self_collision || (options_.self_collision_if_listed && lists_pairs)) {
      addPairs(builder);
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
      for (std::size_t i = 0; i < joints_.coordinates.size(); ++i) {
        const kinematics::JointLimits& limits = urdf_.joints[joints_.coordinates[i]].limits;
        const double value = found->second[static_cast<Eigen::Index>(i)];
        is_within = is_within && limits.min <= value && value <= limits.max;
      }
      if (is_within) {
        return found->second;
      }
    }
    return std::nullopt;
  }

  // Of each link the rigid body, by its first link. A joint that is held may stand where links touch.
  std::vector<std::size_t> rigidBodies() const {
    std::vector<std::size_t> bodies = {0};
    for (std::size_t joint = 0; joint < urdf_.joints.size(); ++joint) {
      bodies.push_back(urdf_.joints[joint].type != JointType::kFixed ? joint + 1
                                                                     : bodies[urdf_.joints[joint].parent]);
    }
    return bodies;
  }

  void addPairs(RobotDescriptionBuilder& builder) const {
    const std::vector<std::size_t> bodies = rigidBodies();
    // The pairs of bodies that a joint connects.
    std::set<std::pair<std::size_t, std::size_t>> neighbours;
    for (std::size_t joint = 0; joint < urdf_.joints.size(); ++joint) {
      neighbours.emplace(bodies[urdf_.joints[joint].parent], bodies[joint + 1]);
    }
    std::set<std::pair<std::string, std::string>> disabled;
    if (srdf_) {
      for (const Srdf::DisabledPair& pair : srdf_->disabled_pairs) {
        disabled.insert(std::minmax(pair.link1, pair.link2));
      }
    }
    for (std::size_t a = 0; a < urdf_.links.size(); ++a) {
      for (std::size_t b = a + 1; b < urdf_.links.size(); ++b) {
        if (link_spheres_[a].empty() || link_spheres_[b].empty() || bodies[a] == bodies[b]) {
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
    if (!joints_.chain_tip.empty()) {
      return joints_.chain_tip;
    }
    if (srdf_ && !options_.group.empty()) {
      for (const Srdf::EndEffector& end_effector : srdf_->end_effectors) {
        if (end_effector.parent_group == options_.group &&
            urdf_.link_indices.count(end_effector.parent_link) != 0) {
          return end_effector.parent_link;
        }
      }
    }
    // Numbers of coordinates and of joints before each link.
    std::vector<std::pair<std::size_t, std::size_t>> before = {{0, 0}};
    std::size_t tip = 0;
    for (std::size_t joint = 0; joint < urdf_.joints.size(); ++joint) {
      const auto [coordinates, joints] = before[urdf_.joints[joint].parent];
      before.emplace_back(coordinates + (joints_.coordinate_of[joint] != kNone ? 1 : 0), joints + 1);
      if (before.back() > before[tip]) {
        tip = joint + 1;
      }
    }
    return urdf_.links[tip].name;
  }

  std::map<std::string, LoadedRobot::OtherJoint> otherJoints(
      const std::vector<RobotJoints::Motion>& motions) const {
    using Other = LoadedRobot::OtherJoint;
    std::map<std::string, Other> others;
    if (srdf_) {
      for (const Srdf::VirtualJoint& joint : srdf_->virtual_joints) {
        others[joint.name].kind = Other::Kind::kVirtual;
      }
    }
    for (std::size_t i = 0; i < urdf_.joints.size(); ++i) {
      const Urdf::Joint& joint = urdf_.joints[i];
      if (joints_.coordinate_of[i] != kNone) {
        continue;
      }
      Other& other = others[joint.name];
      other = {};
      if (joint.type == JointType::kFixed) {
        continue;
      }
      other.kind = joint.mimic ? Other::Kind::kFollower : Other::Kind::kHeld;
      if (motions[i].coordinate != kNone) {
        other.coordinate = motions[i].coordinate;
      }
      other.multiplier = motions[i].multiplier;
      other.offset = motions[i].offset;
      other.rest = RestOf(joint);
      other.limits = joint.limits;
    }
    return others;
  }

  RobotFileOptions options_;
  Urdf urdf_;
  std::optional<Srdf> srdf_;
  RobotJoints joints_;
  std::vector<Spheres> link_spheres_;
  // Everything that is the same wherever the joints stand.
  LoadedRobot without_description_;
};

RobotFiles::RobotFiles(const FileText& urdf, const std::optional<FileText>& srdf,
                       const std::optional<FileText>& spheres, const RobotFileOptions& options) {
  const std::optional<double> cover_tolerance = options.cover_tolerance;
  KAVO_CHECK(!cover_tolerance || (std::isfinite(*cover_tolerance) && *cover_tolerance > 0.0),
             "formats/robot_file", 40)
      << "Collision geometry is to be covered to " << *cover_tolerance
      << " m; the tolerance must be positive and finite.";
  impl_ = std::make_shared<const Impl>(urdf, srdf, spheres, options);
}

RobotFiles RobotFiles::Read(const std::string& urdf_file, const RobotFileOptions& options) {
  return {{urdf_file, ReadTextFile(urdf_file, kMaxXmlSize)},
          ReadOptional(options.srdf_file, kMaxXmlSize),
          ReadOptional(options.spheres_file, kMaxYamlSize),
          options};
}

LoadedRobot RobotFiles::make(const std::map<std::string, double>& state) const { return impl_->make(state); }

LoadedRobot ParseRobot(const FileText& urdf, const std::optional<FileText>& srdf,
                       const std::optional<FileText>& spheres, const RobotFileOptions& options) {
  LoadedRobot robot = RobotFiles(urdf, srdf, spheres, options).make();
  NameList names;
  for (const LoadedRobot::UncoveredLink& link : robot.uncovered_links) {
    names.add(link.name, " (" + link.kind + ")");
  }
  if (!names.isEmpty()) {
    const std::size_t count = robot.uncovered_links.size();
    KAVO_LOG(LogLevel::kWarning) << urdf.file << ": collision geometry of " << count
                                 << (count == 1 ? " link" : " links")
                                 << " is not covered by spheres and will not be checked: " << names.text()
                                 << ".";
  }
  return robot;
}

LoadedRobot LoadRobot(const std::string& urdf_file, const RobotFileOptions& options) {
  return ParseRobot({urdf_file, ReadTextFile(urdf_file, kMaxXmlSize)},
                    ReadOptional(options.srdf_file, kMaxXmlSize),
                    ReadOptional(options.spheres_file, kMaxYamlSize), options);
}

}  // namespace kavo::formats
