#include "tests/apps/run_kavo.h"

#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): mkdtemp
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

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
                const std::string& signal) {
  const Folder folder;
  std::string line =
      (signal.empty() ? "" : "timeout --preserve-status --signal " + signal + " 2 ") + Quoted(KAVO_COMMAND);
  for (const std::string& argument : arguments) {
    line += " " + Quoted(argument);
  }
  line += " <" + Quoted(folder.Write("in", input)) + " >" + Quoted(folder / "out") + " 2>" +
          Quoted(folder / "err");
  const int status = std::system(line.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(folder / "out"), ReadFile(folder / "err")};
}

std::string ReadFile(const std::filesystem::path& file) {
  std::ifstream stream(file);
  if (!stream) {
    throw std::runtime_error("cannot read " + file.string());
  }
  return {std::istreambuf_iterator<char>(stream), {}};
}

Folder::Folder() {
  std::string name = (std::filesystem::temp_directory_path() / "kavo_test_XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("cannot make a folder " + name);
  }
  path_ = name;
}

Folder::~Folder() {
  std::error_code unused;
  std::filesystem::remove_all(path_, unused);
}

std::string Folder::Write(const std::string& name, const std::string& text) const {
  const std::filesystem::path file = path_ / name;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file) << text;
  return file.string();
}

}  // namespace kavo::testing
