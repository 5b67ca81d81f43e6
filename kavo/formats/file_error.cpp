#include "kavo/formats/file_error.h"

#include <utility>

namespace kavo::formats {

FileError::FileError(std::string file, int line, std::string message)
    : std::runtime_error(file + (line > 0 ? ":" + std::to_string(line) : "") + ": " + message),
      file_(std::move(file)),
      line_(line),
      message_(std::move(message)) {}

FileError::~FileError() = default;

}  // namespace kavo::formats
