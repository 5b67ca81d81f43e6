#pragma once

#include <Eigen/Core>
#include <string>
#include <vector>

#include "kavo/world/world.h"

namespace kavo::examples {

//! A box whose sides are parallel to the world's axes. Metres.
struct Board {
  std::string name;
  Eigen::Vector3d size;
  Eigen::Vector3d center;
};

//! A shelf of three boards in front of the Franka arm, open to the robot, and queries from beside it to a
//! configuration with the hand between the lower and the middle board.
inline std::vector<Board> ShelfBoards() {
  return {{"lower board", {0.3, 0.9, 0.03}, {0.75, 0.0, 0.45}},
          {"middle board", {0.3, 0.9, 0.03}, {0.75, 0.0, 0.95}},
          {"upper board", {0.3, 0.9, 0.03}, {0.75, 0.0, 1.35}},
          {"back", {0.02, 0.9, 1.35}, {0.91, 0.0, 0.69}},
          {"left side", {0.3, 0.02, 1.35}, {0.75, 0.46, 0.69}},
          {"right side", {0.3, 0.02, 1.35}, {0.75, -0.46, 0.69}}};
}

//! Height of the floor. The collision spheres of the robot's base bulge a little below its mounting plane.
inline constexpr double kFloorHeight = -0.05;

inline World MakeShelf() {
  World world;
  for (const Board& board : ShelfBoards()) {
    world.add(BoxObstacle{board.size}, Pose3::FromTranslation(board.center), board.name);
  }
  world.add(HalfSpaceObstacle{}, Pose3::FromTranslation({0.0, 0.0, kFloorHeight}), "floor");
  return world;
}

//! A configuration beside the shelf.
inline Eigen::VectorXd ShelfStart() {
  Eigen::VectorXd q(7);
  q << -1.2, 0.5, 0.0, -1.9, 0.0, 1.5708, 0.7854;
  return q;
}

//! A configuration with the hand between the lower and the middle board.
inline Eigen::VectorXd ShelfGoal() {
  Eigen::VectorXd q(7);
  q << 0.0, 0.05, 0.0, -1.815, 0.0, 3.436, 0.7854;
  return q;
}

}  // namespace kavo::examples
