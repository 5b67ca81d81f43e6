#include <Eigen/Core>
#include <cmath>
#include <string>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/math/constants_internal.h"

namespace kavo {

namespace {

using math::kPi;
constexpr double kLinkLengths[] = {1.0, 0.8, 0.6};
constexpr double kSphereRadius = 0.06;
constexpr double kSphereSpacing = 0.1;

}  // namespace

std::unique_ptr<RobotDescription> LoadThreeLinkArmRobotDescription() {
  RobotDescriptionBuilder builder("base");
  std::string parent = "base";
  double parent_length = 0.0;
  int number = 1;
  for (const double length : kLinkLengths) {
    Joint joint;
    joint.name = "joint" + std::to_string(number);
    joint.type = JointType::kRevolute;
    joint.parent_frame = parent;
    joint.child_frame = "link" + std::to_string(number);
    joint.origin = Pose3::FromTranslation({parent_length, 0.0, 0.0});
    joint.limits = kinematics::JointLimits{-kPi, kPi};
    builder.addJoint(joint);
    const int num_gaps = static_cast<int>(std::lround(length / kSphereSpacing));
    for (int i = 0; i <= num_gaps; ++i) {
      builder.addCollisionSphere(joint.child_frame, {length * i / num_gaps, 0.0, 0.0}, kSphereRadius);
    }
    parent = joint.child_frame;
    parent_length = length;
    ++number;
  }
  builder.addFrame("tool", parent, Pose3::FromTranslation({parent_length, 0.0, 0.0}));
  return builder.build();
}

}  // namespace kavo
