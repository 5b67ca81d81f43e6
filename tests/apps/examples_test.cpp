#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>

#include "apps/kavo/page_template.h"
#include "tests/apps/run_kavo.h"

namespace kavo::testing {
namespace {

// What a document has its reader type, and what it shows of the output.
struct Typed {
  std::string lines;
  std::string shown;
};

Typed ReadTyped(const std::filesystem::path& document) {
  Typed typed;
  std::istringstream text(ReadFile(document));
  std::string fence;
  for (std::string line; std::getline(text, line);) {
    // A file, with its name behind the kind.
    const std::size_t space = fence.find(' ');
    if (line.rfind("```", 0) != 0) {
      if (fence == "```sh" || space != std::string::npos) {
        typed.lines += line + "\n";
      } else if (fence == "```") {
        typed.shown += line + "\n";
      }
    } else if (!fence.empty()) {
      typed.lines += space != std::string::npos ? "END_OF_FILE\n" : "";
      fence.clear();
    } else {
      fence = line;
      if (const std::size_t name = line.find(' '); name != std::string::npos) {
        typed.lines += "cat > " + line.substr(name) + " <<'END_OF_FILE'\n";
      }
    }
  }
  return typed;
}

// As a newcomer who types them, in this order, at the root of a source tree with an installed command.
TEST(Examples, EveryLineOfHelpAndDocumentsWorks) {
  const std::filesystem::path root = KAVO_SOURCE_DIR;
  const std::filesystem::path program = KAVO_COMMAND;
  std::string lines;
  for (const char* const command : {"plan", "check", "bench", "merge", "info", "pairs", "spheres", "view"}) {
    const std::string help = RunKavo({command, "--help"}).output;
    const std::size_t heading = help.find("Examples");
    ASSERT_NE(heading, std::string::npos) << command;
    lines += help.substr(help.find('\n', heading));
  }
  std::string shown;
  for (const char* const document : {"README.md", "docs/command.md", "docs/tutorial.md", "docs/formats.md"}) {
    const Typed typed = ReadTyped(root / document);
    EXPECT_FALSE(typed.lines.empty() || typed.shown.empty()) << document;
    lines += typed.lines;
    shown += typed.shown;
  }

  if (command::FindPageTemplate() == nullptr) {
    lines = std::regex_replace(lines, std::regex(" --html [^ \n]+"), "");
    lines = std::regex_replace(lines, std::regex("kavo view"), ": kavo view");
  }
#ifndef KAVO_WITH_ASSIMP
  lines = std::regex_replace(lines, std::regex(" --obstacle [a-z]+\\.(stl|obj|dae)@[0-9.,]+"), "");
#endif
  const Folder folder;
  const std::string script = folder.Write("lines", "set -ex\n" + lines);
  std::filesystem::create_directories(folder / "build/release/apps");
  std::filesystem::create_directory_symlink(program.parent_path(), folder / "build/release/apps/kavo");
  std::filesystem::create_directory_symlink(root / "examples", folder / "examples");
  const std::string run = "cd '" + folder / "." + "' && XDG_CACHE_HOME='" + folder / "cache" + "' PATH='" +
                          program.parent_path().string() + "':$PATH sh lines >output 2>errors";
  EXPECT_EQ(std::system(run.c_str()), 0) << ReadFile(folder / "output") << ReadFile(folder / "errors");
  // What they show is what is printed.
  const std::string output = "\n" + ReadFile(folder / "output");
  std::istringstream shown_lines(shown);
  for (std::string line; std::getline(shown_lines, line);) {
    EXPECT_NE(output.find("\n" + line + "\n"), std::string::npos) << line;
  }
  // The SRDF of the example holds what the command makes of its spheres.
  EXPECT_EQ(ReadFile(folder / "arm_with_pairs.srdf"), ReadFile(root / "examples/own_robot/arm.srdf"));
}

}  // namespace
}  // namespace kavo::testing
