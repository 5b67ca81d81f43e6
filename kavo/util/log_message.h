#pragma once

#include <ostream>
#include <sstream>
#include <string>

#include "kavo/util/export.h"
#include "kavo/util/fatal_error.h"
#include "kavo/util/log.h"

namespace kavo::util {

//! A report waiting for its text. `operator&` with a stream that holds the text emits it.
//!
//! Binding by `&` lets the whole text be streamed first (`<<` binds tighter), so that a message that is not
//! wanted can be skipped without being formatted: see `KAVO_LOG` and `KAVO_CHECK`.
class KAVO_EXPORT LogMessage {
 public:
  //! A report of the given level that returns after it was emitted. It does not look at the threshold.
  explicit LogMessage(LogLevel level);

  //! A fatal report: `operator&` emits it and throws `FatalError`.
  //! \param condition Source text of the broken precondition.
  //! \param file Source file without extension, relative to the library's root.
  //! \param line Line that the report is known by.
  LogMessage(std::string condition, std::string file, int line);

  //! Emits the report with the text that `text` holds (a string stream; any other stream counts as empty
  //! text).
  void operator&(const std::ostream& text);

 private:
  LogRecord record_;
};

}  // namespace kavo::util

namespace kavo::util {

//! A stream for text, in the classic locale: numbers look the same whatever the global locale is.
class KAVO_EXPORT TextStream : public std::ostringstream {
 public:
  TextStream();
  ~TextStream() override;
};

}  // namespace kavo::util

//! KAVO_LOG(level) << "text" << value;
//! Emits a report if the current thread's threshold lets it through; nothing is evaluated otherwise.
#define KAVO_LOG(level)                                         \
  (::kavo::util::log_level_threshold < static_cast<int>(level)) \
      ? void()                                                  \
      : ::kavo::util::LogMessage(level) & KAVO_LOG_TEXT()  // NOLINT(bugprone-macro-parentheses)

//! KAVO_CHECK(condition, "room/folder/file", line) << "text" << value;
//! Throws `kavo::util::FatalError` unless the condition holds. Log filters key on file and line: they name
//! the check and do not follow edits.
#define KAVO_CHECK(condition, file, line) \
  (condition) ? void() : ::kavo::util::LogMessage(#condition, file, line) & KAVO_LOG_TEXT()  // NOLINT

// `flush` turns the temporary into an lvalue of the base class, on which every inserter works.
#define KAVO_LOG_TEXT() ::kavo::util::TextStream().flush()
