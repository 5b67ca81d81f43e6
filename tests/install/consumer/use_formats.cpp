#include <iostream>

#include "kavo/formats/robot_file.h"

int main() {
  const kavo::formats::LoadedRobot robot =
      kavo::formats::ParseRobot({"arm.urdf",
                                 "<robot name='arm'><link name='base'><collision><geometry><sphere "
                                 "radius='1'/></geometry></collision></link>"
                                 "<link name='tip'/><joint name='turn' type='continuous'><parent "
                                 "link='base'/><child link='tip'/></joint>"
                                 "</robot>"},
                                {}, {});
  std::cout << robot.name << " ends in " << robot.tip_frame << "\n";
  return robot.description->numCSpaceCoords() == 1 && robot.tip_frame == "tip" ? 0 : 1;
}
