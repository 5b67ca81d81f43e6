#pragma once

#include <string>

#include "kavo/formats/robot_file.h"

namespace kavo::command {

//! Whether a name means a built-in robot and not a file.
bool IsBuiltin(const std::string& name);

//! The built-in robot of that name.
//! \param self_collision Whether it must not touch itself.
formats::LoadedRobot LoadBuiltin(const std::string& name, bool self_collision);

}  // namespace kavo::command
