#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kavo/formats/srdf.h"
#include "kavo/math/sphere.h"
#include "kavo/util/export.h"

namespace kavo::formats {

//! The text of an SRDF file with these pairs of links between which contact is not looked for, instead of
//! those of `base`, and with these spheres in place of what `base` has for the same links (centres in the
//! link's frame, metres). All else of `base`, comments included, stays.
//! \param robot_name Name of the robot, for a file that begins from nothing.
//! \param base The text of a file to begin from, and the name for its errors: throws `FileError` if it is not
//!     well-formed.
KAVO_EXPORT std::string ToSrdf(const std::string& robot_name, const std::vector<Srdf::DisabledPair>& pairs,
                               const std::map<std::string, std::vector<math::Sphere>>& spheres = {},
                               const std::optional<std::string>& base = {},
                               const std::string& base_file = {});

}  // namespace kavo::formats
