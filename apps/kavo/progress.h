#pragma once

#include <chrono>
#include <mutex>
#include <string>

#include "kavo/motion_planning/util/stop_condition.h"

namespace kavo::command {

//! A line on standard error that says how far long work has come, if that is a terminal; it goes with this
//! object. Any thread may call.
class Progress {
 public:
  //! \param is_quiet Never shown.
  explicit Progress(bool is_quiet);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  //! `done` of `total` pieces of work, as a bar.
  void ShowPart(std::size_t done, std::size_t total);
  //! What is being done and for how long, once a second from the second one on.
  void ShowTime(const char* what);
  //! For work that is to stop at a signal, and to be shown until then. Must not outlive this object.
  StopCondition Watch(const char* what);

 private:
  void Show(const std::string& text);

  std::mutex mutex_;
  bool is_shown_;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  long seconds_shown_ = 0;
};

}  // namespace kavo::command
