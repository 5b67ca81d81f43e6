#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/output_file.h"

namespace kavo::command {

//! The files that options name for a benchmark.
struct BenchFileOptions {
  std::optional<std::string> json_file;
  std::optional<std::string> html_file;

  void AddOptions(CLI::App& app);
  //! Before anything is read. Throws `UnusableInput` for a page that cannot be made.
  void Check() const { CheckPageFile(html_file); }
};

//! Where a benchmark goes: to standard output and into files.
class BenchFiles {
 public:
  //! Opens the files. Throws `UnusableInput`.
  //! \param inputs As `OutputFile` takes them.
  BenchFiles(const BenchFileOptions& options, const std::vector<std::pair<std::string, std::string>>& inputs);

  //! Whether there is to be more than tables.
  bool AreWanted() const { return json_file_.IsWanted() || html_file_.IsWanted(); }

  //! \param json Every run, if that is wanted.
  //! \param tables Printed, unless the JSON is.
  void Write(const std::string& json, const std::string& tables);

 private:
  OutputFile json_file_;
  OutputFile html_file_;
};

}  // namespace kavo::command
