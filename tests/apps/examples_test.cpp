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

// As a newcomer who types them, in this order, at the root of a source tree with an installed command.
TEST(Examples, EveryLineOfHelpReadmeAndTutorialWorks) {
  const std::filesystem::path root = KAVO_SOURCE_DIR;
  const std::filesystem::path program = KAVO_COMMAND;
  std::string lines;
  for (const char* const command : {"plan", "check", "bench", "info", "pairs", "spheres", "view"}) {
    const std::string help = RunKavo({command, "--help"}).output;
    const std::size_t heading = help.find("Examples");
    ASSERT_NE(heading, std::string::npos) << command;
    lines += help.substr(help.find('\n', heading));
  }
  const std::string readme = ReadFile(root / "README.md");
  const std::regex block("```sh\n((?:[^`]*\n)?build/release/apps/kavo/kavo[^`]*)```");
  std::size_t num_blocks = 0;
  for (std::sregex_iterator i(readme.begin(), readme.end(), block); i != std::sregex_iterator(); ++i) {
    lines += i->str(1);
    ++num_blocks;
  }
  EXPECT_GT(num_blocks, 1U);
  std::istringstream tutorial(ReadFile(root / "docs/tutorial.md"));
  std::string shown;
  std::string fence;
  for (std::string line; std::getline(tutorial, line);) {
    if (line.rfind("```", 0) == 0) {
      fence = fence.empty() ? line : "";
    } else if (fence == "```sh") {
      lines += line + "\n";
    } else if (fence == "```") {
      shown += line + "\n";
    }
  }

  if (command::FindPageTemplate() == nullptr) {
    lines = std::regex_replace(lines, std::regex(" --html [^ \n]+"), "");
    lines = std::regex_replace(lines, std::regex("kavo view"), ": kavo view");
  }
  const Folder folder;
  const std::string script = folder.Write("lines", "set -ex\n" + lines);
  std::filesystem::create_directories(folder / "build/release/apps");
  std::filesystem::create_directory_symlink(program.parent_path(), folder / "build/release/apps/kavo");
  std::filesystem::create_directory_symlink(root / "examples", folder / "examples");
  const std::string run = "cd '" + folder / "." + "' && XDG_CACHE_HOME='" + folder / "cache" + "' PATH='" +
                          program.parent_path().string() + "':$PATH sh lines >output 2>errors";
  EXPECT_EQ(std::system(run.c_str()), 0) << ReadFile(folder / "output") << ReadFile(folder / "errors");
  // What the tutorial shows is what is printed.
  const std::string output = "\n" + ReadFile(folder / "output");
  std::istringstream shown_lines(shown);
  std::size_t num_shown = 0;
  for (std::string line; std::getline(shown_lines, line); ++num_shown) {
    EXPECT_NE(output.find("\n" + line + "\n"), std::string::npos) << line;
  }
  EXPECT_GT(num_shown, 20U);
  // The SRDF of the example holds what the command makes of its spheres.
  EXPECT_EQ(ReadFile(folder / "arm_with_pairs.srdf"), ReadFile(root / "examples/own_robot/arm.srdf"));
}

}  // namespace
}  // namespace kavo::testing
