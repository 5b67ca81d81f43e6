#include "kavo/util/log.h"

#include <iostream>
#include <memory>
#include <mutex>
#include <utility>

#include "kavo/util/log_internal.h"

namespace kavo::util {

thread_local int log_level_threshold = static_cast<int>(LogLevel::kWarning);

namespace {

struct SinkHolder {
  std::mutex mutex;
  std::shared_ptr<const LogSink> sink;
};

// Never destroyed: objects with static storage duration may log while the process ends.
SinkHolder& Holder() {
  static auto* const holder = new SinkHolder;
  return *holder;
}

const char* LevelName(LogLevel level) {
  switch (level) {
    case LogLevel::kCritical:
      return "critical";
    case LogLevel::kError:
      return "error";
    case LogLevel::kWarning:
      return "warning";
    case LogLevel::kInfo:
      return "info";
  }
  return "unknown level";
}

}  // namespace

LogSink SetLogSink(LogSink sink) {
  auto replacement = sink ? std::make_shared<const LogSink>(std::move(sink)) : nullptr;
  SinkHolder& holder = Holder();
  const std::lock_guard lock(holder.mutex);
  std::swap(holder.sink, replacement);
  return replacement ? *replacement : LogSink{};
}

std::string FormatLogRecord(const LogRecord& record) {
  std::string line = "kavo: ";
  line += record.fatal ? "fatal" : LevelName(record.level);
  line += ": ";
  line += record.message;
  if (record.fatal) {
    line += record.message.empty() ? "[" : " [";
    line += record.condition;
    line += "] at ";
    line += record.file;
    line += ":";
    line += std::to_string(record.line);
  }
  return line;
}

namespace internal {

void Emit(const LogRecord& record) noexcept {
  try {
    std::shared_ptr<const LogSink> sink;
    {
      SinkHolder& holder = Holder();
      const std::lock_guard lock(holder.mutex);
      sink = holder.sink;
    }
    if (sink) {
      (*sink)(record);
    } else {
      // One insertion, so that lines of different threads do not mix.
      std::cerr << FormatLogRecord(record) + "\n" << std::flush;
    }
  } catch (...) {
    return;
  }
}

}  // namespace internal
}  // namespace kavo::util
