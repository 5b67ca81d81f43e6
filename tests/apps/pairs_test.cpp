#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/builtin_robots.h"
#include "kavo/formats/robot_file.h"
#include "kavo/kinematics/interface/frame_pairs.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "tests/apps/robots.h"
#include "tests/apps/run_kavo.h"

namespace kavo::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Pairs = std::set<std::pair<std::string, std::string>>;

Pairs PairsOf(const formats::LoadedRobot& robot) {
  const auto& pairs = dynamic_cast<const RobotDescriptionInternal&>(*robot.description).collision().pairs;
  return {pairs.begin(), pairs.end()};
}

TEST(PairsTest, OfTheBuiltInRobotsAreThoseThatMayTouch) {
  for (const char* const name : {"franka", "three_link"}) {
    const formats::LoadedRobot robot = command::LoadBuiltin(name, true);
    Pairs may_touch;
    for (const FramePair& pair : ClassifyFramePairs(*robot.description)) {
      if (pair.kind == FramePair::Kind::kSometimes || pair.kind == FramePair::Kind::kNotSeen) {
        may_touch.insert({pair.frames[0], pair.frames[1]});
      }
    }
    EXPECT_EQ(PairsOf(robot), may_touch) << name;
  }
}

TEST(PairsTest, WritesWhatPlanningReads) {
  const Folder folder;
  const std::string urdf = folder.Write("arm.urdf", kArmUrdf);
  const std::string user =
      folder.Write("user.srdf",
                   "<robot name='two_link'><!-- mine --><group name='all'><joint name='elbow'/></group>"
                   "<disable_collisions link1='lower' link2='post' reason='User'/>"
                   "<disable_collisions link1='upper' link2='gripper' reason='Never'/></robot>");
  const std::string output = folder / "out.srdf";
  const auto pairs_after = [&](const std::vector<std::string>& more) {
    std::vector<std::string> arguments = {"pairs", urdf, "-o", output};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome pairs = RunKavo(arguments);
    EXPECT_EQ(pairs.status, 0) << pairs.errors;
    EXPECT_THAT(pairs.output, HasSubstr("looked at for contact"));
    formats::RobotFileOptions options;
    options.srdf_file = output;
    options.self_collision = true;
    return PairsOf(formats::LoadRobot(urdf, options));
  };
  // The outer end of the arm folds back to the post.
  EXPECT_EQ(pairs_after({}), (Pairs{{"post", "lower"}}));
  EXPECT_EQ(pairs_after({"--srdf", user}), Pairs{});
  EXPECT_THAT(ReadFile(output),
              AllOf(HasSubstr("<!-- mine -->"), HasSubstr("<group name=\"all\">"),
                    HasSubstr("link1=\"lower\" link2=\"post\" reason=\"User\""), Not(HasSubstr("gripper"))));
}

}  // namespace
}  // namespace kavo::testing
