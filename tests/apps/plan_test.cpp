#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "examples/shelf.h"
#include "kavo/formats/scene.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "tests/apps/robots.h"
#include "tests/apps/run_kavo.h"
#include "tests/support/log_capture.h"

namespace kavo::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

using Arguments = std::vector<std::string>;

// The arm and the peg, in files.
class PlanTest : public ::testing::Test {
 protected:
  Arguments Plan(const Arguments& more) const {
    Arguments arguments = {"plan", "--robot", folder_ / "arm.urdf", "--srdf", folder_ / "arm.srdf", "--group",
                           "arm",  "--scene", folder_ / "peg.yaml"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  void SetUp() override {
    folder_.Write("arm.urdf", kArmUrdf);
    folder_.Write("arm.srdf", kArmSrdf);
    folder_.Write("peg.yaml", kPegScene);
    folder_.Write("request.yaml", kPegRequest);
  }

  Folder folder_;
};

TEST_F(PlanTest, AnswersARequestAndWritesFiles) {
  const Outcome plan =
      RunKavo(Plan({"--request", folder_ / "request.yaml", "--json", folder_ / "out.json", "--csv",
                    folder_ / "out.csv", "--config", folder_.Write("planner.yaml", "seed: 7\n")}));
  EXPECT_EQ(plan.status, 0);
  EXPECT_THAT(plan.output,
              AllOf(StartsWith("path found: "), HasSubstr("\n  shoulder,elbow\n  1,0\n"),
                    HasSubstr("\n  -1,0\n"), HasSubstr("seed 7"), HasSubstr("check: proven free at every "),
                    HasSubstr("between frame 'lower' and 'peg'")));
  EXPECT_THAT(plan.errors, AllOf(HasSubstr("planner.yaml: not named, and so at their defaults: step_size, "),
                                 HasSubstr("planner.yaml: names no planner, and so rrt_connect plans"),
                                 Not(HasSubstr("TESK"))));

  const auto json = nlohmann::json::parse(ReadFile(folder_ / "out.json"));
  EXPECT_EQ(json["robot"], "two_link");
  EXPECT_EQ(json["files"][3]["role"], "request");
  EXPECT_EQ(json["files"][3]["sha256"].get<std::string>().size(), 64u);
  EXPECT_EQ(json["target"], nlohmann::json({-1.0, 0.0}));
  EXPECT_EQ(json["settings"]["step_size"], 0.1);
  EXPECT_EQ(json["settings"]["task_space_frame_name"], "gripper");
  EXPECT_EQ(json["seed"], 7);
  EXPECT_EQ(json["check"]["passed"], true);
  EXPECT_EQ(json["check"]["tolerance"], 1e-4);
  EXPECT_NEAR(json["check"]["clearance"].get<double>(), 0.0010, 1e-4);
  EXPECT_EQ(json["path"].front(), nlohmann::json({1.0, 0.0}));

  // With the arguments that the file states, the same comes of it.
  EXPECT_EQ(RunKavo(json["arguments"].get<Arguments>()).status, 0);
  EXPECT_EQ(nlohmann::json::parse(ReadFile(folder_ / "out.json"))["path"], json["path"]);

  // The path is the library's own for these settings, and passes the check of `kavo check`.
  const Outcome quiet = RunKavo(Plan({"--start", "left", "--goal", "right", "--set", "seed=7", "--set",
                                      "planner=bi_rrt", "--planner", "rrt_connect", "--quiet"}));
  EXPECT_EQ(quiet.output, ReadFile(folder_ / "out.csv"));
  EXPECT_THAT(quiet.errors, IsEmpty());
  for (const char* file : {"out.csv", "out.json"}) {
    Arguments check = Plan({"--path", folder_ / file});
    check.front() = "check";
    EXPECT_EQ(RunKavo(check).status, 0) << file;
  }
}

TEST(PlanBuiltinTest, GivesThePathOfTheLibrary) {
  const Folder folder;
  const LogCapture log;
  const std::shared_ptr<RobotDescription> robot = LoadThreeLinkArmRobotDescription();
  Arguments arguments = {"plan",   "--robot",   "three_link", "--start", "-1.5,0,0",
                         "--goal", "1.5,0.5,0", "--json",     "-"};
  // The command's default, then the other one.
  for (const std::string planner_name : {"bi_rrt", "rrt_connect"}) {
    const Outcome plan = RunKavo(arguments);
    arguments.insert(arguments.end(), {"--planner", "rrt_connect"});
    EXPECT_EQ(plan.status, 0);
    EXPECT_THAT(plan.errors, IsEmpty());
    const auto planner = CreateMotionPlanner(robot, World().view());
    planner->setParam("planner", planner_name);
    const auto results =
        planner->planToCSpaceTarget(Eigen::Vector3d(-1.5, 0.0, 0.0), Eigen::Vector3d(1.5, 0.5, 0.0), true);
    const auto json = nlohmann::json::parse(plan.output);
    EXPECT_EQ(json["statistics"]["planner"], planner_name);
    ASSERT_EQ(json["interpolated_path"].size(), results.interpolated_path.size());
    for (std::size_t i = 0; i < results.interpolated_path.size(); ++i) {
      const Eigen::VectorXd& q = results.interpolated_path[i];
      EXPECT_EQ(json["interpolated_path"][i], nlohmann::json({q[0], q[1], q[2]}));
    }
  }
}

TEST_F(PlanTest, SaysWhyThereIsNoPath) {
  const std::string few = "max_iterations=1";
  const struct {
    Arguments query;
    Arguments output;
  } cases[] = {
      {{"--start", "left", "--goal", "into_the_peg"},
       {"the goal is not valid",
        "frame 'lower' reaches 350 mm into 'peg' (its sphere 1 of radius 0.1 m at 2,0,0)"}},
      {{"--start", "too_far", "--goal", "left"},
       {"the start is not valid", "joint 'elbow' is at 3.25, outside its limits -3 and 3"}},
      {{"--start", "left", "--goal", "right", "--set", few},
       {"no path: iterations spent\n  the setting 'max_iterations' allows no more\n  bi_rrt for ",
        ": 1 samples, ", " motions checked by "}},
      {{"--start", "left", "--goal", "right", "--set", few, "--planner", "rrt_connect"},
       {"no path: iterations spent\n", "\n  rrt_connect for ", ": 1 extensions, ", "samples drawn, ",
        " of them rejected"}},
      {{"--start", "left", "--goal", "0.17522458210478567,0", "--verify"},
       {"the goal is valid, but nearer to a contact than bi_rrt can prove a motion",
        "frame 'lower' is 0.001 mm from 'peg' (its sphere 1 of radius 0.1 m at "}},
      {{"--start", "left", "--target", "2,2,0", "--set", few, "--planner", "jt_rrt"},
       {"iterations spent",
        "the target is 2.828 m from the first joint; frame 'gripper' gets no farther from there "
        "than 2 m: out of reach"}},
      {{"--start", "left", "--target", "0,0.5,0.5", "--frame", "upper"},
       {"unreachable target",
        "0.7071 m from the first joint; frame 'upper' gets no farther from there than 0 m: out of reach"}},
  };
  for (const auto& c : cases) {
    const Outcome plan = RunKavo(Plan(c.query));
    EXPECT_EQ(plan.status, 1) << plan.output;
    EXPECT_THAT(plan.errors, Not(HasSubstr("next seed")));
    for (const std::string& part : c.output) {
      EXPECT_THAT(plan.output, HasSubstr(part));
    }
  }
}

TEST_F(PlanTest, RefusesWhatItCannotUse) {
  const std::string no_seed = folder_.Write("no_seed.yaml", "seed: 0\n");
  const std::string shares =
      folder_.Write("shares.yaml",
                    "task_space_planning_params: {task_space_exploitation_fraction: 0.6, "
                    "task_space_exploration_fraction: 0.5}\n");
  const std::string foreign = folder_.Write("foreign.yaml",
                                            "start_state: {}\ngoal_constraints: [{joint_constraints: "
                                            "[{joint_name: slide, position: 0}]}]\n");
  const std::string both =
      folder_.Write("both.yaml",
                    "goal_constraints: [{joint_constraints: [{joint_name: elbow, position: 1}], "
                    "position_constraints: [{link_name: gripper, constraint_region: "
                    "{primitive_poses: [{position: [1, 1, 0]}]}}]}]\n");
  const struct {
    Arguments query;
    std::string error;
  } cases[] = {
      {{"--start", "left"}, "what to plan?"},
      {{"--start", "left", "--goal", "1,2,3"}, "expected 2 numbers (shoulder,elbow) or one of the names"},
      {{"--start", "left", "--goal", "up"}, "'default', 'into_the_peg', 'left', 'right', 'too_far'"},
      {{"--start", "left", "--target", "1,2"}, "--target 1,2: expected X,Y,Z"},
      {{"--start", "left", "--target", "1,1,0", "--frame", "hand"},
       "--frame hand: expected a frame of the robot"},
      {{"--request", foreign},
       "foreign.yaml: found a goal that names none of the robot's joints, expected some of shoulder,elbow"},
      {{"--request", both},
       "both.yaml: found a goal of several positions or orientations, of several links, or of joint values "
       "and"},
      {{"--request", folder_.Write("no_goal.yaml", "start_state: {}\n")}, "no_goal.yaml: found no goal"},
      {{"--start", "left", "--goal", "right", "--set", "speed=1"}, "--set speed=1: expected NAME=VALUE"},
      {{"--start", "left", "--goal", "right", "--set", "seed=1.5"}, "--set seed=1.5: expected an integer"},
      {{"--start", "left", "--goal", "right", "--config",
        folder_.Write("typo.yaml", "seed: 5\nstepsize: 1\n")},
       "typo.yaml:2: found 'stepsize', which is no setting of a planner file; did you mean 'step_size'?"},
      {{"--start", "left", "--goal", "right", "--config", folder_.Write("two.yaml", "seed: 5\nseed: 6\n")},
       "two.yaml:2: found 'seed' again, expected each setting once"},
      {{"--start", "left", "--goal", "right", "--config", folder_.Write("word.yaml", "seed: five\n")},
       "word.yaml:1: found 'seed: five', expected"},
      {{"--start", "left", "--goal", "right", "--config", no_seed},
       "no_seed.yaml: 'seed' [0] must be positive\n"},
      {{"--start", "left", "--goal", "right", "--config", shares},
       "shares.yaml: The sum of 'task_space_exploitation_fraction' [0.6] and "},
      {{"--start", "left", "--goal", "right", "--set", "task_space_frame_name=hand"},
       "--set task_space_frame_name=hand: there is no frame 'hand'; the robot has 'post', "},
      {{"--start", "left", "--goal", "right", "--planner", "birrt"},
       "--planner birrt: expected one of 'bi_rrt', 'rrt_connect'; did you mean 'bi_rrt'?"},
      {{"--start", "left", "--goal", "right", "--check-step", "0"}, "0 is not a number of at least 1e-06"},
      {{"--start", "left", "--goal", "right", "--joint", "slide"}, "--joint slide: expected JOINT=VALUE"},
      {{"--start", "left", "--goal", "right", "--json", "-", "--csv", "-"},
       "cannot both have the standard output"},
      {{"--start", "left", "--gaol", "right"}, "has no option '--gaol'; did you mean '--goal'?"},
  };
  for (const auto& c : cases) {
    const Outcome plan = RunKavo(Plan(c.query));
    EXPECT_EQ(plan.status, 2) << c.error;
    EXPECT_THAT(plan.output, IsEmpty());
    EXPECT_THAT(plan.errors, HasSubstr(c.error));
  }
  const Outcome builtin =
      RunKavo({"plan", "--robot", "franka", "--group", "arm", "--start", "default", "--goal", "default"});
  EXPECT_EQ(builtin.status, 2);
  EXPECT_THAT(builtin.errors, HasSubstr("takes no further robot options"));
}

TEST_F(PlanTest, TriesSeedsUntilAPathPassesTheCheck) {
  // Steps so long that a path may cut through the peg between two of them: that of seed 1234 does.
  Arguments arguments =
      Plan({"--start", "left", "--goal", "right", "--set", "step_size=0.3", "--planner", "rrt_connect"});
  const Outcome bad = RunKavo(arguments);
  EXPECT_EQ(bad.status, 1);
  EXPECT_THAT(bad.output, AllOf(HasSubstr("check: NOT proven free: touches"), HasSubstr("into 'peg'"),
                                HasSubstr("--verify")));
  arguments.emplace_back("--verify");
  const Outcome good = RunKavo(arguments);
  EXPECT_EQ(good.status, 0);
  EXPECT_THAT(good.output, AllOf(HasSubstr("seed 1235"), HasSubstr("check: proven free")));
  EXPECT_THAT(good.errors, HasSubstr("seed 1234: the path fails the check; trying the next seed"));
  // The straight way jumps over the peg with every seed; half the step sees it.
  const Outcome halved = RunKavo(Plan({"--start", "0.75,0", "--goal", "-0.75,0", "--set", "step_size=0.5",
                                       "--planner", "rrt_connect", "--verify", "--json", "-"}));
  EXPECT_EQ(halved.status, 0) << halved.errors;
  EXPECT_LT(nlohmann::json::parse(halved.output)["settings"]["step_size"], 0.5);
}

TEST_F(PlanTest, TriesTheGoalsOfARequestInOrder) {
  const std::string request =
      folder_.Write("goals.yaml", R"(start_state: {joint_state: {name: [shoulder], position: [1]}}
goal_constraints:
  - joint_constraints: [{joint_name: shoulder, position: 0}]
  - joint_constraints: [{joint_name: shoulder, position: 1.5}, {joint_name: elbow, position: 0.5}]
)");
  const std::string path = "shoulder,elbow\n1,0\n1.5,0.5\n";
  const Outcome plan = RunKavo(Plan({"--request", request, "--csv", "-", "--planner", "rrt_connect"}));
  EXPECT_EQ(plan.output, path);
  EXPECT_THAT(plan.errors, HasSubstr("goal 1 of 2: invalid target; trying the next"));
  // The other planner takes them together.
  const Outcome at_once = RunKavo(Plan({"--request", request, "--csv", folder_ / "path.csv"}));
  EXPECT_EQ(ReadFile(folder_ / "path.csv"), path);
  EXPECT_THAT(at_once.output, AllOf(HasSubstr("goal 2 of 2 reached: configuration 1.5,0.5\n"),
                                    HasSubstr("goal 1 left out: frame 'lower' reaches 350 mm into 'peg'")));
  // Into the peg, but for what is tolerated.
  const std::string wide =
      folder_.Write("wide.yaml", R"(start_state: {joint_state: {name: [shoulder], position: [1]}}
goal_constraints:
  - joint_constraints: [{joint_name: shoulder, position: 0, tolerance_above: 0.5, tolerance_below: 0.1}]
)");
  EXPECT_THAT(RunKavo(Plan({"--request", wide})).output, HasSubstr("check: proven free"));
  EXPECT_THAT(RunKavo(Plan({"--request", wide, "--planner", "rrt_connect"})).output,
              HasSubstr("the goal is not valid"));
  // A path that fails the check is not lost to a goal that cannot be reached.
  const std::string bad_first =
      folder_.Write("bad_first.yaml", R"(start_state: {joint_state: {name: [shoulder], position: [1]}}
goal_constraints:
  - joint_constraints: [{joint_name: shoulder, position: -1}]
  - joint_constraints: [{joint_name: shoulder, position: 0}]
)");
  EXPECT_THAT(
      RunKavo(Plan({"--request", bad_first, "--set", "step_size=0.3", "--planner", "rrt_connect"})).output,
      StartsWith("path found"));
}

TEST_F(PlanTest, ABasePoseInTheRequestMovesTheSceneAndTheTarget) {
  // The base is turned by a quarter, which takes the peg to 0, 1: to where the upper link ends at the start.
  const std::string request = folder_.Write("position.yaml", R"(start_state:
  joint_state: {name: [shoulder, elbow], position: [1.5, 0]}
  multi_dof_joint_state:
    transforms: [{translation: [3, 0, 0], rotation: [0, 0, 0.7071067811865476, 0.7071067811865476]}]
goal_constraints:
  - position_constraints: [{link_name: upper, constraint_region: {primitive_poses: [{position: [1, 2, 0]}]}}]
)");
  const Outcome plan = RunKavo(Plan({"--request", request, "--json", "-"}));
  EXPECT_EQ(plan.status, 1);
  EXPECT_THAT(plan.errors, AllOf(HasSubstr("the start is not valid"), HasSubstr("into 'peg'")));
  const Outcome without_scene = RunKavo({"plan", "--robot", folder_ / "arm.urdf", "--request", request,
                                         "--json", "-", "--set", "max_iterations=1"});
  for (const Outcome& outcome : {plan, without_scene}) {
    const auto target = nlohmann::json::parse(outcome.output)["target"];
    EXPECT_EQ(target["frame"], "upper");
    EXPECT_NEAR(target["position"][0].get<double>(), 2.0, 1e-12);
    EXPECT_NEAR(target["position"][1].get<double>(), 2.0, 1e-12);
  }
}

TEST(PlanToPoseTest, PutsAPointOfALinkIntoTheRegionOfARequest) {
  const std::string request = KAVO_SOURCE_DIR "/tests/formats/data/pose_request.yaml";
  const Outcome outcome = RunKavo({"plan", "--robot", "franka", "--request", request, "--json", "-"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  const auto json = nlohmann::json::parse(outcome.output);
  EXPECT_EQ(json["stages"][0]["goal"], 0);
  const auto end = json["path"].back().get<std::vector<double>>();
  const auto kinematics = LoadFrankaRobotDescription()->kinematics();
  const Pose3 hand =
      kinematics->pose(Eigen::Map<const Eigen::VectorXd>(end.data(), 7), kinematics->frame("hand"));
  const Eigen::Vector3d off = hand * Eigen::Vector3d(0.0, 0.0, 0.1) - Eigen::Vector3d(0.5, 0.1, 0.3);
  EXPECT_TRUE((off.cwiseAbs().array() <= Eigen::Array3d(0.01, 0.02, 0.03)).all()) << off;
  const Eigen::AngleAxisd turn(Eigen::Quaterniond(0.0, 1.0, 0.0, 0.0).conjugate() * hand.rotation());
  const Eigen::Vector3d turns = turn.angle() * turn.axis();
  EXPECT_TRUE((turns.cwiseAbs().array() <= Eigen::Array3d(0.01, 0.02, 3.14)).all()) << turns;
}

TEST(PlanToPoseTest, GoesToPosesAlongLinesAndOnFromThere) {
  const auto plan = [](const Arguments& more) {
    Arguments arguments = {"plan", "--robot", "franka", "--start", "default"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunKavo(arguments);
  };
  const std::string pose = "0.4,0.2,0.5,2,0,0,0";
  const struct {
    Arguments query;
    Arguments output;
  } cases[] = {
      {{"--pose", pose, "--frame", "hand"},
       {"frame 'hand' ends less than 0.001 mm and less than 0.001 degrees from the pose", "proven free"}},
      {{"--pose", pose, "--free-axis", "z", "--position-tolerance", "0.05", "--orientation-tolerance", "0.3"},
       {"frame 'tool' ends ", "proven free"}},
      {{"--target", "0.4,0.2,0.5"}, {"frame 'tool' ends less than 0.001 mm from the target", "; bi_rrt, "}},
      {{"--target", "0.4,0.2,0.5", "--planner", "jt_rrt", "--set",
        "task_space_planning_params/x_target_zone_tolerance=0.05,0.05,0.05"},
       {"from the target", "; jt_rrt, "}},
      {{"--pose", pose, "--target", "9,0,0", "--goal", "default"},
       {"goal 1 of 3 reached: configuration 0,", "goal 2 left out: the target is 9", ": out of reach"}},
      {{"--line", "0.1,0,0.1,0,0,0,1", "--pose-frame", "tool", "--line-step", "0.02", "--line-deviation",
        "0.01"},
       {"line to pose 0.406891,0,0.386882 of frame 'tool': within ", " of the line; frame 'tool' ends "}},
      {{"--pose", pose, "--then", "line=0.4,0.2,0.4", "--then", "line=" + pose, "--then", "target=0.3,0,0.5",
        "--then", "pose=" + pose, "--then", "goal=default"},
       {"stage 1 of 6, waypoints 1 to 2, to pose 0.4,0.2,0.5 of frame 'tool'",
        "line to position 0.4,0.2,0.4 of frame 'tool': within ", "stage 4 of 6, ",
        "to configuration 0,-0.785398,0,-2.35619,0,1.5708,0.785398\n", "proven free"}},
  };
  for (const auto& c : cases) {
    const Outcome outcome = plan(c.query);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    for (const std::string& part : c.output) {
      EXPECT_THAT(outcome.output, HasSubstr(part));
    }
  }
  const Outcome early = plan({"--line", "1.5,0,0.5"});
  EXPECT_EQ(early.status, 1);
  EXPECT_THAT(early.output,
              AllOf(HasSubstr("no path: line ends early\n  line for "),
                    HasSubstr("of the line the frame gets no farther: at the next waypoint, the nearest")));
  const Outcome none = plan({"--goal", "0,0,0,0,0,0,0", "--pose", "9,0,0,0,0,0,1", "--then", "goal=default"});
  EXPECT_THAT(none.output,
              AllOf(HasSubstr("no path: no goal is valid\nstage 1 of 2, none of 2 goals reached"),
                    HasSubstr("goal 2 left out: the target is 9")));
  const Outcome ahead = plan({"--pose", pose, "--then", "line=0.4,0,0.5", "--line-deviation", "1e-9"});
  EXPECT_THAT(ahead.output, HasSubstr("can the lines that follow be gone\n  the one that got farthest, in "
                                      "stage 2: after "));
  const auto json =
      nlohmann::json::parse(plan({"--pose", pose, "--then", "line=0.4,0.2,0.4", "--json", "-"}).output);
  EXPECT_EQ(json["target"]["position"], nlohmann::json({0.4, 0.2, 0.4}));
  EXPECT_EQ(json["stages"][0]["goal_reports"][0]["num_configurations"], 4);
  EXPECT_EQ(json["stages"][0]["goals"][0]["orientation"], nlohmann::json({1.0, 0.0, 0.0, 0.0}));
  EXPECT_EQ(json["stages"][1]["last_waypoint"].get<std::size_t>() + 1, json["path"].size());
  EXPECT_EQ(json["stages"][1]["line"]["end"], "complete");

  const struct {
    Arguments query;
    std::string error;
  } refused[] = {
      {{"--pose", "0,0,0,0,0,0,0"}, "--pose 0,0,0,0,0,0,0: expected a quaternion that is not zero"},
      {{"--pose", "0,0,0,0,0,1"}, "--pose 0,0,0,0,0,1: expected X,Y,Z,QX,QY,QZ,QW"},
      {{"--pose", pose, "--pose-frame", "hadn"},
       "--pose-frame hadn: expected a frame of the robot; did you mean 'hand'?"},
      {{"--pose", pose, "--then", "lien=" + pose}, "--then lien=" + pose + ": expected goal=Q, "},
      {{"--pose", pose, "--then", "line=1"}, "--then line 1: expected X,Y,Z,QX,QY,QZ,QW"},
      {{"--pose", pose, "--line", pose}, "--line"},
      {{"--goal", "default", "--planner", "jt_rrt"}, "--planner jt_rrt plans to positions"},
      {{"--pose", pose, "--planner", "jt_rrt"}, "--planner jt_rrt plans to positions"},
      {{"--line", pose, "--free-axis", "z"}, "--free-axis: is for a pose, and the query has none"},
  };
  for (const auto& c : refused) {
    const Outcome outcome = plan(c.query);
    EXPECT_EQ(outcome.status, 2) << c.error;
    EXPECT_THAT(outcome.errors, HasSubstr(c.error));
  }
}

TEST(ExampleSceneTest, IsTheShelfOfTheExamples) {
  const formats::Scene scene = formats::ReadScene(KAVO_EXAMPLES_DIR "/scene.yaml");
  const std::vector<examples::Board> boards = examples::ShelfBoards();
  ASSERT_EQ(scene.objects.size(), boards.size() + 1);
  for (std::size_t i = 0; i < boards.size(); ++i) {
    const formats::SceneObject& object = scene.objects[i];
    EXPECT_EQ(object.id, boards[i].name);
    ASSERT_EQ(object.parts.size(), 1u);
    EXPECT_EQ(std::get<BoxObstacle>(object.parts[0].shape).size, boards[i].size);
    EXPECT_EQ(object.parts[0].pose.translation(), boards[i].center);
  }
  ASSERT_TRUE(std::holds_alternative<HalfSpaceObstacle>(scene.objects.back().parts[0].shape));
  EXPECT_EQ((scene.objects.back().parts[0].pose * Eigen::Vector3d::Zero())[2], examples::kFloorHeight);
}

}  // namespace
}  // namespace kavo::testing
