#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "kavo/formats/trajectory_file.h"
#include "tests/apps/robots.h"
#include "tests/apps/run_kavo.h"

namespace kavo::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

using Arguments = std::vector<std::string>;

class PlanTrajectoryTest : public ::testing::Test {
 protected:
  // The shoulder by 1 rad, in empty space.
  Outcome Plan(const Arguments& more, const Arguments& query = {"--start", "0,0", "--goal", "1,0"}) const {
    Arguments arguments = {"plan",          "--robot",  folder_.Write("arm.urdf", kArmUrdf),
                           "--coordinates", "shoulder", "elbow"};
    arguments.insert(arguments.end(), query.begin(), query.end());
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunKavo(arguments);
  }

  Folder folder_;
};

TEST_F(PlanTrajectoryTest, TakesLimitsFromRobotFileRequestAndOptions) {
  const std::string limits = folder_.Write(
      "limits.yaml",
      "default_velocity_scaling_factor: 0.5\njoint_limits: {shoulder: {max_acceleration: 4}, other: {}}\n");
  const std::string request =
      folder_.Write("request.yaml",
                    "max_velocity_scaling_factor: 0.5\nmax_acceleration_scaling_factor: 0.25\n"
                    "start_state: {joint_state: {name: [shoulder, elbow], position: [0, 0]}}\n"
                    "goal_constraints: [{joint_constraints: [{joint_name: shoulder, position: 1}]}]\n");
  const Arguments by_options = {"--start", "0,0", "--goal", "1,0"};
  const Arguments by_request = {"--request", request};
  const struct {
    Arguments options;
    Arguments query;
    double duration;
  } cases[] = {
      // The velocity of the URDF, 1, and the default acceleration, 2.
      {{}, by_options, 1.5},
      {{"--max-velocity", "0.5"}, by_options, 2.25},
      {{"--max-acceleration", "1,9"}, by_options, 2.0},
      {{"--velocity-scaling", "0.5"}, by_options, 2.25},
      {{"--acceleration-scaling", "0.5"}, by_options, 2.0},
      {{"--joint-limits", limits}, by_options, 2.125},
      {{"--joint-limits", limits, "--velocity-scaling", "1"}, by_options, 1.25},
      {{}, by_request, 3.0},
      {{"--joint-limits", limits, "--acceleration-scaling", "1"}, by_request, 2.125},
      {{"--limit-jerk"}, by_options, 1.6},
      {{"--max-jerk", "8"}, by_options, 1.75},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.options));
    Arguments options = {"--trajectory", folder_ / "out.csv", "--json", "-"};
    options.insert(options.end(), c.options.begin(), c.options.end());
    const Outcome plan = Plan(options, c.query);
    EXPECT_EQ(plan.status, 0) << plan.errors;
    EXPECT_NEAR(nlohmann::json::parse(plan.output)["trajectory"]["duration"].get<double>(), c.duration, 1e-6);
    EXPECT_NEAR(formats::ReadTrajectory(folder_ / "out.csv").times.back(), c.duration, 1e-6);
  }
}

TEST_F(PlanTrajectoryTest, WritesSamplesInThreeForms) {
  const struct {
    std::string file;
    Arguments options;
    std::string begin;
  } cases[] = {{"out.csv", {}, "time,shoulder,elbow,"},
               {"out.json", {}, "{"},
               {"out.yaml", {}, "joint_names:"},
               {"out", {"--trajectory-format", "csv"}, "time,"},
               {"-", {"--trajectory-format", "yaml"}, "joint_names:"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const std::string file = c.file == "-" ? "-" : folder_ / c.file;
    Arguments options = {"--trajectory", file, "--period", "0.4"};
    options.insert(options.end(), c.options.begin(), c.options.end());
    const Outcome plan = Plan(options);
    EXPECT_EQ(plan.status, 0);
    EXPECT_THAT(plan.errors, HasSubstr("no limit of acceleration is known of 'shoulder', 'elbow'"));
    const std::string text = c.file == "-" ? plan.output : ReadFile(file);
    EXPECT_EQ(text.rfind(c.begin, 0), 0u);
    const formats::TrajectorySamples samples = formats::ParseTrajectory(text, file);
    ASSERT_EQ(samples.times.size(), 5u);
    EXPECT_EQ(samples.times[2], 0.8);
    EXPECT_EQ(samples.positions.back(), Eigen::Vector2d(1.0, 0.0));
    EXPECT_EQ(samples.velocities.back(), Eigen::Vector2d(0.0, 0.0));
    EXPECT_NEAR(samples.velocities[2][0], 1.0, 1e-6);
    EXPECT_NEAR(samples.accelerations[1][0], 2.0, 1e-6);
    if (c.file != "-") {
      EXPECT_THAT(plan.output,
                  AllOf(HasSubstr("\ntrajectory: 1.5 s, 5 samples; 0 corners blended within 0.05, 0 stops; "
                                  "proven free\n"),
                        HasSubstr("between samples a controller leaves it by no more than 0.")));
    }
  }
}

TEST_F(PlanTrajectoryTest, BlendsCornersOrStopsAtThem) {
  const Arguments query = {"--scene", folder_.Write("peg.yaml", kPegScene), "--start", "1,0", "--goal",
                           "-1,0"};
  const auto record = [&](const std::string& deviation) {
    const Outcome plan = Plan(
        {"--trajectory", folder_ / "out.csv", "--blend", deviation, "--json", folder_ / "out.json"}, query);
    EXPECT_EQ(plan.status, 0);
    return nlohmann::json::parse(ReadFile(folder_ / "out.json"))["trajectory"];
  };
  const auto blended = record("0.1");
  const auto stopping = record("0");
  EXPECT_GT(blended["num_blends"], 0);
  EXPECT_EQ(blended["verdict"], "proven free");
  EXPECT_EQ(stopping["num_blends"], 0);
  EXPECT_EQ(stopping["num_stops"], stopping["waypoint_times"].size() - 2);
  EXPECT_LT(blended["duration"], stopping["duration"]);
}

TEST_F(PlanTrajectoryTest, SaysWhatCannotBeUsed) {
  const std::string file = folder_ / "out.csv";
  const struct {
    Arguments options;
    std::string message;
  } cases[] = {
      {{"--trajectory", "out.txt"},
       "expected a name that ends in .csv, .json or .yaml, or --trajectory-format"},
      {{"--trajectory", file, "--csv", file}, "--trajectory cannot be written where --json or --csv is"},
      {{"--trajectory", file, "--max-jerk", "1,2,3"},
       "--max-jerk 1,2,3: expected one number, or 2 with commas"},
      {{"--trajectory", file, "--period", "1e-7"}, "gives more than a million samples of 1.5 s"},
      {{"--trajectory", file, "--joint-limits",
        folder_.Write("limits.yaml", "joint_limits: {elbow: {max_position: 1}}")},
       "to go on without: --ignore position_limits"},
      {{"--blend", "0.1"}, "--blend requires --trajectory"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.options));
    const Outcome plan = Plan(c.options);
    EXPECT_EQ(plan.status, 2);
    EXPECT_THAT(plan.errors, HasSubstr(c.message));
    EXPECT_THAT(plan.output, Not(HasSubstr("trajectory: 1")));
  }
}

}  // namespace
}  // namespace kavo::testing
