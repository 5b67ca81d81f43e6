#include "kavo/formats/result_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "kavo/world/shapes/octree.h"
#include "kavo/world/shapes/point_cloud.h"
#include "kavo/world/shapes/triangle_mesh.h"
#include "kavo/world/world.h"
#include "tests/formats/files.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::formats {
namespace {

using ::kavo::testing::FileErrorOf;
using ::kavo::testing::Folder;
using ::kavo::testing::Vec;
using ::testing::ElementsAre;

RobotDrawing SmallRobot() {
  using kinematics::Kinematics;
  RobotDrawing robot;
  robot.frames.resize(2);
  robot.frames[0].joint.name = "base";
  robot.frames[0].padding = 0.01;
  robot.frames[0].allowed_obstacles = {"floor"};
  robot.frames[1].joint = {"slider",
                           0,
                           Kinematics::Motion::kPrismatic,
                           1,
                           Kinematics::Ratio{2.0, 0.5},
                           Pose3::FromTranslation({0, 0, 1}),
                           {0, 0, 4}};
  robot.frames[1].spheres = {{{0.1, 0, 0}, 0.25}};
  const DrawnMesh triangle{{{0, 0, 0}, {1, 0, 0}, {0, 0.00006, -0.00004}}, {{0, 1, 2}}, 7};
  robot.frames[1].visual_meshes = {{Pose3(), "cover.stl", triangle}};
  robot.frames[1].collision_meshes = {{Pose3(), "box", triangle}};
  robot.coordinates.resize(2);
  robot.coordinates[0] = {"a", false, {-1, 1}, 2, 3, 4};
  robot.coordinates[1].slides = true;
  robot.coordinates[1].limits.max = std::numeric_limits<double>::infinity();
  robot.tip_frame = "slider";
  robot.pairs = {{"base", "slider"}};
  robot.attachments = {{"part", "slider", Pose3(), BoxObstacle{{1, 2, 3}}}};
  return robot;
}

SceneDrawing SmallScene() {
  World world;
  const ObstacleHandle floor = world.add(HalfSpaceObstacle{}, Pose3(), "floor");
  world.setPadding(floor, 0.5);
  world.disable(world.add(SphereObstacle{0.25}, Pose3::FromTranslation({1, 2, 3}), "<script>"));
  world.add(CylinderObstacle{1, 2}, Pose3());
  world.add(CapsuleObstacle{1, 2}, Pose3());
  world.add(ConeObstacle{1, 2}, Pose3());
  world.add(MeshObstacle{std::make_shared<TriangleMesh>(
                std::vector<Eigen::Vector3d>{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}},
                std::vector<TriangleMesh::Triangle>{{0, 1, 2}})},
            Pose3());
  world.add(PointCloudObstacle{std::make_shared<PointCloud>(
                std::vector<Eigen::Vector3d>{{0, 0, 0}, {1, 0, 0}}, std::vector<double>{0.01, 0.02})},
            Pose3());
  world.add(OctreeObstacle{std::make_shared<Octree>(std::vector<Octree::Cell>{{{1, 2, 3}, 0.5}})}, Pose3());
  return DrawScene(world, Pose3::FromTranslation({0, 0, -1}));
}

PlanRecord SmallRecord() {
  PlanRecord record;
  record.version = "1.2";
  record.arguments = {"plan", "--robot", "arm.urdf"};
  record.robot_model = SmallRobot();
  record.scene = SmallScene();
  record.files = {{"robot", "arm.urdf", "ab"}};
  record.robot = "arm \"x\"";
  record.joint_names = {"a", "b"};
  record.held_joints = {{"torso", 0.25}};
  record.start = Vec({0.1, -0.0});
  record.stages = {{{Vec({1, 1e-300})}}};
  record.settings = {{"z", 0.5}, {"a", std::int64_t{7}}, {"on", true}, {"frame", "tool"}};
  record.settings.emplace_back("weights", std::vector<double>{1, 2});
  record.settings.emplace_back("limits", std::vector<std::array<double, 2>>{{-1, 1}, {0, 2}});
  record.seed = 3;
  record.found = true;
  record.status = "found";
  record.path = {record.start, Vec({1, 1e-300})};
  record.interpolated_path = {record.start, Vec({0.1 + 0.2, 0.5}), Vec({1, 1e-300})};
  record.statistics.status = planning::SearchStatus::kFound;
  record.statistics.num_iterations = 18446744073709551615u;
  record.statistics.num_nodes = {4, 5};
  record.statistics.planner = "bi_rrt";
  record.statistics.num_motions = 3;
  record.statistics.num_placements = 2;
  record.statistics.num_divisions = 1;
  record.check.emplace();
  record.check->passed = true;
  record.check->verdict = "proven free with cones ignored";
  record.check->ignored = {"cones"};
  record.check->uncovered_links = {"hand"};
  record.check->self_clearance = 0.25;
  record.check->tolerance = 0.01;
  record.trajectory.emplace();
  record.trajectory->duration = 1.5;
  record.trajectory->waypoint_times = {0.0, 1.5};
  record.trajectory->limits = {Vec({1, 2}), Vec({3, 4}), std::nullopt};
  record.trajectory->samples = {{}, {0.0, 1.5}, record.path, record.path, record.path};
  record.explanation = "path found\n";
  SearchDrawing& search = record.searches.emplace_back();
  search.planner = "bi_rrt";
  search.raw_path = record.path;
  search.trees = {{{SearchTree::Root::kStart, {Vec({0, 0}), Vec({1e-7, 0.1234567})}, {std::nullopt, 0}}, 4},
                  {{SearchTree::Root::kGoal, {}, {}}, 5}};
  const ContactRecord with_obstacle{"slider", 0, "floor", 0, std::nullopt, std::nullopt, 0.125};
  const ContactRecord with_itself{"slider", 0, std::nullopt, std::nullopt, "base", 1, 0.5};
  record.inspections = {{InspectionRecord::What::kGoal,
                         0,
                         record.start,
                         0.5,
                         std::nullopt,
                         {with_obstacle, with_itself},
                         {{1, 3.0, -1.0, 1.0}}}};
  record.profile.emplace();
  record.profile->at = {0.0, 1.0};
  record.profile->clearance = {0.5, std::nullopt};
  record.profile->nearest = {std::pair<std::string, std::string>("slider", "floor"), std::nullopt};
  record.profile->self_clearance = {std::nullopt, std::nullopt};
  record.profile->self_nearest = {std::nullopt, std::nullopt};
  record.profile->contacts = {{1, {with_obstacle}}};
  return record;
}

TEST(ResultFile, JsonIsLaidOutForReaders) {
  PlanRecord record = SmallRecord();
  EXPECT_EQ(ToJson(record), testing::ReadFile(KAVO_SOURCE_DIR "/tests/formats/data/plan.json"));
  const PoseGoal position = PoseGoal::Position("tool", {1, 2, std::numeric_limits<double>::infinity()});
  PoseGoal pose;
  pose.frame = "tool";
  pose.pose = Pose3::FromTranslation({0, 0, 0.5});
  pose.regions = {{SphereObstacle{0.25}, Pose3()}};
  pose.axis_tolerances = {{{0.1, 0.2, 4}}};
  record.stages = {{{pose}, planning::LineOptions()}, {{record.start, position}}};
  record.parts.resize(2);
  record.parts[1].goal = 1;
  record.path.clear();
  record.check.reset();
  record.trajectory.reset();
  record.profile.reset();
  const std::string text = ToJson(record);
  EXPECT_THAT(text, ::testing::HasSubstr(
                        "\"target\": {\n    \"frame\": \"tool\",\n    \"position\": [1.0,2.0,null]\n  }"));
  for (const char* part : {R"("kind": "line")", R"("orientation": [0.0,0.0,0.0,1.0])", R"("radius": 0.25)",
                           R"("angles": [0.1,0.2,4.0])", R"("goal": 1)"}) {
    EXPECT_THAT(text, ::testing::HasSubstr(part));
  }
  EXPECT_THAT(text, ::testing::HasSubstr("\"path\": [],"));
  EXPECT_THAT(text, ::testing::HasSubstr("\"check\": null,\n  \"trajectory\": null,\n"));
}

// Bit for bit, by way of the disk.
TEST(ResultFile, PathsComeBackAsTheyWere) {
  const Folder directory;
  std::mt19937 engine(3);
  PlanRecord record = SmallRecord();
  record.joint_names = {"plain", "with, comma", "with \"quotes\"", "1.5", "two\nlines", " padded", ""};
  record.path = {Vec({0.0, -0.0, 5e-324, 1.7976931348623157e308, 0.1, 1.0 / 3.0, -2.2250738585072011e-308})};
  for (int i = 0; i < 200; ++i) {
    record.path.push_back(testing::RandomVec(engine, 7, -4, 4));
  }
  const std::string json = directory.path() + "/path.json";
  const std::string csv = directory.path() + "/path.csv";
  WriteJson(record, json);
  WriteCsv(record.joint_names, record.path, csv);
  EXPECT_EQ(ReadPath(json).held_joints, record.held_joints);
  for (const std::string& file : {json, csv}) {
    const PathFile path = ReadPath(file);
    EXPECT_EQ(path.joint_names, record.joint_names) << file;
    ASSERT_EQ(path.configurations.size(), record.path.size());
    for (std::size_t i = 0; i < record.path.size(); ++i) {
      EXPECT_EQ(path.configurations[i], record.path[i]) << file;
      EXPECT_EQ(std::signbit(path.configurations[i][1]), std::signbit(record.path[i][1]));
    }
  }
  EXPECT_EQ(ToCsv({"a", "b,"}, {Vec({1, -0.25}), Vec({1e22, 0.1})}), "a,\"b,\"\n1,-0.25\n1e+22,0.1\n");
}

TEST(ResultFile, CsvMayComeFromElsewhere) {
  const PathFile path = ParsePath("\r\n 1, 2\t,+3e0\r\n\r\n4,5,6", "p");
  EXPECT_TRUE(path.joint_names.empty());
  EXPECT_THAT(path.configurations, ElementsAre(Vec({1, 2, 3}), Vec({4, 5, 6})));
}

TEST(ResultFile, FaultsAreNamed) {
  testing::ExpectFaults("path", [](const std::string& text) { ParsePath(text, "p"); });
  EXPECT_THAT(FileErrorOf([] { ParsePath("{\n\"path\": [[1,\n}", "p"); }),
              ::testing::StartsWith("p:3: found what is no JSON: "));
  const Folder directory;
  EXPECT_EQ(FileErrorOf([&] { WriteCsv({}, {}, directory.path()); }),
            directory.path() + ": cannot be written");
  EXPECT_EQ(FileErrorOf([] { WriteJson(SmallRecord(), "/dev/full"); }), "/dev/full: cannot be written");
  testing::ExpectFatal(
      [] {
        ToCsv({"a"}, {Vec({1, 2})});
      },
      "static_cast<std::size_t>(q.size()) == joint_names.size()", "formats/result_file", 140,
      "A configuration must have one value for each joint name: expected 1, got 2.");
}

}  // namespace
}  // namespace kavo::formats
