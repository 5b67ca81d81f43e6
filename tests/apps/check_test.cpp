#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/apps/robots.h"
#include "tests/apps/run_kavo.h"

namespace kavo::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class CheckTest : public ::testing::Test {
 protected:
  Outcome Run(std::vector<std::string> more, const std::string& input = {}) const {
    more.insert(more.begin(), {"check", "--robot", folder_.Write("arm.urdf", kArmUrdf), "--coordinates",
                               "shoulder,elbow", "--scene", folder_.Write("peg.yaml", kPegScene)});
    return RunKavo(more, input);
  }
  Outcome Check(const std::string& path, const std::string& step = "0.25",
                const std::string& input = {}) const {
    return Run({"--path", path, "--step", step}, input);
  }
  Outcome Prove(const std::string& path) const { return Run({"--path", path, "--prove"}); }

  Folder folder_;
};

// With the elbow stretched, the sphere at the end is on a circle of radius 2 about the shoulder, and the peg
// on it at angle 0.
TEST_F(CheckTest, SaysWhatIsWrongAndHowNearItComes) {
  const std::string good = folder_.Write("good.csv", "1,0\n0.5,0\n");
  const Outcome valid = Check(good);
  EXPECT_EQ(valid.status, 0);
  // 4 sin(0.25) m between the centres at 0.5, less 0.25 m and 0.1 m.
  EXPECT_EQ(valid.output,
            "2 waypoints, length 0.5: valid at all 3 configurations, 0.25 apart or nearer\n"
            "  self-collision: not looked at\n"
            "  smallest clearance: 640 mm between frame 'lower' and 'peg', on segment 1 of 1 at 100 %\n"
            "  nearest to a limit: joint 'shoulder', 2 from it, on segment 1 of 1 at 0 %\n");

  const std::string bad = folder_.Write("bad.csv", "1,0\n0.5,0\n-0.5,0\n");
  const Outcome hit = Check(bad);
  EXPECT_EQ(hit.status, 1);
  EXPECT_THAT(
      hit.output,
      AllOf(HasSubstr("3 waypoints, length 1.5: NOT valid at 1 of 7 configurations"),
            HasSubstr(
                "first bad: on segment 2 of 2 at 50 %, 0,0\n    frame 'lower' reaches 350 mm into 'peg'")));
  // Coarse enough to jump over it, which a proof does not.
  EXPECT_EQ(Check(bad, "0.9").status, 1);
  const std::string jump = folder_.Write("jump.csv", "0.5,0\n-0.5,0\n");
  EXPECT_EQ(Check(jump, "1").status, 0);
  const Outcome refused = Prove(jump);
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.output,
              AllOf(HasSubstr("length 1: NOT proven free: touches\n"),
                    HasSubstr("bad: on segment 1 of 1 at 50 %, 0,0\n    frame 'lower' reaches 350 mm into")));
  EXPECT_THAT(
      Prove(good).output,
      AllOf(HasSubstr("proven free at every configuration, sphere by sphere; clearances within 0.1 mm\n"
                      "  self-collision: not looked at\n"
                      "  smallest clearance: 640 mm between frame 'lower' and 'peg'"),
            HasSubstr("  nearest to a limit: joint 'shoulder', 2 from it")));

  const Outcome limit = Check(folder_.Write("limit.csv", "0.5,0\n0.5,3.5\n"), "10");
  EXPECT_EQ(limit.status, 1);
  EXPECT_THAT(limit.output, HasSubstr("joint 'elbow' is at 3.5, outside its limits -3 and 3"));
}

TEST_F(CheckTest, TakesNamedJointsInAnyOrderAndStandardInput) {
  EXPECT_EQ(Check(folder_.Write("a.csv", "elbow,shoulder\n0,1\n0,0.5\n")).status, 0);
  EXPECT_EQ(Check(folder_.Write("b.csv", "elbow,shoulder\n1,0\n2,0\n")).status, 0);
  EXPECT_EQ(Check(folder_.Write("c.csv", "elbow,shoulder\n0,0\n0,0.5\n")).status, 1);
  EXPECT_EQ(Check("-", "0.25", "1,0\n0.5,0\n").status, 0);
  for (const char* text :
       {"elbow,wrist\n0,1\n", "1,0,0\n", "elbow,elbow\n0,1\n", "", "shoulder,elbow\n1,zero\n"}) {
    const Outcome refused = Check("-", "0.25", text);
    EXPECT_EQ(refused.status, 2) << text;
    EXPECT_THAT(refused.output, IsEmpty());
  }
}

}  // namespace
}  // namespace kavo::testing
