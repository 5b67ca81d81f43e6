// kavo merge: one benchmark of its parts.

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/bench_files.h"
#include "apps/kavo/bench_parts.h"
#include "apps/kavo/bench_report.h"
#include "apps/kavo/command.h"
#include "apps/kavo/result_document.h"
#include "kavo/formats/json_internal.h"

namespace kavo::command {

namespace {

struct MergeOptions {
  std::vector<std::string> parts;
  BenchFileOptions files;
  // Of the whole command.
  std::vector<std::string> arguments;
};

int Merge(const MergeOptions& options) {
  options.files.Check();
  std::vector<std::pair<std::string, std::string>> inputs;
  for (const std::string& file : options.parts) {
    inputs.emplace_back("part", file);
  }
  BenchFiles files(options.files, inputs);
  std::vector<std::pair<std::string, nlohmann::ordered_json>> parts;
  for (const std::string& file : options.parts) {
    parts.emplace_back(file, ParseResult(ReadAll(file), file));
  }
  nlohmann::ordered_json joined = JoinBenches(parts);
  joined["arguments"] = options.arguments;
  const BenchDocument bench = ReadBench(joined, options.parts.front());
  files.Write(formats::JsonText(joined),
              BenchTables(bench.problems, bench.runs, bench.planners, bench.num_wanted));
  return kDone;
}

}  // namespace

void AddMergeCommand(CLI::App& app, Run& run, const std::vector<std::string>& arguments) {
  const auto options = std::make_shared<MergeOptions>();
  options->arguments = arguments;
  CLI::App* merge = app.add_subcommand("merge", "Tabulate a benchmark that was run in parts");
  merge->add_option("parts", options->parts, "What 'kavo bench --shard K/N --json' wrote, for each part")
      ->type_name("FILE")
      ->required();
  options->files.AddOptions(*merge);
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
