#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <set>

#include "apps/kavo/parameters.h"
#include "apps/kavo/reach.h"
#include "kavo/world/world.h"
#include "tests/apps/robots.h"
#include "tests/apps/run_kavo.h"
#include "tests/support/log_capture.h"

namespace kavo::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(InfoTest, ShowsTheRobot) {
  const Folder folder;
  const Outcome info = RunKavo({"info", "--robot", folder.Write("arm.urdf", kArmUrdf), "--srdf",
                                folder.Write("arm.srdf", kArmSrdf), "--self-collision", "--at", "0,0,0.5"});
  EXPECT_EQ(info.status, 0);
  EXPECT_THAT(
      info.output,
      AllOf(HasSubstr("robot 'two_link'"), HasSubstr("\nelbow      revolute     -3      3        0\n"),
            HasSubstr("\nslide     prismatic      0    0.5     0.25\n"),
            HasSubstr("\ngripper        -            -    -  2.5  0  0   0   0   0   1\n"),
            HasSubstr("collision spheres: 3, together 2.2 x 0.2 x 0.2 m at that configuration\n"),
            HasSubstr("must not touch each other: 1\n  post lower\n"),
            // 1 m to the elbow, 1 m to the slide, and 0.5 m of that.
            HasSubstr("frame 'gripper', from the first joint at 0,0,0: no more than 2.5 m; ")));
}

TEST(InfoTest, ReachIsABound) {
  const auto robot = LoadFrankaRobotDescription();
  const command::Reach reach = command::FindReach(*robot, "tool");
  EXPECT_EQ(reach.center, Eigen::Vector3d(0.0, 0.0, 0.333));
  const double sampled = command::SampleReach(*robot, "tool", reach.center);
  EXPECT_LE(sampled, reach.distance);
  EXPECT_GT(sampled, 0.8 * reach.distance);
  // The base does not move.
  EXPECT_EQ(command::FindReach(*robot, robot->kinematics()->frameNames().front()).distance, 0.0);
}

TEST(InfoTest, ListsEveryParameterOfThePlannerWithAValueThatItTakes) {
  std::set<std::string> documented;
  const std::string reference = ReadFile(KAVO_SOURCE_DIR "/kavo/motion_planning/interface/motion_planner.h");
  const std::regex row(R"(//! \| ([a-z_/]+) \|)");
  for (std::sregex_iterator i(reference.begin(), reference.end(), row), end; i != end; ++i) {
    documented.insert((*i)[1]);
  }
  documented.erase("name");
  std::set<std::string> listed;
  const std::string output = RunKavo({"info", "--params", "--robot", "three_link"}).output;

  const LogCapture log;
  const std::shared_ptr<RobotDescription> robot = LoadThreeLinkArmRobotDescription();
  const planning::MotionPlannerConfig defaults = command::CommandDefaults(robot);
  planning::MotionPlannerConfig same = defaults;
  for (const planning::Parameter& parameter : planning::Parameters()) {
    SCOPED_TRACE(parameter.name);
    listed.insert(parameter.name);
    const std::string text = command::ToText(parameter.value(defaults));
    EXPECT_THAT(output, HasSubstr(std::string(parameter.name) + "\n  " + command::TypeName(parameter.type) +
                                  "; default: " + text + "\n"));
    EXPECT_EQ(command::ParseSetting(parameter, text), parameter.value(defaults));
    EXPECT_EQ(SetParameter(parameter.name, parameter.value(defaults), *robot, same), std::nullopt);
  }
  EXPECT_EQ(listed, documented);
  EXPECT_EQ(command::ToText(planning::Parameters()[6].value(defaults)), "-1:1,-1:1,-1:1");
}

TEST(CommandLineTest, HelpsAndRefuses) {
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string output;
    std::string errors;
  } cases[] = {
      {{"--help"}, 0, "'kavo COMMAND --help' explains a command", ""},
      {{"--version"}, 0, "kavo ", ""},
      {{}, 2, "", "A command is required"},
      {{"fly"}, 2, "", "fly"},
      {{"check", "--robot", "franka"}, 2, "", "expected one of --path and --trajectory"},
      {{"info", "--robot", "nobody.urdf"}, 2, "", "nobody.urdf: "},
  };
  for (const auto& c : cases) {
    const Outcome outcome = RunKavo(c.arguments);
    EXPECT_EQ(outcome.status, c.status) << ::testing::PrintToString(c.arguments);
    EXPECT_THAT(outcome.output,
                c.output.empty() ? ::testing::Matcher<std::string>(IsEmpty()) : HasSubstr(c.output));
    EXPECT_THAT(outcome.errors,
                c.errors.empty() ? ::testing::Matcher<std::string>(IsEmpty()) : HasSubstr(c.errors));
  }
}

TEST(CommandLineTest, WritesItsOwnManualPageAndCompletion) {
  const std::string page = RunKavo({"--generate", "man"}).output;
  EXPECT_THAT(page, AllOf(HasSubstr(".SH \"kavo bench\""), HasSubstr(".B \\-r, \\-\\-robot ROBOT\n"),
                          HasSubstr("\\-\\-verify [N]")));

  const Folder folder;
  const std::string script = folder.Write("completion", RunKavo({"--generate", "bash"}).output);
  const auto complete = [&](const std::string& words, int current) {
    const std::string line = "bash -c 'source " + script + "; COMP_WORDS=(" + words +
                             "); COMP_CWORD=" + std::to_string(current) +
                             "; _kavo; echo ${COMPREPLY[@]}' > " + (folder / "out");
    EXPECT_EQ(std::system(line.c_str()), 0);
    return ReadFile(folder / "out");
  };
  EXPECT_EQ(complete("kavo b", 1), "bench\n");
  EXPECT_EQ(complete("kavo check --pat", 2), "--path\n");
  EXPECT_EQ(complete("kavo info --robot fra", 3), "franka\n");
  EXPECT_EQ(complete("kavo plan --scene " + script.substr(0, script.size() - 3), 3), script + "\n");
}

}  // namespace
}  // namespace kavo::testing
