#pragma once

#include <optional>
#include <string_view>

#include "kavo/formats/yaml_value_internal.h"

namespace kavo::formats {

//! The value of a key as a share of limits, above 0 and at most 1. None where it is missing or zero, which
//! stands for a value that was not set.
std::optional<double> ReadScaling(const YamlValue& map, std::string_view key);

}  // namespace kavo::formats
