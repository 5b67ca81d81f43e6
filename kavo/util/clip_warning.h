#pragma once

#include <string_view>

#include "kavo/util/export.h"

namespace kavo::util {

//! Warns that a setting was outside its closed range and what is used instead.
//! \param value The value that came in.
//! \param clipped The value that is used.
//! \param lower, upper The range.
//! \param description What is wrong with which setting; starts the message.
KAVO_EXPORT void LogClippedWarning(double value, double clipped, double lower, double upper,
                                   std::string_view description);

}  // namespace kavo::util
