#pragma once

#include <functional>

#include "kavo/util/export.h"

namespace kavo {

//! Asked over and over while a query runs; the query ends soon after it first says true. Empty: never.
//! Queries ask copies of it: what it counts has to stand outside.
using StopCondition = std::function<bool()>;

//! A condition that holds once `seconds` have passed since this call. A time that is not positive, or NaN,
//! stops at once; infinity never.
KAVO_EXPORT StopCondition StopAfter(double seconds);

}  // namespace kavo
