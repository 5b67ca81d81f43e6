#include "apps/kavo/scene_options.h"

#include <CLI/CLI.hpp>

#include "kavo/formats/scene.h"

namespace kavo::command {

void SceneOptions::AddOptions(CLI::App& app) {
  app.add_option("-s,--scene", files_, "Planning scenes (YAML or .scene); empty space without one")
      ->type_name("FILE...")
      ->group("Scene");
}

LoadedScene ReadScenes(const std::vector<std::string>& files, const std::optional<Pose3>& base_pose) {
  LoadedScene loaded;
  loaded.base_pose = base_pose.value_or(Pose3());
  for (const std::string& file : files) {
    formats::Scene scene = formats::ReadScene(file);
    scene.base_pose = base_pose.value_or(scene.base_pose);
    AddToWorld(scene, loaded.world);
    loaded.joint_state.insert(scene.joint_state.begin(), scene.joint_state.end());
    loaded.base_pose = scene.base_pose;
  }
  return loaded;
}

}  // namespace kavo::command
