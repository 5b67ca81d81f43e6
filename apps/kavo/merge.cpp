// kavo merge: one benchmark of its parts.

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/bench_parts.h"
#include "apps/kavo/bench_report.h"
#include "apps/kavo/command.h"
#include "apps/kavo/output_file.h"
#include "apps/kavo/page.h"
#include "apps/kavo/result_document.h"
#include "kavo/formats/json_internal.h"

namespace kavo::command {

namespace {

struct MergeOptions {
  std::vector<std::string> files;
  std::optional<std::string> json_file;
  std::optional<std::string> html_file;
  // Of the whole command.
  std::vector<std::string> arguments;
};

int Merge(const MergeOptions& options) {
  if (options.html_file) {
    RequirePage("--html");
    if (options.html_file == "-") {
      throw UnusableInput("--html -: expected the name of a file");
    }
  }
  std::vector<std::pair<std::string, std::string>> inputs;
  for (const std::string& file : options.files) {
    inputs.emplace_back("part", file);
  }
  OutputFile json_file("--json", options.json_file, inputs);
  OutputFile html_file("--html", options.html_file, inputs);
  if (html_file.IsSameAs(json_file)) {
    throw UnusableInput("--html cannot be written where --json is");
  }
  std::vector<std::pair<std::string, nlohmann::ordered_json>> parts;
  for (const std::string& file : options.files) {
    parts.emplace_back(file, ParseResult(ReadAll(file), file));
  }
  nlohmann::ordered_json joined = JoinBenches(parts);
  joined["arguments"] = options.arguments;
  const BenchDocument bench = ReadBench(joined, options.files.front());
  const std::string json = formats::JsonText(joined);
  if (json_file.IsStandardOutput()) {
    std::cout << json;
  } else {
    std::cout << BenchTables(bench.problems, bench.runs, bench.planners, bench.num_wanted) << std::flush;
  }
  if (json_file.IsFile()) {
    json_file.Write(json);
  }
  if (html_file.IsFile()) {
    html_file.Write(MakePage(json, "--html"));
  }
  return kDone;
}

}  // namespace

void AddMergeCommand(CLI::App& app, Run& run, const std::vector<std::string>& arguments) {
  const auto options = std::make_shared<MergeOptions>();
  options->arguments = arguments;
  CLI::App* merge = app.add_subcommand("merge", "Tabulate a benchmark that was run in parts");
  merge->add_option("parts", options->files, "What 'kavo bench --shard K/N --json' wrote, for each part")
      ->type_name("FILE")
      ->required();
  merge
      ->add_option("--json", options->json_file,
                   "Write every run as JSON, with its path; - is standard output, instead of the tables")
      ->type_name("FILE");
  merge
      ->add_option(
          "--html", options->html_file,
          "Write a page for a browser, one file that needs nothing else: tables and plots of all runs")
      ->type_name("FILE");
  merge->footer(
      "Prints the tables that 'kavo bench' would have printed of all problems. Parts that are missing are\n"
      "said. 'python3 -m kavo.batch bench' runs the parts on a cluster and merges them.\n\n"
      "Examples, with the files of the source tree:\n"
      "  kavo bench --robot examples/own_robot/arm.urdf --srdf examples/own_robot/arm.srdf \\\n"
      "             --group arm --problems examples/own_robot --repeat 10 --shard 1/2 --json 1.json\n"
      "  kavo bench --robot examples/own_robot/arm.urdf --srdf examples/own_robot/arm.srdf \\\n"
      "             --group arm --problems examples/own_robot --repeat 10 --shard 2/2 --json 2.json\n"
      "  kavo merge 1.json 2.json");
  merge->callback([options, &run] { run = [options] { return Merge(*options); }; });
}

}  // namespace kavo::command
