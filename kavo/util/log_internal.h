#pragma once

#include "kavo/util/log.h"

namespace kavo::util::internal {

//! Hands the record to the sink, whatever the threshold. What the sink throws is swallowed.
void Emit(const LogRecord& record) noexcept;

}  // namespace kavo::util::internal
