#include "kavo/util/fatal_error.h"

#include <utility>

#include "kavo/util/log.h"

namespace kavo::util {

FatalError::FatalError(std::string condition, std::string file, int line, std::string message)
    : std::logic_error(FormatLogRecord({LogLevel::kCritical, true, condition, file, line, message})),
      condition_(std::move(condition)),
      file_(std::move(file)),
      line_(line),
      message_(std::move(message)) {}

FatalError::~FatalError() = default;

}  // namespace kavo::util
