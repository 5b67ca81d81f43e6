#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "tests/apps/robots.h"
#include "tests/apps/run_kavo.h"

namespace kavo::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// What becomes of results when something comes in between.
class OutputTest : public ::testing::Test {
 protected:
  std::vector<std::string> With(const std::string& command, const std::vector<std::string>& more) const {
    std::vector<std::string> arguments = {command,         "--robot",        folder_ / "arm.urdf",
                                          "--coordinates", "shoulder,elbow", "--allow-uncovered"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  void SetUp() override {
    folder_.Write("arm.urdf", kArmUrdf);
    folder_.Write("problems/scene1.yaml", kPegScene);
    folder_.Write("problems/request1.yaml", kPegRequest);
  }

  // Those that a run may have left behind.
  std::size_t NumTemporaryFiles() const {
    const fs::path path = fs::path(folder_ / "arm.urdf").parent_path();
    return static_cast<std::size_t>(std::count_if(
        fs::directory_iterator(path), fs::directory_iterator(),
        [](const fs::directory_entry& entry) { return entry.path().filename().string().front() == '.'; }));
  }

  Folder folder_;
};

TEST_F(OutputTest, FilesAreReplacedAsAWholeOrNotAtAll) {
  const std::string old = folder_.Write("old.csv", "old");
  fs::permissions(old, fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_exec);
  const std::string link = folder_ / "link.csv";
  fs::create_symlink("old.csv", link);
  const struct {
    std::string file;
    int status;
    std::string errors;
    // Of the former file.
    std::string begin;
  } cases[] = {
      {"", 2, "--csv: expected the name of a file", "old"},
      {folder_ / "arm.urdf", 2, "would be written over an input", "old"},
      {folder_ / "problems", 2, "is a folder", "old"},
      {folder_ / "none/out.csv", 2, "out.csv: cannot be written: No such file or directory", "old"},
      {"/dev/full", 2, "--csv /dev/full: cannot be written: No space left on device", "old"},
      {"/dev/null", 0, "", "old"},
      {link, 0, "", "shoulder,elbow\n1,0\n"},
  };
  for (const auto& c : cases) {
    const Outcome plan = RunKavo(With("plan", {"--start", "1,0", "--goal", "0.5,0", "--csv", c.file}));
    EXPECT_EQ(plan.status, c.status) << c.file;
    EXPECT_THAT(plan.errors, HasSubstr(c.errors));
    EXPECT_THAT(ReadFile(old), StartsWith(c.begin));
    // What was found is printed even if it cannot be written.
    const bool is_found_out_late = c.file == "/dev/full";
    EXPECT_EQ(plan.output.find("path found") == 0, c.status == 0 || is_found_out_late) << c.file;
  }
  EXPECT_THAT(
      RunKavo(With("plan", {"--start", "1,0", "--goal", "0.5,0", "--csv", old, "--json", link})).errors,
      HasSubstr("--json and --csv cannot both be written to "));
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(fs::status(old).permissions(),
            fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_exec);
  EXPECT_EQ(NumTemporaryFiles(), 0u);
}

TEST_F(OutputTest, SignalsEndTheWorkAndWhatIsThereIsKept) {
  // Nothing gets past this one: the shoulder stops short of a half turn on either side.
  const std::string wall = folder_.Write(
      "wall.yaml", std::regex_replace(kPegScene, std::regex("dimensions: \\[0.25\\]"), "dimensions: [1.5]"));
  const std::string path = folder_.Write("path.csv", "1,0\n0.5,0\n1,0.5\n");
  const std::string json = folder_ / "out.json";
  const struct {
    std::vector<std::string> arguments;
    std::string signal;
    int status;
    std::string output;
  } cases[] = {
      {With("plan", {"--scene", wall, "--start", "1,0", "--goal", "-1,0", "--set",
                     "max_iterations=2000000000", "--set", "max_nodes=2000000000", "--json", json}),
       "INT", 130, "no path: stopped"},
      {With("check", {"--path", path, "--step", "1e-7"}), "TERM", 143,
       "STOPPED before the end, nothing found in the first "},
      {With("bench", {"--problems", folder_ / "problems", "--repeat", "100000", "--json", json}), "INT", 130,
       " of 100000 runs; the tables are of these"},
  };
  for (const auto& c : cases) {
    // On a slow machine the signal may come before the work has begun, and then ends the program at once, or
    // before the first of many runs has ended.
    Outcome stopped;
    const auto has_none = [&] {
      return stopped.output.empty() || stopped.output.find("after 0 of ") != std::string::npos;
    };
    for (int seconds = 1; has_none() && seconds <= 64; seconds *= 2) {
      stopped = RunKavo(c.arguments, {}, c.signal, seconds);
      EXPECT_EQ(stopped.status, c.status) << stopped.errors;
    }
    EXPECT_THAT(stopped.output, HasSubstr(c.output));
    EXPECT_EQ(NumTemporaryFiles(), 0u);
  }
  // The last to write it was the benchmark, whose paths can be checked again.
  const auto runs = nlohmann::json::parse(ReadFile(json));
  EXPECT_EQ(runs["stopped"], true);
  ASSERT_FALSE(runs["runs"].empty());
  EXPECT_EQ(runs["runs"][0]["status"], "found");
  EXPECT_EQ(RunKavo(With("check", {"--path", json, "--run", "0"})).status, 0);
  EXPECT_THAT(RunKavo(With("check", {"--path", json})).errors, HasSubstr("say which run is meant"));
}

TEST_F(OutputTest, SelfCollisionIsLookedAtWherePairsAreKnown) {
  const std::string pairs = folder_.Write(
      "pairs.srdf",
      "<robot name='two_link'><disable_collisions link1='post' link2='upper' reason='Adjacent'/></robot>");
  const std::vector<std::string> folded = {"--start", "1,0", "--goal", "1,3"};
  const struct {
    std::vector<std::string> more;
    int status;
    std::string output;
  } cases[] = {
      {{}, 0, "self-collision: not looked at"},
      {{"--srdf", pairs, "--no-self-collision"}, 0, "self-collision: not looked at"},
      {{"--srdf", pairs},
       1,
       "frames 'post' and 'lower' overlap by 58.5 mm\n  if they may touch: disable their"},
      {{"--self-collision"}, 1, "frames 'post' and 'lower' overlap by 58.5 mm"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> arguments = With("plan", folded);
    arguments.insert(arguments.end(), c.more.begin(), c.more.end());
    const Outcome plan = RunKavo(arguments);
    EXPECT_EQ(plan.status, c.status) << plan.errors;
    EXPECT_THAT(plan.output, HasSubstr(c.output));
  }
  EXPECT_THAT(RunKavo({"plan", "--robot", "three_link", "--start", "default", "--goal", "1,0,0"}).output,
              HasSubstr("self-collision: 1 pair of frames looked at"));
}

}  // namespace
}  // namespace kavo::testing
