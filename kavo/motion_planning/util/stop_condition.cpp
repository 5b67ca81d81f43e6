#include "kavo/motion_planning/util/stop_condition.h"

#include <chrono>

namespace kavo {

StopCondition StopAfter(double seconds) {
  return [seconds, begin = std::chrono::steady_clock::now()] {
    return !(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count() < seconds);
  };
}

}  // namespace kavo
