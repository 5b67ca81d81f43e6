#pragma once

#include <chrono>
#include <exception>
#include <optional>

#include "bindings/python/bindings.h"
#include "kavo/motion_planning/util/stop_condition.h"

namespace kavo::python {

//! What ends work that runs with the GIL released: a time, a function of the caller, and Ctrl-C. The last two
//! are looked at every 10 ms, whatever the interpreter's other threads do then.
class Control {
 public:
  //! Before the work, with the GIL.
  //! \param timeout Seconds; see `StopAfter`.
  //! \param stop A function that says whether to stop, or None.
  void Begin(const std::optional<double>& timeout, const py::object& stop);

  //! After it, with the GIL. Raises what the function or a signal's handler raised.
  void End();

  //! To be asked without the GIL. Must not outlive this object.
  StopCondition Condition();

 private:
  bool Ask();

  std::chrono::steady_clock::time_point next_look_;
  StopCondition deadline_;
  py::object stop_;
  bool has_stopped_ = false;
  std::exception_ptr raised_;
};

//! Does work with the GIL released, under control.
template <typename Work>
auto Run(Control& control, const std::optional<double>& timeout, const py::object& stop, const Work& work) {
  control.Begin(timeout, stop);
  auto result = [&] {
    const py::gil_scoped_release released;
    return work();
  }();
  control.End();
  return result;
}

}  // namespace kavo::python
