#include "bindings/python/control.h"

#include <chrono>
#include <exception>

namespace kavo::python {

namespace {

constexpr std::chrono::milliseconds kInterval(10);

}  // namespace

void Control::Begin(const std::optional<double>& timeout, const py::object& stop) {
  next_look_ = std::chrono::steady_clock::now() + kInterval;
  deadline_ = timeout ? StopAfter(*timeout) : StopCondition();
  stop_ = stop;
  has_stopped_ = false;
  raised_ = nullptr;
}

void Control::End() {
  stop_ = py::none();
  if (raised_) {
    std::rethrow_exception(std::exchange(raised_, nullptr));
  }
}

StopCondition Control::Condition() {
  return [this] { return Ask(); };
}

bool Control::Ask() {
  if (has_stopped_ || (deadline_ && deadline_())) {
    return true;
  }
  const auto now = std::chrono::steady_clock::now();
  if (now < next_look_) {
    return false;
  }
  const py::gil_scoped_acquire acquired;
  try {
    if (PyErr_CheckSignals() != 0) {
      throw py::error_already_set();
    }
    has_stopped_ = !stop_.is_none() && py::bool_(stop_());
  } catch (...) {
    // Raised once the work is over, which has its own way to end.
    raised_ = std::current_exception();
    has_stopped_ = true;
  }
  next_look_ = std::chrono::steady_clock::now() + kInterval;
  return has_stopped_;
}

}  // namespace kavo::python
