#include <Eigen/Core>
#include <Eigen/Geometry>
#include <cmath>
#include <string>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/math/constants_internal.h"

namespace kavo {

namespace {

using math::kPi;
const double kHalfRoot = std::sqrt(0.5);

// Denavit-Hartenberg parameters after Craig, as the maker publishes them: the frame of joint i lies in that
// of joint i - 1 at Rot_x(alpha) Trans_x(a) Trans_z(d). Metres; alpha is `quarter_turns` times 90 degrees.
struct DhJoint {
  double a;
  double d;
  int quarter_turns;
  double min;
  double max;
  double default_value;
};

constexpr DhJoint kJoints[] = {
    {0.0, 0.333, 0, -2.8973, 2.8973, 0.0},       {0.0, 0.0, -1, -1.7628, 1.7628, -kPi / 4.0},
    {0.0, 0.316, 1, -2.8973, 2.8973, 0.0},       {0.0825, 0.0, 1, -3.0718, -0.0698, -3.0 * kPi / 4.0},
    {-0.0825, 0.384, -1, -2.8973, 2.8973, 0.0},  {0.0, 0.0, 1, -0.0175, 3.7525, kPi / 2.0},
    {0.088, 0.0, 1, -2.8973, 2.8973, kPi / 4.0},
};

constexpr double kFlange = 0.107;
constexpr double kTool = 0.1034;
constexpr double kFingerRoot = 0.0584;
constexpr double kFingerOpening = 0.04;

struct FrameSphere {
  const char* frame;
  double x, y, z;
  double radius;
};

// Along the axes of the housings, close enough that no gap opens between two of them; the radii are a few
// millimetres above the housings' so that the sides between two centres are covered as well.
constexpr FrameSphere kSpheres[] = {
    // Foot with the connector box behind it, and the lower column.
    {"base", 0.0, 0.0, 0.06, 0.090},
    {"base", -0.08, 0.0, 0.06, 0.080},
    {"base", 0.0, 0.0, 0.12, 0.070},
    // Column up to the shoulder, and the shoulder's fixed half.
    {"link1", 0.0, 0.0, -0.18, 0.065},
    {"link1", 0.0, 0.0, -0.12, 0.065},
    {"link1", 0.0, 0.0, -0.06, 0.065},
    {"link1", 0.0, 0.0, 0.0, 0.070},
    {"link1", 0.0, -0.05, 0.0, 0.065},
    // Shoulder's moving half; the upper arm points along -y.
    {"link2", 0.0, 0.0, 0.05, 0.065},
    {"link2", 0.0, 0.0, 0.0, 0.070},
    {"link2", 0.0, -0.06, 0.0, 0.065},
    {"link2", 0.0, -0.12, 0.0, 0.064},
    {"link2", 0.0, -0.18, 0.0, 0.062},
    // Upper arm along z, then sideways to the elbow's axis.
    {"link3", 0.0, 0.0, -0.13, 0.062},
    {"link3", 0.0, 0.0, -0.065, 0.062},
    {"link3", 0.0, 0.0, 0.0, 0.060},
    {"link3", 0.04, 0.0, 0.0, 0.058},
    {"link3", 0.0825, 0.045, 0.0, 0.058},
    {"link3", 0.0825, 0.0, 0.0, 0.058},
    {"link3", 0.0825, -0.045, 0.0, 0.058},
    // From the elbow back to the forearm, which points along y.
    {"link4", 0.0, 0.0, 0.045, 0.058},
    {"link4", 0.0, 0.0, 0.0, 0.058},
    {"link4", 0.0, 0.0, -0.045, 0.058},
    {"link4", -0.04, 0.02, 0.0, 0.060},
    {"link4", -0.0825, 0.04, 0.0, 0.060},
    {"link4", -0.0825, 0.09, 0.0, 0.058},
    {"link4", -0.0825, 0.14, 0.0, 0.056},
    // Forearm along z to the wrist, with the motor housing at its side.
    {"link5", 0.0, 0.0, -0.24, 0.058},
    {"link5", 0.0, 0.0, -0.19, 0.057},
    {"link5", 0.0, 0.0, -0.14, 0.056},
    {"link5", 0.0, 0.0, -0.09, 0.056},
    {"link5", 0.0, 0.0, -0.04, 0.052},
    {"link5", 0.0, 0.0, 0.0, 0.055},
    {"link5", 0.0, 0.055, -0.13, 0.042},
    {"link5", 0.0, 0.070, -0.08, 0.040},
    {"link5", 0.0, 0.075, -0.03, 0.040},
    // Wrist, sideways to the last axis.
    {"link6", 0.0, 0.0, 0.0, 0.058},
    {"link6", 0.0, 0.0, -0.045, 0.052},
    {"link6", 0.045, 0.0, 0.0, 0.054},
    {"link6", 0.088, 0.0, 0.0, 0.055},
    {"link6", 0.088, 0.03, 0.0, 0.052},
    // Along z to the flange.
    {"link7", 0.0, 0.0, 0.0, 0.052},
    {"link7", 0.0, 0.0, 0.045, 0.050},
    {"link7", 0.0, 0.0, 0.085, 0.046},
    // Body of the hand: two rows along y.
    {"hand", 0.0, -0.081, 0.018, 0.035},
    {"hand", 0.0, -0.054, 0.018, 0.035},
    {"hand", 0.0, -0.027, 0.018, 0.035},
    {"hand", 0.0, 0.0, 0.018, 0.035},
    {"hand", 0.0, 0.027, 0.018, 0.035},
    {"hand", 0.0, 0.054, 0.018, 0.035},
    {"hand", 0.0, 0.081, 0.018, 0.035},
    {"hand", 0.0, -0.081, 0.046, 0.035},
    {"hand", 0.0, -0.054, 0.046, 0.035},
    {"hand", 0.0, -0.027, 0.046, 0.035},
    {"hand", 0.0, 0.0, 0.046, 0.035},
    {"hand", 0.0, 0.027, 0.046, 0.035},
    {"hand", 0.0, 0.054, 0.046, 0.035},
    {"hand", 0.0, 0.081, 0.046, 0.035},
    // Fingers along z; their inner faces lie in the frames' x-z planes.
    {"left_finger", 0.0, 0.014, 0.008, 0.016},
    {"left_finger", 0.0, 0.013, 0.022, 0.015},
    {"left_finger", 0.0, 0.011, 0.035, 0.013},
    {"left_finger", 0.0, 0.010, 0.047, 0.0125},
    {"right_finger", 0.0, -0.014, 0.008, 0.016},
    {"right_finger", 0.0, -0.013, 0.022, 0.015},
    {"right_finger", 0.0, -0.011, 0.035, 0.013},
    {"right_finger", 0.0, -0.010, 0.047, 0.0125},
};

}  // namespace

std::unique_ptr<RobotDescription> LoadFrankaRobotDescription() {
  RobotDescriptionBuilder builder("base");
  std::string parent = "base";
  int number = 1;
  for (const DhJoint& parameters : kJoints) {
    Joint joint;
    joint.name = "joint" + std::to_string(number);
    joint.type = JointType::kRevolute;
    joint.parent_frame = parent;
    joint.child_frame = "link" + std::to_string(number);
    // Rot_x by a quarter turn takes (0, 0, d) to (0, -d * turns, 0).
    const int turns = parameters.quarter_turns;
    joint.origin = turns == 0 ? Pose3::FromTranslation({parameters.a, 0.0, parameters.d})
                              : Pose3(Eigen::Quaterniond(kHalfRoot, kHalfRoot * turns, 0.0, 0.0),
                                      {parameters.a, -parameters.d * turns, 0.0});
    joint.limits = kinematics::JointLimits{parameters.min, parameters.max};
    joint.default_value = parameters.default_value;
    parent = joint.child_frame;
    builder.addJoint(joint);
    ++number;
  }
  // cos and sin of -45 / 2 degrees, by the half-angle formulas.
  const Eigen::Quaterniond hand_turn(std::sqrt(0.5 + 0.5 * kHalfRoot), 0.0, 0.0,
                                     -std::sqrt(0.5 - 0.5 * kHalfRoot));
  builder.addFrame("flange", "link7", Pose3::FromTranslation({0.0, 0.0, kFlange}))
      .addFrame("hand", "flange", Pose3::FromRotation(hand_turn))
      .addFrame("left_finger", "hand", Pose3::FromTranslation({0.0, kFingerOpening, kFingerRoot}))
      .addFrame("right_finger", "hand", Pose3::FromTranslation({0.0, -kFingerOpening, kFingerRoot}))
      .addFrame("tool", "hand", Pose3::FromTranslation({0.0, 0.0, kTool}));
  for (const FrameSphere& sphere : kSpheres) {
    builder.addCollisionSphere(sphere.frame, {sphere.x, sphere.y, sphere.z}, sphere.radius);
  }
  return builder.build();
}

}  // namespace kavo
