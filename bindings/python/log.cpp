#include "kavo/util/log.h"

#include <string>

#include "bindings/python/bindings.h"

namespace kavo::python {

namespace {

// The levels of `logging`, by those of the library.
constexpr int kLevels[] = {50, 40, 30, 20};

void HandToLogging(const util::LogRecord& record) {
  const py::gil_scoped_acquire acquired;
  const int level = record.fatal ? kLevels[0] : kLevels[static_cast<int>(record.level)];
  std::string text = record.message;
  if (record.fatal) {
    text += (text.empty() ? "[" : " [") + record.condition + "] at " + record.file + ":" +
            std::to_string(record.line);
  }
  try {
    const py::object logger = py::module_::import("logging").attr("getLogger")("kavo");
    logger.attr("log")(level, "%s", text);
  } catch (py::error_already_set& error) {
    // The library goes on without what a sink throws. Signals are seen by whatever Python runs next, which
    // this often is: so that Ctrl-C is not lost, it comes once more.
    if (error.matches(PyExc_KeyboardInterrupt)) {
      PyErr_SetInterrupt();
    } else {
      error.discard_as_unraisable("a record of kavo on its way to logging");
    }
  }
}

// Of this thread, from a level of `logging`; gives the one before.
int SetLogLevel(int level) {
  const int before = util::log_level_threshold < 0 ? kLevels[0] + 1 : kLevels[util::log_level_threshold];
  util::log_level_threshold = -1;
  for (const int known : kLevels) {
    util::log_level_threshold += level <= known ? 1 : 0;
  }
  return before;
}

}  // namespace

void DefineLog(py::module_& module) {
  util::SetLogSink(HandToLogging);
  // Later records find no interpreter.
  py::module_::import("atexit").attr("register")(py::cpp_function([] { util::SetLogSink({}); }));
  module.def("set_log_level", SetLogLevel, py::arg("level"), R"(What this thread reports from now on.

Records go to `logging.getLogger("kavo")`. Each thread starts at `logging.WARNING`; what is less grave is not even
written. Broken preconditions are always reported, and raised as `FatalError`.

Args:
    level: Of `logging`, such as `logging.INFO`.

Returns:
    The level before.)");
}

}  // namespace kavo::python
