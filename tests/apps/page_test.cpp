#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "apps/kavo/close_look.h"
#include "apps/kavo/page_template.h"
#include "tests/apps/robots.h"
#include "tests/apps/run_kavo.h"
#include "tests/support/vectors.h"

namespace kavo::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using Json = nlohmann::json;

constexpr char kOpening[] = "<script type=\"application/json\" id=\"document\">";

// Texts that would do something if they were taken for markup.
constexpr char kHostile[] = "</script><img src=x onerror=alert(1)><!--\xe2\x80\xa8&";

class PageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_.Write("arm.urdf", std::regex_replace(kArmUrdf, std::regex("two_link"), "&lt;/title>&amp;amp;"));
    folder_.Write("arm.srdf", std::regex_replace(kArmSrdf, std::regex("two_link"), "&lt;/title>&amp;amp;"));
    folder_.Write("scene.yaml", std::regex_replace(kPegScene, std::regex("id: peg"),
                                                   "id: '" + std::string(kHostile) + "'"));
  }

  std::vector<std::string> Plan(const std::vector<std::string>& more) const {
    std::vector<std::string> arguments = {"plan",
                                          "--robot",
                                          folder_ / "arm.urdf",
                                          "--srdf",
                                          folder_ / "arm.srdf",
                                          "--group",
                                          "arm",
                                          "--scene",
                                          folder_ / "scene.yaml",
                                          "--start",
                                          "left"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  Folder folder_;
};

TEST_F(PageTest, HoldsTheRecordAsDataWhateverTextsAreInIt) {
  const std::string json = folder_ / "plan.json";
  const std::string page = folder_ / "plan.html";
  const Outcome plan = RunKavo(Plan({"--goal", "right", "--json", json, "--html", page, "--trees", "10"}));
  if (command::FindPageTemplate() == nullptr) {
    EXPECT_EQ(plan.status, 2);
    EXPECT_THAT(plan.errors, HasSubstr("--html: this kavo was built without the page that shows results"));
    return;
  }
  ASSERT_EQ(plan.status, 0) << plan.errors;
  const std::string text = ReadFile(page);
  const std::size_t begin = text.find(kOpening);
  ASSERT_NE(begin, std::string::npos);
  const std::string head = text.substr(0, begin);
  EXPECT_THAT(head, HasSubstr("default-src 'none'"));
  EXPECT_THAT(head, HasSubstr("<title>Kavo plan: &lt;/title&gt;&amp;amp;, found</title>"));
  const std::string rest = text.substr(begin + sizeof(kOpening) - 1);
  const std::string document = rest.substr(0, rest.find('<'));
  EXPECT_EQ(rest.compare(document.size(), 9, "</script>"), 0);
  EXPECT_THAT(document, Not(HasSubstr("\xe2\x80\xa8")));
  EXPECT_EQ(Json::parse(document), Json::parse(ReadFile(json)));
  EXPECT_EQ(Json::parse(document)["scene"]["obstacles"][0]["name"], kHostile);

  EXPECT_EQ(RunKavo({"view", json, "-o", folder_ / "view.html"}).status, 0);
  EXPECT_EQ(ReadFile(folder_ / "view.html"), text);
  EXPECT_EQ(RunKavo({"view", "-", "-o", "-"}, ReadFile(json)).output, text);
}

TEST_F(PageTest, RefusesWhatItCannotShow) {
  if (command::FindPageTemplate() == nullptr) {
    GTEST_SKIP() << "built without the page";
  }
  const struct {
    const char* what;
    std::string text;
    const char* error;
  } cases[] = {
      {"a path in CSV", "0,1\n", "expected the JSON that 'kavo plan --json' or 'kavo bench --json' writes"},
      {"another JSON", "{\"path\": [[0, 1]]}", "expected the JSON that 'kavo plan --json'"},
      {"a bottomless pit",
       R"({"format": "kavo/plan", "format_version": 1, "x": )" + std::string(300000, '[') +
           std::string(300000, ']') + "}",
       "expected the JSON that"},
      {"a version to come", "{\"format\": \"kavo/plan\", \"format_version\": 2}",
       "is in version 2 of its format, this kavo shows version 1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const Outcome view = RunKavo({"view", folder_.Write("result.json", c.text), "-o", folder_ / "view.html"});
    EXPECT_EQ(view.status, 2);
    EXPECT_THAT(view.errors, HasSubstr(c.error));
  }
  EXPECT_THAT(RunKavo({"view", folder_ / "none.json", "-o", "x"}).errors, HasSubstr("cannot be read"));
  const std::string same = folder_ / "same";
  EXPECT_THAT(RunKavo(Plan({"--goal", "right", "--html", same, "--csv", same})).errors,
              HasSubstr("--html cannot be written where --json, --csv or --trajectory is"));
}

TEST_F(PageTest, ARecordSaysWhatIsInTheWayAndHowNearThePathComes) {
  const auto record = [&](const std::vector<std::string>& more) {
    std::vector<std::string> arguments = more;
    arguments.insert(arguments.end(), {"--json", "-"});
    return Json::parse(RunKavo(Plan(arguments)).output);
  };
  // Of three goals the first is in the peg, the second in reach of nothing.
  const Json failed = record({"--goal", "into_the_peg", "--target", "2,2,0"});
  ASSERT_EQ(failed["inspections"].size(), 3u);
  EXPECT_EQ(failed["inspections"][0]["what"], "start");
  const Json& goal = failed["inspections"][1];
  EXPECT_EQ(goal["goal"], 0);
  ASSERT_EQ(goal["contacts"].size(), 1u);
  EXPECT_EQ(goal["contacts"][0]["frame"], "lower");
  EXPECT_EQ(goal["contacts"][0]["obstacle"], kHostile);
  EXPECT_EQ(goal["contacts"][0]["obstacle_index"], 0);
  EXPECT_NEAR(goal["contacts"][0]["depth"], 0.35, 1e-12);
  EXPECT_EQ(failed["inspections"][2]["what"], "nearest");
  EXPECT_TRUE(failed["profile"].is_null());
  EXPECT_THAT(failed["explanation"], HasSubstr("reaches 350 mm into"));

  const Json second = record({"--goal", "right", "--then", "goal=into_the_peg"});
  EXPECT_EQ(second["inspections"][1]["goal"], 1);

  const Json found = record({"--goal", "right"});
  const Json& profile = found["profile"];
  EXPECT_EQ(profile["at"].back(), found["path"].size() - 1);
  ASSERT_EQ(profile["clearance"].size(), profile["at"].size());
  const auto clearances = profile["clearance"].get<std::vector<double>>();
  EXPECT_EQ(*std::min_element(clearances.begin(), clearances.end()), found["check"]["clearance"]);
  EXPECT_EQ(profile["nearest"][0][1], kHostile);
  EXPECT_EQ(found["searches"][0]["raw_path"].size(), found["statistics"]["num_raw_waypoints"]);
  EXPECT_TRUE(found["searches"][0]["trees"][0]["nodes"].empty());
  const Json with_trees = record({"--goal", "right", "--trees", "1000"});
  EXPECT_EQ(with_trees["searches"][0]["trees"][1]["nodes"].size(), with_trees["statistics"]["num_nodes"][1]);
}

TEST(ThinnedTest, LeavesRootsAndHangsNodesOnTheNearestOneThatIsLeft) {
  SearchRecord search;
  search.trees.resize(1);
  // Two roots with a chain each, in turns.
  for (std::size_t i = 0; i < 10; ++i) {
    search.trees[0].nodes.push_back(Vec({static_cast<double>(i)}));
    search.trees[0].parents.push_back(i < 2 ? std::nullopt : std::optional(i - 2));
  }
  const formats::SearchDrawing::Tree drawn = command::Thinned(search, 3).trees[0];
  const SearchTree& thin = drawn.tree;
  std::vector<double> left;
  for (const Eigen::VectorXd& q : thin.nodes) {
    left.push_back(q[0]);
  }
  EXPECT_EQ(left, (std::vector<double>{0, 1, 4, 8}));
  using Parents = std::vector<std::optional<std::size_t>>;
  EXPECT_EQ(thin.parents, (Parents{std::nullopt, std::nullopt, 0u, 2u}));
  EXPECT_EQ(drawn.num_nodes, 10u);
  EXPECT_TRUE(command::Thinned(search, 0).trees[0].tree.nodes.empty());
}

}  // namespace
}  // namespace kavo::testing
