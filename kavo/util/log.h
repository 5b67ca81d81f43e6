#pragma once

#include <functional>
#include <string>

#include "kavo/util/export.h"

namespace kavo {

//! How grave a log record is; a smaller number is graver.
enum class LogLevel : int {
  //! A broken internal invariant.
  kCritical = 0,
  //! A setting that was rejected, or a fallback that was taken.
  kError = 1,
  //! An answer that does not exist, or something that a caller should know of.
  kWarning = 2,
  //! What happens along the way.
  kInfo = 3,
};

namespace util {

//! The most detailed level that the current thread emits, as a number. Each thread starts at `kWarning`.
//!
//! A message of level L is formatted and emitted only while the threshold is at least L; -1 silences
//! everything but fatal errors, which are never silenced.
extern KAVO_EXPORT thread_local int log_level_threshold;

//! One report of the library.
struct LogRecord {
  //! How grave it is.
  LogLevel level = LogLevel::kInfo;
  //! True when a `FatalError` follows the record. The next three fields are set only then.
  bool fatal = false;
  //! Source text of the precondition that was broken.
  std::string condition;
  //! Source file, without extension and relative to the library's root.
  std::string file;
  //! Line that the report is known by.
  int line = 0;
  //! For a reader; may be empty, and may have several lines.
  std::string message;
};

//! Receives every record that passes the threshold, on the thread that issued it, possibly from several
//! threads at once.
using LogSink = std::function<void(const LogRecord&)>;

//! Replaces the process-wide sink and returns the one that was in force. An empty `sink` restores the
//! default, which writes one line to standard error. A sink's exceptions are swallowed: logging never changes
//! what the library does. Safe to call from any thread; a record already on its way may still reach the old
//! sink.
//!
//! @code
//! std::vector<std::string> lines;
//! const kavo::util::LogSink former = kavo::util::SetLogSink([&lines](const kavo::util::LogRecord& record) {
//!   lines.push_back(kavo::util::FormatLogRecord(record));
//! });
//! KAVO_LOG(kavo::LogLevel::kWarning) << "half of " << 3;
//! assert(lines.front() == "kavo: warning: half of 3");
//! kavo::util::SetLogSink(former);
//! @endcode
KAVO_EXPORT LogSink SetLogSink(LogSink sink);

//! The line that the default sink writes, without line end: "kavo: warning: <message>", or for a fatal record
//! "kavo: fatal: <message> [<condition>] at <file>:<line>". Line breaks inside a message are kept.
KAVO_EXPORT std::string FormatLogRecord(const LogRecord& record);

}  // namespace util
}  // namespace kavo
