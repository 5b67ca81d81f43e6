#pragma once

#include <optional>

#include "kavo/formats/allowed_collisions.h"
#include "kavo/formats/yaml_value_internal.h"

namespace kavo::formats {

//! None from a matrix without entries and defaults, which says nothing.
std::optional<AllowedCollisions> ReadAllowedCollisions(const YamlValue& matrix);

}  // namespace kavo::formats
