#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kavo/util/log.h"

namespace kavo::testing {

//! Collects what the library logs, from all threads, while it lives; puts back the former sink and the
//! threshold of the thread that made it when it dies. Make and destroy it on one thread.
class LogCapture {
 public:
  //! \param threshold Of the current thread, for the lifetime of the capture.
  explicit LogCapture(int threshold = static_cast<int>(LogLevel::kInfo))
      : former_threshold_(std::exchange(util::log_level_threshold, threshold)),
        former_sink_(util::SetLogSink([store = store_](const util::LogRecord& record) {
          const std::lock_guard lock(store->mutex);
          store->records.push_back(record);
        })) {}
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture() {
    util::SetLogSink(std::move(former_sink_));
    util::log_level_threshold = former_threshold_;
  }

  //! All records so far, fatal ones included, in the order of their arrival.
  std::vector<util::LogRecord> records() const {
    const std::lock_guard lock(store_->mutex);
    return store_->records;
  }

  //! The messages of all records of one level that were not fatal.
  std::vector<std::string> messages(LogLevel level) const {
    std::vector<std::string> messages;
    for (const util::LogRecord& record : records()) {
      if (record.level == level && !record.fatal) {
        messages.push_back(record.message);
      }
    }
    return messages;
  }

  std::vector<std::string> warnings() const { return messages(LogLevel::kWarning); }

  void clear() {
    const std::lock_guard lock(store_->mutex);
    store_->records.clear();
  }

 private:
  struct Store {
    std::mutex mutex;
    std::vector<util::LogRecord> records;
  };

  // Shared with the sink: a record on its way while the capture dies must find the store.
  std::shared_ptr<Store> store_ = std::make_shared<Store>();
  int former_threshold_;
  util::LogSink former_sink_;
};

}  // namespace kavo::testing
