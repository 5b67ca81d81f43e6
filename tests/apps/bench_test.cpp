#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/apps/robots.h"
#include "tests/apps/run_kavo.h"

namespace kavo::testing {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Json = nlohmann::json;

// A goal inside the peg.
constexpr char kHopelessRequest[] = R"(start_state: {joint_state: {name: [shoulder], position: [1]}}
goal_constraints: [{joint_constraints: [{joint_name: shoulder, position: 0}]}]
)";

class BenchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_.Write("problems/peg/scene0001.yaml", kPegScene);
    folder_.Write("problems/peg/request0001.yaml", kPegRequest);
    folder_.Write("problems/peg/scene0002.yaml", kPegScene);
    folder_.Write("problems/peg/request0002.yaml", kHopelessRequest);
    folder_.Write("problems/other/scene1.yaml", kPegScene);
    folder_.Write("problems/other/request1.yaml", kPegRequest);
    folder_.Write("problems/notes/readme.txt", "no problem");
  }

  Outcome Bench(const std::vector<std::string>& more, const std::string& directory = "problems") const {
    std::vector<std::string> arguments = {"bench",
                                          "--robot",
                                          folder_.Write("arm.urdf", kArmUrdf),
                                          "--coordinates",
                                          "shoulder,elbow",
                                          "--problems",
                                          folder_ / directory};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunKavo(arguments);
  }

  Json RunsWithoutTimes(const std::vector<std::string>& more) const {
    const Outcome bench = Bench(more);
    EXPECT_EQ(bench.status, 0) << bench.errors;
    Json json = Json::parse(bench.output);
    json.erase("arguments");
    for (Json& run : json["runs"]) {
      EXPECT_EQ(run.erase("search_seconds"), 1u);
      EXPECT_EQ(run.erase("shortening_seconds"), 1u);
    }
    return json;
  }

  Folder folder_;
};

TEST_F(BenchTest, GivesTheSameAnswersForAnyNumberOfJobs) {
  const Json one = RunsWithoutTimes({"--repeat", "3", "--json", "-"});
  EXPECT_EQ(one, RunsWithoutTimes({"--repeat", "3", "--json", "-", "--jobs", "2"}));
  ASSERT_EQ(one["runs"].size(), 9u);
  EXPECT_EQ(one["settings"]["seed"], 1234);
  // In the order of families, problems and repeats.
  EXPECT_EQ(one["problems"][0]["family"], "other");
  EXPECT_EQ(one["runs"][2]["seed"], 1236);
  EXPECT_EQ(one["problems"][one["runs"][3]["problem"].get<std::size_t>()]["name"], "0001");
  EXPECT_TRUE(one["robot_model"].is_null() && one["problems"][0]["scene"].is_null());
  EXPECT_EQ(one["runs"][6]["status"], "invalid target");
  EXPECT_THAT(one["runs"][6]["fault"].get<std::string>(),
              HasSubstr("frame 'lower' reaches 350 mm into 'peg'"));
  // A repeat is a fresh planner with the next seed, and problems do not depend on their neighbours.
  const Json next = RunsWithoutTimes({"--family", "peg", "--set", "seed=1236", "--json", "-"});
  ASSERT_EQ(next["runs"].size(), 2u);
  Json same = one["runs"][5];
  same.update({{"problem", 0}, {"repeat", 0}});
  EXPECT_EQ(next["runs"][0], same);
}

TEST_F(BenchTest, IsTheSameInPartsThatAreMerged) {
  const std::string whole = folder_ / "whole.json";
  const std::vector<std::string> options = {"--set",     "step_size=0.3",      "--repeat", "3",
                                            "--compare", "rrt_connect,bi_rrt", "--json"};
  const auto bench = [&](std::vector<std::string> more) {
    more.insert(more.begin(), options.begin(), options.end());
    return Bench(more);
  };
  const Outcome at_once = bench({whole});
  EXPECT_THAT(at_once.output, HasSubstr("paths of sampled segments are bad"));
  // Tables of what a file holds are those of the runs themselves.
  EXPECT_EQ(RunKavo({"merge", whole}).output, at_once.output);

  std::vector<std::string> merge = {"merge"};
  for (const char* const shard : {"2/4", "1/4", "4/4", "3/4"}) {
    merge.push_back(folder_ / (std::string(shard, 1) + ".json"));
    EXPECT_THAT(bench({merge.back(), "--shard", shard}).output, IsEmpty());
  }
  const auto read = [](const std::string& text) {
    Json json = Json::parse(text);
    json.erase("arguments");
    for (Json& run : json["runs"]) {
      run.erase("search_seconds");
      run.erase("shortening_seconds");
    }
    return json;
  };
  std::vector<std::string> to_json = merge;
  to_json.insert(to_json.end(), {"--json", "-"});
  EXPECT_EQ(read(RunKavo(to_json).output), read(ReadFile(whole)));

  const std::vector<std::string> some = {"merge", merge[1], merge[2]};
  EXPECT_THAT(RunKavo(some).output, HasSubstr("STOPPED after 10 of 18 runs"));
  const std::string other = folder_ / "other.json";
  EXPECT_EQ(bench({other, "--shard", "1/4", "--family", "peg"}).status, 0);
  const std::string broken =
      folder_.Write("broken.json", R"({"format": "kavo/bench", "format_version": 1, "runs": []})");
  const struct {
    std::vector<std::string> parts;
    std::string error;
  } cases[] = {{{merge[1], merge[2], merge[1]}, "expected each run once"},
               {{merge[1], other}, "other.json: is no part of the benchmark of"},
               {{merge[1], broken}, "broken.json: is not as 'kavo bench --json' writes it"}};
  for (const auto& c : cases) {
    std::vector<std::string> arguments = {"merge"};
    arguments.insert(arguments.end(), c.parts.begin(), c.parts.end());
    const Outcome refused = RunKavo(arguments);
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.errors, HasSubstr(c.error));
  }
}

TEST_F(BenchTest, KeepsWhatItTakesToDrawTheRuns) {
  const Json json = RunsWithoutTimes({"--family", "peg", "--keep-plans", "--json", "-"});
  EXPECT_EQ(json["robot_model"]["frames"].size(), 4u);
  for (const Json& problem : json["problems"]) {
    EXPECT_EQ(problem["scene"]["obstacles"][0]["name"], "peg");
    EXPECT_TRUE(problem["robot_model"].is_null());
    EXPECT_EQ(problem["start"][0], 1.0);
    EXPECT_EQ(problem["stages"][0]["goals"][0].size(), 2u);
  }
  EXPECT_THAT(Bench({"--keep-plans"}).errors, HasSubstr("--keep-plans is for --html and --json"));
}

TEST_F(BenchTest, TabulatesFamilies) {
  // With such a step, the path of seed 1234 cuts through the peg.
  const std::vector<std::string> options = {"--set", "step_size=0.3", "--json", folder_ / "out.json"};
  const auto with = [&options](const std::string& option, const std::string& value) {
    std::vector<std::string> all = options;
    all.insert(all.end(), {option, value});
    return all;
  };
  const Outcome bench = Bench(with("--planner", "rrt_connect"));
  EXPECT_EQ(bench.status, 0);
  const auto row = [&](const std::string& family) {
    const std::size_t begin = bench.output.find("\n" + family + " ") + 1;
    std::istringstream words(bench.output.substr(begin, bench.output.find('\n', begin) - begin));
    return std::vector<std::string>(std::istream_iterator<std::string>(words), {});
  };
  // Problems, runs, invalid, solved and its share, bad and unproven paths.
  const auto starts_with = [&](const std::string& family, const std::vector<std::string>& cells) {
    const std::vector<std::string> found = row(family);
    ASSERT_GE(found.size(), 12u) << bench.output;
    EXPECT_EQ(std::vector<std::string>(found.begin() + 1, found.begin() + 9), cells);
  };
  starts_with("other", {"1", "1", "0", "1", "100", "%", "1", "1"});
  starts_with("peg", {"2", "2", "1", "1", "100", "%", "1", "1"});
  starts_with("all", {"3", "3", "1", "2", "100", "%", "2", "2"});
  EXPECT_THAT(bench.output,
              AllOf(HasSubstr("2 found paths of sampled segments are bad"),
                    HasSubstr("  2  a checked segment, between two of the points that were checked")));
  EXPECT_THAT(bench.errors, Not(HasSubstr("[")));

  const Json json = Json::parse(ReadFile(folder_ / "out.json"));
  EXPECT_EQ(json["runs"][0]["first_bad_edge"], "between");
  EXPECT_GT(json["runs"][0]["depth"], 0.0);

  // Side by side, each run is the one that it would be alone.
  const Outcome compared = Bench(with("--compare", "rrt_connect,bi_rrt"));
  EXPECT_EQ(compared.status, 0) << compared.errors;
  const Json both = Json::parse(ReadFile(folder_ / "out.json"));
  ASSERT_EQ(both["runs"].size(), 6u);
  EXPECT_EQ(both["runs"][0]["path"], json["runs"][0]["path"]);
  EXPECT_EQ(both["runs"][1]["planner"], "bi_rrt");
  EXPECT_EQ(both["runs"][1]["proof"], "proven free");
  EXPECT_EQ(both["runs"][1]["check_step"], 0.001);
  EXPECT_THAT(compared.output,
              AllOf(ContainsRegex("rrt_connect +3 +3 +1 +2 +100 % +2 +2 "),
                    ContainsRegex("bi_rrt +3 +3 +1 +2 +100 % +0 +0 "),
                    ContainsRegex("\n  times the first +[0-9.e-]+ +[0-9.e-]+ +[0-9.e-]+\n")));
}

TEST_F(BenchTest, TakesOneFamilyAndRefusesWhatIsNoSet) {
  const Outcome one = Bench({}, "problems/other");
  EXPECT_EQ(one.status, 0);
  EXPECT_THAT(one.output, AllOf(HasSubstr("\nother "), Not(HasSubstr("\nall "))));
  const struct {
    std::vector<std::string> more;
    std::string directory;
    std::string error;
  } cases[] = {
      {{}, "problems/notes", "expected files scene<name>.yaml"},
      {{}, "nowhere", "nowhere: "},
      {{"--family", "shelf"}, "problems", "--family shelf: expected one of other, peg"},
      {{"--repeat", "0"}, "problems", "--repeat"},
      {{"--compare", "bi_rrt,rrt"}, "problems", "--compare rrt: expected one of 'bi_rrt', 'rrt_connect'"},
      {{"--set", "seed=2147483647"}, "problems", "no room for the repeats"},
      {{"--shard", "3/2", "--json", "-"}, "problems", "--shard 3/2: expected"},
      {{"--shard", "1/2"}, "problems", "--shard is for --json"},
      {{"--json", folder_ / "none/out.json"}, "problems", "out.json: cannot be written"},
  };
  for (const auto& c : cases) {
    const Outcome refused = Bench(c.more, c.directory);
    EXPECT_EQ(refused.status, 2) << c.error;
    EXPECT_THAT(refused.output, IsEmpty());
    EXPECT_THAT(refused.errors, HasSubstr(c.error));
  }
}

}  // namespace
}  // namespace kavo::testing
