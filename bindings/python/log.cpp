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
  const py::object logger = py::module_::import("logging").attr("getLogger")("kavo");
  std::string text = record.message;
  if (record.fatal) {
    text += (text.empty() ? "[" : " [") + record.condition + "] at " + record.file + ":" +
            std::to_string(record.line);
  }
  logger.attr("log")(level, "%s", text);
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
