#include "apps/kavo/bench_files.h"

#include <iostream>

#include "apps/kavo/command.h"
#include "apps/kavo/page.h"

namespace kavo::command {

void BenchFileOptions::AddOptions(CLI::App& app) {
  app.add_option("--json", json_file,
                 "Write every run as JSON, with its path; - is standard output, instead of the tables")
      ->type_name("FILE")
      ->group("Output");
  app.add_option("--html", html_file,
                 "Write a page for a browser, one file that needs nothing else: tables and plots of all runs")
      ->type_name("FILE")
      ->group("Output");
}

BenchFiles::BenchFiles(const BenchFileOptions& options,
                       const std::vector<std::pair<std::string, std::string>>& inputs)
    : json_file_("--json", options.json_file, inputs), html_file_("--html", options.html_file, inputs) {
  if (html_file_.IsSameAs(json_file_)) {
    throw UnusableInput("--html cannot be written where --json is");
  }
}

void BenchFiles::Write(const std::string& json, const std::string& tables) {
  std::cout << (json_file_.IsStandardOutput() ? json : tables) << std::flush;
  if (json_file_.IsFile()) {
    json_file_.Write(json);
  }
  if (html_file_.IsFile()) {
    html_file_.Write(MakePage(json, "--html"));
  }
}

}  // namespace kavo::command
