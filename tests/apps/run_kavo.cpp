#include "tests/apps/run_kavo.h"

#include <sys/wait.h>

#include <cstdlib>

namespace kavo::testing {

namespace {

std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? "'\\''" : std::string(1, c);
  }
  return quoted + "'";
}

}  // namespace

Outcome RunKavo(const std::vector<std::string>& arguments, const std::string& input,
                const std::string& signal, int seconds) {
  const Folder folder;
  // Covers that one run keeps are there for the next, and none go to the user's own.
  static const Folder cache;
  std::string line = "XDG_CACHE_HOME=" + Quoted(cache.path()) + " " +
                     (signal.empty() ? ""
                                     : "timeout --preserve-status --signal " + signal + " " +
                                           std::to_string(seconds) + " ") +
                     Quoted(KAVO_COMMAND);
  for (const std::string& argument : arguments) {
    line += " " + Quoted(argument);
  }
  line += " <" + Quoted(folder.Write("in", input)) + " >" + Quoted(folder / "out") + " 2>" +
          Quoted(folder / "err");
  const int status = std::system(line.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(folder / "out"), ReadFile(folder / "err")};
}

}  // namespace kavo::testing
