// The command `kavo`: plans, checks and measures from files.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "apps/kavo/command.h"
#include "apps/kavo/generate.h"
#include "apps/kavo/help.h"
#include "apps/kavo/interrupt.h"
#include "apps/kavo/provenance.h"
#include "apps/kavo/text.h"
#include "kavo/util/fatal_error.h"
#include "kavo/util/log.h"

namespace {

using kavo::command::ExitStatus;
using kavo::command::Printable;

// Warnings go to standard error. A fatal record is left to whoever catches the exception, and the notice that
// there are no accelerator trees is only for those who want to see everything.
void Report(const kavo::util::LogRecord& record) {
  const bool is_notice = record.message.rfind("TESK not enabled", 0) == 0;
  const bool is_verbose = kavo::util::log_level_threshold >= static_cast<int>(kavo::LogLevel::kInfo);
  if (!record.fatal && (is_verbose || !is_notice)) {
    std::cerr << Printable(kavo::util::FormatLogRecord(record), true) + "\n";
  }
}

int Fail(const std::string& message, int status = ExitStatus::kUnusableInput) {
  std::cerr << "kavo: " << Printable(message, true) << "\n";
  return status;
}

// \param overview The program's own help: once a command is chosen, the program gives that command's.
void AddHelpCommand(CLI::App& app, kavo::command::Run& run, const std::string& overview) {
  const auto explained = std::make_shared<std::string>();
  CLI::App* help = app.add_subcommand("help", "Explain a command, or the program");
  help->add_option("command", *explained, "The command")->type_name("COMMAND");
  help->callback([&app, &run, &overview, explained] {
    const char* const words[] = {"kavo", explained->c_str()};
    if (const std::string misspelling = kavo::command::FindMisspelling(app, 2, words);
        !explained->empty() && !misspelling.empty()) {
      throw kavo::command::UnusableInput(misspelling);
    }
    run = [&app, &overview, explained] {
      std::cout << (explained->empty() ? overview : app.get_subcommand(*explained)->help("kavo"));
      return static_cast<int>(ExitStatus::kDone);
    };
  });
}

}  // namespace

// Before the options stand, nothing but memory can be missing.
int main(int argc, char** argv) {  // NOLINT(bugprone-exception-escape)
  kavo::command::HandleSignals();
  CLI::App app(
      "Plans collision-free motions of robot arms: robots from URDF and SRDF, scenes and requests from "
      "planning-scene files",
      "kavo");
  app.set_version_flag("--version", "kavo " + kavo::command::Version());
  app.require_subcommand(0, 1);
  app.formatter(kavo::command::MakeHelpFormatter());
  kavo::command::Run run;
  const std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
  kavo::command::AddPlanCommand(app, run, arguments);
  kavo::command::AddCheckCommand(app, run);
  kavo::command::AddBenchCommand(app, run, arguments);
  kavo::command::AddMergeCommand(app, run, arguments);
  kavo::command::AddInfoCommand(app, run);
  kavo::command::AddPairsCommand(app, run);
  kavo::command::AddSpheresCommand(app, run);
  kavo::command::AddViewCommand(app, run);
  std::string overview;
  AddHelpCommand(app, run, overview);
  app.footer(
      "'kavo COMMAND --help' explains a command. Only answers go to standard output; warnings and\n"
      "progress go to standard error. Lengths are metres, angles radians. The exit status is 0 when the\n"
      "work is done, 1 when there is no path or it fails the check, 2 for input that cannot be used, 3\n"
      "when memory runs out, and 128 plus its number when a signal ends the work.");
  std::string kind;
  app.add_option("--generate", kind)->group("")->check(CLI::IsMember({"man", "bash"}));

  overview = app.help();

  try {
    if (const std::string misspelling = kavo::command::FindMisspelling(app, argc, argv);
        !misspelling.empty()) {
      return Fail(misspelling);
    }
    app.parse(argc, argv);
    if (!kind.empty()) {
      std::cout << (kind == "man" ? kavo::command::ManPage(app) : kavo::command::BashCompletion(app));
      return ExitStatus::kDone;
    }
    if (!run) {
      throw CLI::RequiredError("A command");
    }
    kavo::util::SetLogSink(Report);
    const int status = run();
    std::cout.flush();
    return !std::cout                     ? Fail("cannot write to standard output")
           : kavo::command::Signal() != 0 ? kavo::command::SignalStatus()
                                          : status;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? ExitStatus::kDone : ExitStatus::kUnusableInput;
  } catch (const kavo::util::FatalError& error) {
    return Fail(error.message());
  } catch (const std::bad_alloc&) {
    return Fail("out of memory", ExitStatus::kOutOfMemory);
  } catch (const std::exception& error) {
    return Fail(error.what());
  }
}
