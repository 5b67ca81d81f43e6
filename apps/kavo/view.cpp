// kavo view: a result as a page for a browser.

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "apps/kavo/command.h"
#include "apps/kavo/output_file.h"
#include "apps/kavo/page.h"
#include "apps/kavo/result_document.h"

namespace kavo::command {

namespace {

struct ViewOptions {
  std::string result_file;
  std::optional<std::string> page_file;
};

int View(const ViewOptions& options) {
  RequirePage("kavo view");
  OutputFile page_file("--output", options.page_file, {{"result", options.result_file}});
  const std::string page = MakePage(ReadAll(options.result_file), options.result_file);
  if (page_file.IsStandardOutput()) {
    std::cout << page;
  } else {
    page_file.Write(page);
  }
  return kDone;
}

}  // namespace

void AddViewCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<ViewOptions>();
  CLI::App* view = app.add_subcommand("view", "Make a page for a browser of a plan or a benchmark");
  view->add_option("result", options->result_file,
                   "What 'kavo plan --json' or 'kavo bench --json' wrote; - is standard input")
      ->type_name("FILE")
      ->required();
  view->add_option("-o,--output", options->page_file, "The page; - is standard output")
      ->type_name("FILE")
      ->required();
  view->footer(
      "Writes one HTML file, with nothing beside it: it opens from disk and needs no network. It shows the\n"
      "robot among its obstacles, the motion, the search (as far as --trees put it into the file), joint\n"
      "values and clearance along the path, and how the query ended; of a benchmark its tables and plots,\n"
      "and with --keep-plans each plan. 'kavo plan' and 'kavo bench' write the same page with --html.\n\n"
      "Examples, with the files of the source tree:\n"
      "  kavo plan --robot franka --scene examples/scene.yaml --start default \\\n"
      "            --goal 0,0.05,0,-1.815,0,3.436,0.7854 --json plan.json\n"
      "  kavo view plan.json -o plan.html");
  view->callback([options, &run] { run = [options] { return View(*options); }; });
}

}  // namespace kavo::command
