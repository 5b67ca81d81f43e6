#include "kavo/kinematics/interface/robot_description.h"

int main() {
  const auto kinematics = kavo::LoadThreeLinkArmRobotDescription()->kinematics();
  return kinematics->position(Eigen::Vector3d::Zero(), kinematics->frame("tool")).x() > 2.0 ? 0 : 1;
}
