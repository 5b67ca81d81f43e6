#include <iostream>

#include "kavo/kinematics/interface/robot_description.h"

int main() {
  const auto robot = kavo::LoadThreeLinkArmRobotDescription();
  const auto kinematics = robot->kinematics();
  const auto tool = kinematics->frame("tool");
  const Eigen::Vector3d ahead = kinematics->position(Eigen::Vector3d::Zero(), tool);
  const Eigen::Vector3d bent = kinematics->position(Eigen::Vector3d(0.0, 1.0, 1.0), tool);
  std::cout << "straight " << ahead.transpose() << ", bent " << bent.transpose() << "\n";
  return robot->numCSpaceCoords() == 3 && ahead.x() > bent.x() ? 0 : 1;
}
