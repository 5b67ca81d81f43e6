#pragma once

#include <stdexcept>
#include <string>

#include "kavo/util/export.h"

namespace kavo::util {

//! Thrown when a precondition of the library is broken, after the report has gone to the log sink.
//!
//! It is meant for the outermost boundary of a program. The object whose operation threw is only good for
//! destruction; other objects are untouched. `what()` is the line that the default sink prints.
//!
//! @code
//! bool was_thrown = false;
//! try {
//!   kavo::World().add(kavo::SphereObstacle{-1.0}, kavo::Pose3());
//! } catch (const kavo::util::FatalError& error) {
//!   was_thrown = true;
//!   std::cerr << error.file() << ":" << error.line() << ": " << error.message() << "\n";
//! }
//! assert(was_thrown);
//! @endcode
class KAVO_EXPORT FatalError : public std::logic_error {
 public:
  //! With the fields of its log record.
  FatalError(std::string condition, std::string file, int line, std::string message);
  FatalError(const FatalError&) = default;             //!< With the same fields.
  FatalError& operator=(const FatalError&) = default;  //!< With the same fields.
  ~FatalError() override;

  //! Source text of the broken precondition.
  const std::string& condition() const { return condition_; }
  //! Source file, without extension and relative to the library's root.
  const std::string& file() const { return file_; }
  //! Line that the report is known by. It names the check and stays when the file is edited.
  int line() const { return line_; }
  //! What went wrong, for a reader; may be empty.
  const std::string& message() const { return message_; }

 private:
  std::string condition_;
  std::string file_;
  int line_;
  std::string message_;
};

}  // namespace kavo::util
