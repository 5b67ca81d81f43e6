#include "apps/kavo/progress.h"

#include <unistd.h>

#include <cstddef>
#include <iostream>

#include "apps/kavo/interrupt.h"

namespace kavo::command {

Progress::Progress(bool is_quiet) : is_shown_(!is_quiet && isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
  // Whoever comes after has seen what the threads did: they all had the lock, also as ThreadSanitizer sees
  // it, to which the library of threads is a closed box.
  const std::lock_guard lock(mutex_);
  if (is_shown_) {
    std::cerr << "\r\033[K";
  }
}

void Progress::Show(const std::string& text) { std::cerr << "\r\033[K" << text << std::flush; }

void Progress::ShowPart(std::size_t done, std::size_t total) {
  constexpr std::size_t kWidth = 40;
  const std::lock_guard lock(mutex_);
  if (is_shown_) {
    const std::size_t filled = done * kWidth / total;
    Show("[" + std::string(filled, '#') + std::string(kWidth - filled, ' ') + "] " + std::to_string(done) +
         " of " + std::to_string(total));
  }
}

void Progress::ShowTime(const char* what) {
  if (!is_shown_) {
    return;
  }
  const std::lock_guard lock(mutex_);
  const auto elapsed = std::chrono::steady_clock::now() - begin_;
  const long seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
  if (seconds > seconds_shown_) {
    seconds_shown_ = seconds;
    Show(std::string(what) + ": " + std::to_string(seconds) + " s");
  }
}

StopCondition Progress::Watch(const char* what) {
  return [this, what] {
    ShowTime(what);
    return Signal() != 0;
  };
}

}  // namespace kavo::command
