#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "tests/apps/robots.h"
#include "tests/apps/run_kavo.h"

namespace kavo::testing {
namespace {

using ::testing::HasSubstr;

// An eighth of the tree, which is 6.5536 m large, and an eighth of the opposite one.
const std::string kOctree("# Octomap OcTree binary file\nid OcTree\nres 0.0001\ndata\n\x02\xC0\x02\x00", 59);

const std::string kPly =
    "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n";

TEST(ObstacleTest, EveryShapeIsReadNamedAndPlaced) {
  const Folder folder;
  const std::string triangle =
      folder.Write("triangle.ply", kPly +
                                       "element face 1\nproperty list uchar int vertex_indices\nend_header\n"
                                       "0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n");
  const std::string points = folder.Write("points.PLY", kPly + "end_header\n0 0 0\n1 0 0\n0 1 nan\n");
  const std::string lines = folder.Write("a@b.xyz", "0 0 0\n0.5 0 0\n3 0 0\n");
  const std::string octree = folder.Write("map.bt", kOctree);
  const struct {
    std::vector<std::string> options;
    std::string row;
  } cases[] = {
      {{"box:0.1,0.2,0.3@1,2,3"}, "box box 0.1 x 0.2 x 0.3 m world 1 2 3"},
      {{"sphere:1"}, "sphere sphere radius 1 m world 0 0 0"},
      {{"cylinder:1,2"}, "cylinder cylinder radius 1 m, height 2 m world 0 0 0"},
      {{"capsule:1,2@0,0,-1,0,0,0,4"}, "capsule capsule radius 1 m, height 2 m world 0 0 -1"},
      {{"cone:1,2", "--obstacle", "cone:1,3@1,0,0"}, "cone_2 cone radius 1 m, height 3 m world 1 0 0"},
      {{triangle + "@1,0,0"}, "triangle mesh 1 triangle, open (3 edges), a surface world 1 0 0"},
      {{triangle + ":0.001", "--mesh-solid"},
       "triangle mesh 1 triangle, open (3 edges), taken as solid world 0 0 0"},
      {{points, "--point-radius", "0.01"}, "points point cloud 2 points of radius 0.01 m world 0 0 0"},
      {{lines, "--voxel", "1"}, "a@b point cloud 2 points of radius 0 to 0.25 m world 0 0 0"},
      {{octree + "@0,1,0"}, "map octree 2 cells of 1.638 to 3.277 m world 0 1 0"},
      {{octree, "--unknown-occupied"}, "map octree 20 cells of 1.638 to 3.277 m world 0 0 0"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> arguments = {"info", "--robot", "three_link", "--obstacle"};
    arguments.insert(arguments.end(), c.options.begin(), c.options.end());
    const Outcome info = RunKavo(arguments);
    EXPECT_EQ(info.status, 0) << info.errors;
    EXPECT_THAT(std::regex_replace(info.output, std::regex(" +"), " "), HasSubstr("\n" + c.row + "\n"));
  }
}

TEST(ObstacleTest, WhatIsNoneIsRefused) {
  const Folder folder;
  const std::string lines = folder.Write("lines.xyz", "0 0 0\n");
  const std::string quaternion =
      ": expected SHAPE[@X,Y,Z[,QX,QY,QZ,QW]], with a quaternion that is not zero\n";
  const std::pair<std::string, std::string> cases[] = {
      {"box:1,2", "kavo: --obstacle box:1,2: expected box:X,Y,Z with positive metres\n"},
      {"cone:1,0", "kavo: --obstacle cone:1,0: expected cone:R,H with positive metres\n"},
      {"sphere:1@1,2", "kavo: --obstacle sphere:1@1,2" + quaternion},
      {"sphere:1@", "kavo: --obstacle sphere:1@" + quaternion},
      {"sphere:1@0,0,0,0,0,0,0", "kavo: --obstacle sphere:1@0,0,0,0,0,0,0" + quaternion},
      {lines + ":2", "kavo: --obstacle " + lines + ":2: expected a scale for nothing but a mesh\n"},
      {"ball:1", "kavo: --obstacle ball:1: expected a mesh (.stl, .obj, .dae, .ply), a point cloud"},
      {"/nowhere.pcd", "kavo: /nowhere.pcd: cannot be read\n"},
      {folder.Write("free.bt", kOctree.substr(0, 55) + std::string("\x01\x00", 2)),
       "free.bt: found no occupied cell, expected at least one\n"},
  };
  for (const auto& [option, error] : cases) {
    const Outcome info = RunKavo({"info", "--robot", "three_link", "--obstacle", option});
    EXPECT_EQ(info.status, 2);
    EXPECT_THAT(info.errors, HasSubstr(error));
  }
}

// The sphere at the end of the stretched arm is at (2, 0, 0).
TEST(ObstacleTest, WhatTheRobotOccupiesIsCutOut) {
  const Folder folder;
  const auto check = [&](std::vector<std::string> more) {
    more.insert(more.begin(), {"check", "--robot", folder.Write("arm.urdf", kArmUrdf), "--coordinates",
                               "shoulder,elbow", "--path", folder.Write("path.csv", "0,0\n")});
    return RunKavo(more);
  };
  const std::string cloud = folder.Write("scan.xyz", "0 0 0\n0.001 0 0\n0 3 0\n");
  const std::string octree = folder.Write("map.bt", kOctree);
  const Outcome hit = check({"--obstacle", cloud + "@2,0,0"});
  EXPECT_EQ(hit.status, 1);
  EXPECT_THAT(hit.output, HasSubstr(" into 'scan' (its sphere 1 "));
  const Outcome plan =
      RunKavo({"plan", "--robot", "three_link", "--start", "0,0,0", "--goal", "1,0,0", "--obstacle", octree});
  EXPECT_EQ(plan.status, 1);
  EXPECT_THAT(plan.output, HasSubstr(" into 'map' "));
  EXPECT_THAT(plan.output, HasSubstr("--ignore-robot cuts it out\n"));
  // With the base elsewhere in the world.
  const std::string scene =
      folder.Write("scene.yaml",
                   "robot_state: {multi_dof_joint_state: {transforms: [{translation: [5, 0, 1], rotation: "
                   "[0, 0, 1, 0]}]}}\n"
                   "collision_objects: [{id: far, primitives: [{type: sphere, dimensions: [1]}]}]");
  const Outcome cut = check(
      {"--scene", scene, "--obstacle", cloud + "@3,0,1", "--obstacle", octree + "@3,0,1", "--ignore-robot"});
  EXPECT_EQ(cut.status, 0) << cut.output;
  EXPECT_THAT(cut.errors,
              HasSubstr("2 of 3 points of object 'scan' are where the robot is at the start, 10 mm "
                        "around it, and are cut out"));
  EXPECT_THAT(cut.errors, HasSubstr("of the smallest cells of object 'map' are where the robot is"));
  EXPECT_EQ(check({"--obstacle", cloud + "@2,0,0", "--ignore-robot", "4"}).output.find("clearance"),
            std::string::npos);
}

}  // namespace
}  // namespace kavo::testing
