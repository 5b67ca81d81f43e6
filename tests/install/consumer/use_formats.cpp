#include "kavo/formats/robot_file.h"

int main() {
  const auto robot = kavo::formats::ParseRobot(
      {"arm.urdf",
       "<robot name='arm'><link name='base'/><link name='tip'/><joint name='turn' type='continuous'>"
       "<parent link='base'/><child link='tip'/></joint></robot>"},
      {}, {});
  return robot.description->numCSpaceCoords() == 1 && robot.tip_frame == "tip" ? 0 : 1;
}
