#include <iostream>
#include <optional>

#include "kavo/formats/robot_file.h"
#include "kavo/formats/scene.h"

int main() {
  const kavo::formats::LoadedRobot robot =
      kavo::formats::ParseRobot({"arm.urdf",
                                 "<robot name='arm'><link name='base'/><link name='arm'/><joint name='turn' "
                                 "type='revolute'><parent link='base'/>"
                                 "<child link='arm'/><axis xyz='0 0 1'/><limit lower='-1' upper='1' "
                                 "effort='1' velocity='1'/></joint></robot>"},
                                std::nullopt, std::nullopt);
  const bool is_good = robot.description->kinematics()->numCSpaceCoords() == 1 &&
                       kavo::formats::ParseSceneText("empty\n.\n", "a.scene").objects.empty();
  std::cout << (is_good ? "good" : "bad") << "\n";
  return is_good ? 0 : 1;
}
