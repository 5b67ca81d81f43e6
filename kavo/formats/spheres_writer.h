#pragma once

#include <map>
#include <string>
#include <vector>

#include "kavo/math/sphere.h"
#include "kavo/util/export.h"

namespace kavo::formats {

//! The text of a file of spheres (YAML) that `RobotFileOptions::spheres_file` reads, with the same bits.
//! \param spheres By link; centres in the link's frame, metres.
KAVO_EXPORT std::string ToSpheresYaml(const std::map<std::string, std::vector<math::Sphere>>& spheres);

}  // namespace kavo::formats
