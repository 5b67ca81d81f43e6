#pragma once

#include <limits>
#include <optional>

#include "apps/kavo/interrupt.h"
#include "kavo/motion_planning/util/stop_condition.h"

namespace kavo::command {

//! Several tries at one problem within one time, each with the next seed, until a signal comes.
class Attempts {
 public:
  //! The time begins now.
  //! \param seconds For all of them together; without them, as long as it takes.
  Attempts(const std::optional<double>& seconds, int first_seed, int number)
      : first_seed_(first_seed), number_(number) {
    if (seconds) {
      stop_ = [is_over = StopAfter(*seconds)] { return Signal() != 0 || is_over(); };
    }
  }

  //! Whether try `i` (the first is 0, which is always made) is within the number and the time, and has a
  //! seed.
  bool MayTry(int i) const {
    return i == 0 || (i < number_ && i <= std::numeric_limits<int>::max() - first_seed_ && !(stop_()));
  }
  int Seed(int i) const { return first_seed_ + i; }
  const StopCondition& Stop() const { return stop_; }

 private:
  StopCondition stop_ = [] { return Signal() != 0; };
  int first_seed_;
  int number_;
};

}  // namespace kavo::command
