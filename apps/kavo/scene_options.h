#pragma once

#include <Eigen/Core>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kavo/math/pose3.h"
#include "kavo/world/world.h"

namespace CLI {
class App;
}  // namespace CLI

namespace kavo::command {

//! What the scene files say.
struct LoadedScene {
  //! The obstacles, in the frame of the robot's base.
  World world;
  //! Joint values by name.
  std::map<std::string, double> joint_state;
  //! Pose of the robot base in the world of the files.
  Pose3 base_pose;
};

//! Everything in the files together; throws `formats::FileError`.
//! \param base_pose Takes the place of the one in the files.
LoadedScene ReadScenes(const std::vector<std::string>& files, const std::optional<Pose3>& base_pose = {});

//! The option that says which obstacles there are.
class SceneOptions {
 public:
  //! This object must outlive the parsing.
  void AddOptions(CLI::App& app);

  const std::vector<std::string>& Files() const { return files_; }

 private:
  std::vector<std::string> files_;
};

}  // namespace kavo::command
