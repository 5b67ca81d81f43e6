#pragma once

#include <optional>
#include <string_view>

#include "kavo/util/export.h"

namespace kavo::util {

//! The finite number that the whole text stands for, in the same way under every locale: decimal, with an
//! exponent if need be, and a sign. Spaces and tabs around it do not count. Empty for anything else, also for
//! a number too large for a double.
KAVO_EXPORT std::optional<double> ParseNumber(std::string_view text);

}  // namespace kavo::util
