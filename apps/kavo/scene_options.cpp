#include "apps/kavo/scene_options.h"

#include <CLI/CLI.hpp>

namespace kavo::command {

void SceneOptions::AddOptions(CLI::App& app) {
  app.add_option("-s,--scene", files_, "Planning scenes (YAML or .scene); empty space without one")
      ->type_name("FILE...")
      ->group("Scene");
}

}  // namespace kavo::command
