#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "kavo/util/export.h"

namespace kavo::formats {

//! JSON for readers: indented by two spaces, with a list of plain values, such as a configuration, in one
//! line, and a line break at the end. Numbers are written such that reading them gives the same bits.
KAVO_EXPORT std::string JsonText(const nlohmann::ordered_json& value);

//! The same of a text, in quotes and all in one line.
std::string JsonString(const std::string& text);

}  // namespace kavo::formats
