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

// The velocities of both joints are limited to 1 by the URDF, that of the shoulder to less by a file, and of
// its acceleration only the file knows.
TEST_F(CheckTest, LooksAtTrajectories) {
  const std::string limits =
      folder_.Write("limits.yaml", "joint_limits: {shoulder: {max_velocity: 0.8, max_acceleration: 4}}\n");
  const std::string message =
      "joint_names: [elbow, shoulder]\npoints:\n"
      "- {positions: [0, 1], velocities: [0, 0], time_from_start: {sec: 0, nanosec: 0}}\n"
      "- {positions: [0, 0.5], velocities: [0, 0], time_from_start: {sec: 1, nanosec: 0}}\n";
  const struct {
    std::string text;
    bool has_limits;
    int status;
    std::string found;
  } rows[] = {
      {message, false, 0, "2 samples, 1 s, cubic between them: proven free at every configuration"},
      {message, false, 0, "  smallest clearance: 640 mm between frame 'lower' and 'peg', at 1 s\n"},
      {message, true, 0,
       "  velocity between samples: 93.75 % of its limit, joint 'shoulder' with 0.75 of 0.8 at 0.5 s\n"
       "  acceleration between samples: 75 % of its limit, joint 'shoulder' with 3 of 4 at 0 s\n"
       "  acceleration: no limit is known of 1 of 2 joints\n"},
      {"time,shoulder,elbow\n0,1,0\n0.6,0.5,0\n", false, 0, "linear between them: proven free"},
      {"time,shoulder,elbow\n0,1,0\n0.6,0.5,0\n", true, 1, "NOT within limits of velocity; proven free"},
      {"time,shoulder,elbow\n3,1,0\n", true, 0, "1 samples, 0 us, linear between them: proven free"},
      // It swings through the peg, which no straight line between the samples would.
      {"time,shoulder,elbow,shoulder/velocity,elbow/velocity\n0,0.5,0,-3,0\n1,0.5,0,3,0\n", false, 1,
       "NOT within limits of velocity; NOT proven free: touches\n"},
      {"time,shoulder,elbow,shoulder/velocity,elbow/velocity\n0,0.5,0,-0.9,0\n2,0.5,0,0.9,0\n", false, 1,
       "cubic between them: NOT proven free: touches\n"},
      {"time,shoulder,elbow,shoulder/velocity,elbow/velocity,shoulder/acceleration,elbow/acceleration\n"
       "0,1,0,0,0,4.1,0\n5,1,0,0,0,0,0\n",
       true, 1, "quintic between them: NOT within limits of acceleration; proven free"},
      {"time,shoulder,elbow\n0,2.9,0\n1,3.1,0\n", false, 1,
       "beyond limits; nothing else was looked at\n  bad: at 1 s, 3.1,0"},
      {"time,shoulder,elbow,shoulder/velocity,elbow/velocity\n0,2.9,0,1,0\n1,2.9,0,-1,0\n", false, 1,
       "bad: at 0.5 s, 3.15,0\n    joint 'shoulder' is at 3.15, outside its limits"},
      {"time,shoulder,elbow\n0,1,0\n1,1,0\n1,0.9,0\n", false, 1,
       "NOT in order: sample 3 is at 1 s, the one before at 1 s; nothing else was looked at"},
      {"time,shoulder\n0,1\n", false, 2, ""},
  };
  for (const auto& row : rows) {
    std::vector<std::string> arguments = {"--trajectory", folder_.Write("trajectory", row.text)};
    if (row.has_limits) {
      arguments.insert(arguments.end(), {"--joint-limits", limits});
    }
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.status, row.status) << row.text << outcome.errors;
    EXPECT_THAT(outcome.output, HasSubstr(row.found)) << row.text;
  }
  EXPECT_THAT(Run({}).errors, HasSubstr("expected one of --path and --trajectory"));
}

}  // namespace
}  // namespace kavo::testing
