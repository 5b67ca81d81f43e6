#include "kavo/kinematics/interface/robot_description_builder.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <queue>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/kinematics.h"
#include "kavo/kinematics/sin_cos_internal.h"
#include "kavo/math/constants_internal.h"
#include "kavo/util/log_message.h"
#include "kavo/util/to_string.h"

namespace kavo {

namespace {

constexpr char kFile[] = "kinematics/interface/robot_description_builder";

// Which joint carries the base frame: none.
constexpr std::size_t kNone = static_cast<std::size_t>(-1);

bool IsUnlimited(const Joint& joint) { return joint.type == JointType::kContinuous && !joint.limits; }

kinematics::JointLimits CheckedLimits(const Joint& joint) {
  if (IsUnlimited(joint)) {
    return {-math::kInf, math::kInf};
  }
  KAVO_CHECK(joint.limits.has_value(), kFile, 40)
      << "Joint \"" << joint.name << "\" has no limits; a revolute or prismatic joint needs them.";
  const kinematics::JointLimits limits = *joint.limits;
  KAVO_CHECK(std::isfinite(limits.min) && std::isfinite(limits.max), kFile, 43)
      << "Joint \"" << joint.name << "\" has limits [" << limits.min << ", " << limits.max
      << "] that are not finite.";
  KAVO_CHECK(limits.min <= limits.max, kFile, 46)
      << "Joint \"" << joint.name << "\" has the lower limit " << limits.min << " above its upper limit "
      << limits.max << ".";
  return limits;
}

double CheckedDefault(const Joint& joint, const kinematics::JointLimits& limits) {
  const kinematics::JointLimits range = limits.samplingRange();
  const double value = joint.default_value.value_or(0.5 * range.min + 0.5 * range.max);
  KAVO_CHECK(limits.min <= value && value <= limits.max, kFile, 54)
      << "Joint \"" << joint.name << "\" has the default value " << value << " outside its limits ["
      << limits.min << ", " << limits.max << "].";
  KAVO_CHECK(std::isfinite(value), kFile, 57)
      << "Joint \"" << joint.name << "\" has the default value " << value << ", which is not finite.";
  return value;
}

void CheckJoint(const Joint& joint) {
  KAVO_CHECK(!joint.name.empty(), kFile, 61)
      << "The joint that carries frame \"" << joint.child_frame << "\" has no name.";
  KAVO_CHECK(!joint.child_frame.empty(), kFile, 63)
      << "Joint \"" << joint.name << "\" carries a frame without name.";
  KAVO_CHECK(joint.origin.isFinite(), kFile, 65)
      << "Joint \"" << joint.name << "\" has an origin that is not finite (translation "
      << util::ToString(joint.origin.translation()) << ", quaternion x y z w "
      << util::ToString(joint.origin.rotation().coeffs()) << ").";
  if (joint.type == JointType::kFixed) {
    return;
  }
  KAVO_CHECK(!joint.held_value || std::isfinite(*joint.held_value), kFile, 71)
      << "Joint \"" << joint.name << "\" is held at the value " << *joint.held_value
      << ", which is not finite.";
  const Eigen::Vector3d& axis = joint.axis;
  KAVO_CHECK(std::isfinite(axis[0]) && std::isfinite(axis[1]) && std::isfinite(axis[2]), kFile, 73)
      << "Joint \"" << joint.name << "\" has the axis " << util::ToString(axis) << ", which is not finite.";
  KAVO_CHECK(axis[0] != 0.0 || axis[1] != 0.0 || axis[2] != 0.0, kFile, 75)
      << "Joint \"" << joint.name << "\" has an axis of length zero.";
}

bool IsCoordinate(const Joint& joint) {
  return joint.type != JointType::kFixed && !joint.mimic && !joint.held_value;
}

// The pose of the carried frame in the parent frame while the joint stands at a value.
Pose3 PoseAt(const Joint& joint, double value) {
  const Eigen::Vector3d& axis = joint.axis;
  const double largest = std::fmax(std::fabs(axis[0]), std::fmax(std::fabs(axis[1]), std::fabs(axis[2])));
  const double x = axis[0] / largest;
  const double y = axis[1] / largest;
  const double z = axis[2] / largest;
  const double length = std::sqrt(x * x + y * y + z * z);
  if (joint.type == JointType::kPrismatic) {
    return joint.origin *
           Pose3::FromTranslation({x / length * value, y / length * value, z / length * value});
  }
  double sin;
  double cos;
  kinematics::internal::SinCos(0.5 * value, &sin, &cos);
  return joint.origin *
         Pose3::FromRotation(Eigen::Quaterniond(cos, x / length * sin, y / length * sin, z / length * sin));
}

// Puts a description together, stage by stage in the order of the operations.
class Assembly {
 public:
  Assembly(const std::string& base_frame, const std::vector<Joint>& joints)
      : base_frame_(base_frame),
        joints_(joints),
        children_(joints.size()),
        coordinates_(joints.size(), -1),
        data_{kinematics::Kinematics(std::vector<kinematics::Kinematics::Frame>()), {}, {}, {}, {}, {}, {}} {}

  // Checks the joints one by one and finds which of them carries which.
  void ConnectJoints() {
    std::unordered_map<std::string, std::size_t> carrier = {{base_frame_, kNone}};
    std::unordered_set<std::string> joint_names;
    for (std::size_t i = 0; i < joints_.size(); ++i) {
      const Joint& joint = joints_[i];
      CheckJoint(joint);
      KAVO_CHECK(joint_names.insert(joint.name).second, kFile, 114)
          << "There are two joints with the name \"" << joint.name << "\".";
      const auto [place, is_new] = carrier.emplace(joint.child_frame, i);
      KAVO_CHECK(is_new || place->second != kNone, kFile, 117)
          << "Joint \"" << joint.name << "\" carries the base frame \"" << base_frame_ << "\".";
      KAVO_CHECK(is_new, kFile, 119) << "Frame \"" << joint.child_frame << "\" is carried by two joints, \""
                                     << joints_[place->second].name << "\" and \"" << joint.name << "\".";
    }
    for (std::size_t i = 0; i < joints_.size(); ++i) {
      const auto parent = carrier.find(joints_[i].parent_frame);
      KAVO_CHECK(parent != carrier.end(), kFile, 127)
          << "Joint \"" << joints_[i].name << "\" is attached to frame \"" << joints_[i].parent_frame
          << "\", which no joint carries.";
      if (parent->second == kNone) {
        ready_.push(i);
      } else {
        children_[parent->second].push_back(i);
      }
    }
  }

  // In the order in which the joints were added.
  void NumberCoordinates() {
    RobotDescriptionInternal::Data& data = data_;
    std::vector<double> default_values;
    std::vector<bool> is_periodic;
    for (std::size_t i = 0; i < joints_.size(); ++i) {
      const Joint& joint = joints_[i];
      if (IsCoordinate(joint)) {
        coordinates_[i] = static_cast<int>(default_values.size());
        const kinematics::JointLimits limits = CheckedLimits(joint);
        default_values.push_back(CheckedDefault(joint, limits));
        is_periodic.push_back(IsUnlimited(joint));
        data.joint_limits.push_back(limits);
        data.coordinate_names.push_back(joint.name);
      }
    }
    for (std::size_t i = 0; i < joints_.size(); ++i) {
      const Joint& joint = joints_[i];
      if (joint.type == JointType::kFixed || !joint.mimic) {
        continue;
      }
      const double multiplier = joint.mimic->multiplier;
      KAVO_CHECK(!joint.held_value, kFile, 180)
          << "Joint \"" << joint.name << "\" both follows a joint and is held at a value.";
      KAVO_CHECK(std::isfinite(joint.mimic->multiplier) && std::isfinite(joint.mimic->offset), kFile, 182)
          << "Joint \"" << joint.name << "\" follows another one by the multiplier " << multiplier
          << " and the offset " << joint.mimic->offset << ", which are not both finite.";
      const auto followed =
          std::find(data.coordinate_names.begin(), data.coordinate_names.end(), joint.mimic->joint);
      KAVO_CHECK(followed != data.coordinate_names.end(), kFile, 183)
          << "Joint \"" << joint.name << "\" follows joint \"" << joint.mimic->joint
          << "\", which is no coordinate.";
      const auto coordinate = followed - data.coordinate_names.begin();
      coordinates_[i] = static_cast<int>(coordinate);
      // After a turn of the coordinate the follower has to be where it was, too.
      const bool repeats =
          joint.type == JointType::kPrismatic ? multiplier == 0.0 : std::floor(multiplier) == multiplier;
      is_periodic[static_cast<std::size_t>(coordinate)] =
          is_periodic[static_cast<std::size_t>(coordinate)] && repeats;
    }
    data.default_configuration = Eigen::Map<const Eigen::VectorXd>(
        default_values.data(), static_cast<Eigen::Index>(default_values.size()));
    for (std::size_t i = 0; i < is_periodic.size(); ++i) {
      if (is_periodic[i]) {
        data.periodic_coordinates.push_back(static_cast<Eigen::Index>(i));
      }
    }
  }

  // Every frame after its parent.
  void PlaceFrames() {
    std::vector<kinematics::Kinematics::Frame> frames(1);
    frames[0].name = base_frame_;
    std::unordered_map<std::string, int>& frame_indices = frame_indices_;
    frame_indices = {{base_frame_, 0}};
    while (!ready_.empty()) {
      const std::size_t i = ready_.top();
      ready_.pop();
      frames.push_back(MakeFrame(i));
      frame_indices.emplace(frames.back().name, static_cast<int>(frames.size()) - 1);
      for (const std::size_t child : children_[i]) {
        ready_.push(child);
      }
    }
    for (const Joint& joint : joints_) {
      KAVO_CHECK(frame_indices.count(joint.child_frame) != 0, kFile, 176)
          << "Joint \"" << joint.name << "\" belongs to a cycle or hangs on one: frame \""
          << joint.child_frame << "\" is not connected to the base frame \"" << base_frame_ << "\".";
    }
    data_.kinematics = kinematics::Kinematics(std::move(frames));
  }

  void AddSphere(const std::string& frame_name, const math::Sphere& sphere) {
    const std::unordered_map<std::string, int>& frame_indices = frame_indices_;
    KAVO_CHECK(frame_indices.count(frame_name) != 0, kFile, 184)
        << "A collision sphere is attached to frame \"" << frame_name << "\", which does not exist.";
    KAVO_CHECK(
        std::isfinite(sphere.center[0]) && std::isfinite(sphere.center[1]) && std::isfinite(sphere.center[2]),
        kFile, 187)
        << "A collision sphere of frame \"" << frame_name << "\" has the center "
        << util::ToString(sphere.center) << ", which is not finite.";
    KAVO_CHECK(std::isfinite(sphere.radius) && sphere.radius > 0.0, kFile, 190)
        << "A collision sphere of frame \"" << frame_name << "\" has the radius " << sphere.radius
        << "; it must be positive and finite.";
    data_.collision.addSphere(frame_name, sphere);
  }

  void AddPair(const std::string& frame_a, const std::string& frame_b) {
    const std::unordered_map<std::string, int>& frame_indices = frame_indices_;
    for (const std::string& frame : {frame_a, frame_b}) {
      KAVO_CHECK(frame_indices.count(frame) != 0, kFile, 258)
          << "A collision pair names frame \"" << frame << "\", which does not exist.";
    }
    KAVO_CHECK(frame_a != frame_b, kFile, 261) << "A collision pair names frame \"" << frame_a << "\" twice.";
    if (known_pairs_.insert(std::minmax(frame_a, frame_b)).second) {
      data_.collision.pairs.emplace_back(frame_a, frame_b);
    }
  }

  std::unique_ptr<RobotDescription> Finish() {
    return std::make_unique<RobotDescriptionInternal>(std::move(data_));
  }

 private:
  kinematics::Kinematics::Frame MakeFrame(std::size_t index) const {
    const Joint& joint = joints_[index];
    kinematics::Kinematics::Frame frame;
    frame.name = joint.child_frame;
    frame.parent = frame_indices_.at(joint.parent_frame);
    frame.origin = joint.origin;
    frame.axis = joint.axis;
    frame.coordinate = coordinates_[index];
    if (joint.mimic) {
      frame.ratio = kinematics::Kinematics::Ratio{joint.mimic->multiplier, joint.mimic->offset};
    }
    if (joint.type != JointType::kFixed && joint.held_value) {
      frame.origin = PoseAt(joint, *joint.held_value);
    } else if (joint.type == JointType::kPrismatic) {
      frame.motion = kinematics::Kinematics::Motion::kPrismatic;
    } else if (joint.type != JointType::kFixed) {
      frame.motion = kinematics::Kinematics::Motion::kRevolute;
    }
    return frame;
  }

  const std::string& base_frame_;
  const std::vector<Joint>& joints_;
  // The joints that each joint carries.
  std::vector<std::vector<std::size_t>> children_;
  // Joints whose parent frame is placed already, the one added first on top.
  std::priority_queue<std::size_t, std::vector<std::size_t>, std::greater<>> ready_;
  // Of each joint that moves.
  std::vector<int> coordinates_;
  std::unordered_map<std::string, int> frame_indices_;
  std::set<std::pair<std::string, std::string>> known_pairs_;
  RobotDescriptionInternal::Data data_;
};

}  // namespace

RobotDescriptionBuilder::RobotDescriptionBuilder(std::string base_frame)
    : base_frame_(std::move(base_frame)) {}

RobotDescriptionBuilder& RobotDescriptionBuilder::addJoint(Joint joint) {
  joints_.push_back(std::move(joint));
  return *this;
}

RobotDescriptionBuilder& RobotDescriptionBuilder::addFrame(const std::string& name,
                                                           const std::string& parent_frame,
                                                           const Pose3& pose) {
  Joint joint;
  joint.name = name;
  joint.parent_frame = parent_frame;
  joint.child_frame = name;
  joint.origin = pose;
  return addJoint(std::move(joint));
}

RobotDescriptionBuilder& RobotDescriptionBuilder::addCollisionSphere(const std::string& frame_name,
                                                                     const Eigen::Vector3d& center,
                                                                     double radius) {
  collision_spheres_.push_back({frame_name, {center, radius}});
  return *this;
}

RobotDescriptionBuilder& RobotDescriptionBuilder::addCollisionPair(const std::string& frame_a,
                                                                   const std::string& frame_b) {
  collision_pairs_.emplace_back(frame_a, frame_b);
  return *this;
}

std::unique_ptr<RobotDescription> RobotDescriptionBuilder::build() const {
  KAVO_CHECK(!base_frame_.empty(), kFile, 105) << "The base frame has no name.";
  Assembly assembly(base_frame_, joints_);
  assembly.ConnectJoints();
  assembly.NumberCoordinates();
  assembly.PlaceFrames();
  for (const auto& [frame_name, sphere] : collision_spheres_) {
    assembly.AddSphere(frame_name, sphere);
  }
  for (const auto& [frame_a, frame_b] : collision_pairs_) {
    assembly.AddPair(frame_a, frame_b);
  }
  return assembly.Finish();
}

}  // namespace kavo
