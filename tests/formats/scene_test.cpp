#include "kavo/formats/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/formats/files.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::formats {
namespace {

using ::kavo::testing::FileErrorOf;
using ::kavo::testing::Folder;
using ::kavo::testing::LogCapture;
using ::kavo::testing::RandomVec;
using ::testing::ElementsAre;
using ::testing::Pair;

// The obstacle nearest to a point relative to the robot base, and its signed distance.
struct Probe {
  Eigen::Vector3d point;
  std::string nearest;
  double distance;
};

void ExpectProbes(const Scene& scene, const std::vector<Probe>& probes) {
  World world;
  AddToWorld(scene, world);
  const WorldView view = world.view();
  for (const Probe& probe : probes) {
    const auto nearest = view.nearestObstacle(probe.point);
    ASSERT_TRUE(nearest);
    EXPECT_EQ(world.name(nearest->obstacle), probe.nearest) << probe.point.transpose();
    EXPECT_NEAR(nearest->distance, probe.distance, 1e-12) << probe.point.transpose();
  }
}

// Every turn is a quarter: the places can be told without a computer.
TEST(Scene, YamlIsPlacedInTheFrameOfTheBase) {
  const LogCapture log;
  const Scene scene = ReadScene(KAVO_SOURCE_DIR "/tests/formats/data/shelf.yaml");
  EXPECT_EQ(scene.name, "shelf");
  EXPECT_THAT(scene.joint_state, ElementsAre(Pair("a", 0.5), Pair("b", -1e-3)));
  ASSERT_EQ(scene.objects.size(), 3u);
  EXPECT_EQ(scene.objects[0].parts.size(), 2u);
  ExpectProbes(scene, {
                          // The box's centre is (1, 2, 1) in the world: 2 high, 0.4 long along the world's y.
                          {{2, 0, 2.25}, "turned", 0.25},
                          {{2.3, 0, 1}, "turned", 0.1},
                          {{2, 0.3, 1}, "turned", 0.2},
                          // The cylinder lies along the world's y.
                          {{3.5, 0, 5}, "turned", 0.5},
                          {{2, 0, 5.3}, "turned", 0.2},
                          {{0, 1, 10}, "ball", -0.5},
                          {{50, 0, -2}, "floor", 2},
                          {{50, 0, -4.5}, "floor", -0.5},
                      });
  EXPECT_THAT(log.warnings(), ElementsAre());
}

TEST(Scene, PlanesAreSolidWhereTheirFormIsNotPositive) {
  std::mt19937 engine(7);
  std::vector<Eigen::VectorXd> planes = {testing::Vec({0, 0, -3, 1}), testing::Vec({0, 0, 1e-300, 0}),
                                         testing::Vec({1e300, 0, -1e300, 1e300})};
  for (int i = 0; i < 50; ++i) {
    planes.push_back(RandomVec(engine, 4, -2, 2));
  }
  for (const Eigen::VectorXd& plane : planes) {
    std::ostringstream text;
    text.precision(17);
    text << "(noname)\n* p\n1\nplane\n" << plane.transpose() << "\n0 0 0\n0 0 0 1\n0 0 0 0\n.\n";
    World world;
    AddToWorld(ParseSceneText(text.str(), "p.scene"), world);
    const Eigen::VectorXd n = plane / plane.head(3).cwiseAbs().maxCoeff();
    for (int i = 0; i < 5; ++i) {
      const Eigen::Vector3d point = RandomVec(engine, 3, -2, 2);
      const double distance = (n.head(3).dot(point) + n[3]) / n.head(3).norm();
      EXPECT_NEAR(world.view().nearestObstacle(point)->distance, distance, 1e-12) << plane.transpose();
    }
  }
}

TEST(Scene, FilesOfEitherTextFormAndOfYamlAreToldApart) {
  const LogCapture log;
  const Folder directory;
  const std::string old_form = testing::ReadFile(KAVO_SOURCE_DIR "/tests/formats/data/old_form.scene");
  const std::string new_form = testing::ReadFile(KAVO_SOURCE_DIR "/tests/formats/data/new_form.scene");
  // What is in a YAML block may look like anything, but not at the start of a line.
  const std::string yaml =
      "name: |\n  * a\n  .\nworld: {collision_objects: [\n"
      "  {id: ball, primitives: [{type: sphere, dimensions: [0.25]}]},\n"
      "  {id: a shelf, pose: {position: [10, 0, 0]}, primitives: [{type: box, dimensions: [1, 2, 4]},\n"
      "    {type: cylinder, dimensions: [3, 0.5]}], primitive_poses: [{}, {position: [10, 0, 0]}]}]}\n";
  for (const std::string& text : {old_form, new_form, std::regex_replace(new_form, std::regex("\n"), "\r\n"),
                                  yaml, "\xEF\xBB\xBF" + yaml}) {
    const Scene scene = ReadScene(directory.Write("scene", text));
    EXPECT_EQ(scene.name, text[0] == 'm' ? "my scene" : "* a\n.\n");
    ExpectProbes(scene, {{{9, 0, 0}, "a shelf", 0.5},
                         {{10, 1.5, 0}, "a shelf", 0.5},
                         {{10, 0, 2.5}, "a shelf", 0.5},
                         {{20, 0, 2}, "a shelf", 0.5},
                         {{21, 0, 0}, "a shelf", 0.5},
                         {{1, 0, 0}, "ball", 0.75}});
  }
  EXPECT_THAT(log.warnings(), ElementsAre());
  EXPECT_EQ(FileErrorOf([&] { ReadScene(directory.path()); }), directory.path() + ": cannot be read");
  EXPECT_EQ(FileErrorOf([&] { ReadScene("/nowhere/a.yaml"); }), "/nowhere/a.yaml: cannot be read");
}

TEST(Scene, ALaterObjectReplacesTheFormerOfItsName) {
  const Scene scene = ParseSceneYaml(R"(
collision_objects:
  - {id: a, primitives: [{type: sphere, dimensions: [1]}]}
  - {id: b, primitives: [{type: sphere, dimensions: [2]}]}
  - {id: a, primitives: [{type: sphere, dimensions: [3]}]}
)",
                                     "s");
  ASSERT_EQ(scene.objects.size(), 2u);
  EXPECT_EQ(scene.objects[0].id, "a");
  EXPECT_EQ(std::get<SphereObstacle>(scene.objects[0].parts.at(0).shape).radius, 3.0);
}

TEST(Scene, WhatIsNotHonouredIsListed) {
  const LogCapture quiet;
  // What says nothing is nothing.
  const Scene scene = ParseSceneYaml(
      "octomap: {octomap: {id: x, data: []}}\nallowed_collision_matrix: {entry_names: []}\n"
      "link_scale: [{link_name: l, scale: 1.0},\n{link_name: m, scale: 0}]",
      "s");
  ASSERT_EQ(scene.unhonoured.size(), 1u);
  EXPECT_EQ(scene.unhonoured[0].kind, Unhonoured::Kind::kLinkScale);
  EXPECT_EQ(ToText(scene.unhonoured[0]), "s:4: link_scale 0 of link \"m\"");
  EXPECT_TRUE(scene.objects.empty());
}

TEST(Scene, MeshesConesAndOctomapsAreObstacles) {
  const Folder directory;
  directory.Write(
      "meshes/tetrahedron.ply",
      "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\nproperty float z\n"
      "element face 4\nproperty list uchar int vertex_indices\nend_header\n"
      "0 0 0\n1 0 0\n0 1 0\n0 0 1\n3 0 1 2\n3 0 1 3\n3 0 2 3\n3 1 2 3\n");
  const std::string file = directory.Write("scene.yaml", R"(
fixed_frame_transforms: [{child_frame_id: table, transform: {translation: [0, 0, 3]}}]
world:
  collision_objects:
    - id: inline
      pose: {position: [0, 0, 1]}
      meshes:
        - vertices: [[0, 0, 0], {x: 1, y: 0, z: 0}, [0, 1, 0], [0, 0, 1]]
          triangles: [{vertex_indices: [0, 1, 2]}, [0, 1, 3], [0, 2, 3], [1, 2, 3]]
      mesh_poses: [{position: [0, 0, -1]}]
    - {id: file, pose: {position: [5, 0, 0]}, meshes: [{resource: meshes/tetrahedron.ply, dimensions: [2, 2, 1]}]}
    - {id: cone, pose: {position: [10, 0, 0]}, primitives: [{type: 4, dimensions: [2, 1]}]}
  octomap:
    header: {frame_id: table}
    origin: {position: [20, 0, 0]}
    # A leaf of 65536 of the smallest cells along each axis.
    octomap: {binary: false, id: OcTree, resolution: 0.0000152587890625, data: [0, 0, 128, 63, 0]}
)");
  const std::string text =
      "n\n* inline\n1\nmesh\n4 4\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n0 1 2\n0 1 3\n0 2 3\n1 2 3\n0 0 0\n0 0 0 1\n0 "
      "0 0 0\n"
      "* cone\n1\ncone\n1 2\n10 0 0\n0 0 0 1\n0 0 0 0\n.\n";
  const std::vector<Probe> probes = {{{0.1, 0.1, -0.5}, "inline", 0.5},
                                     {{0.1, 0.2, 0.05}, "inline", -0.05},
                                     {{10, 0, 1.5}, "cone", 0.5},
                                     {{10, 0.75, -1.5}, "cone", 0.5}};
  ExpectProbes(ParseSceneText(text, "t"), probes);
  const LogCapture log;
  const Scene scene = ReadScene(file);
  ExpectProbes(scene, probes);
  ExpectProbes(scene, {{{6.5, 0.1, -0.5}, "file", 0.5}, {{20, 0, 2}, "<octomap>", 0.5}});
  EXPECT_THAT(log.warnings(), ElementsAre());

  SceneFileOptions options;
  options.mesh_interior = Interior::kEmpty;
  ExpectProbes(ParseSceneText(text, "t", options), {{{0.1, 0.2, 0.05}, "inline", 0.05}});
  EXPECT_EQ(
      FileErrorOf([&] { ParseSceneYaml("collision_objects: [{id: a, meshes: [{resource: b}]}]", file); }),
      file + ":1: found \"b\", for which there is no file " + directory / "b" +
          ", expected the name of one that exists");
}

TEST(Scene, WhatTheRobotHoldsIsNotInTheWorld) {
  const Scene scene = ParseSceneYaml(R"(
fixed_frame_transforms: [{child_frame_id: table, transform: {translation: [0, 0, 3]}}]
robot_state:
  attached_collision_objects:
    - link_name: hand
      object: {id: cup, pose: {position: [0, 1, 0]}, primitives: [{type: sphere, dimensions: [1]}]}
      touch_links: [finger, thumb]
      weight: 2
    - {link_name: hand, object: {id: tray, header: {frame_id: table}, primitives: [{type: sphere, dimensions: [2]}]}}
    - {link_name: arm, object: {id: hose}}
    - {link_name: arm, object: {id: lid, header: {frame_id: elbow}, primitives: [{type: sphere, dimensions: [4]}]}}
collision_objects:
  - {id: cup, primitives: [{type: sphere, dimensions: [5]}]}
  - {id: wall, primitives: [{type: sphere, dimensions: [6]}]}
  - {id: hose, header: {frame_id: base}, primitives: [{type: sphere, dimensions: [3]}]}
link_padding: [{link_name: hand, padding: 0.01}]
)",
                                     "s");
  std::string found;
  for (const AttachedObject& attached : scene.attached) {
    const SceneObject& object = attached.object;
    std::ostringstream line;
    line << object.id << " on " << attached.link << " in '" << object.frame << "' at "
         << object.parts.at(0).pose.translation().transpose() << " of "
         << std::get<SphereObstacle>(object.parts.at(0).shape).radius << "\n";
    found += line.str();
  }
  EXPECT_EQ(found,
            "cup on hand in 'hand' at 0 1 0 of 1\n"
            "tray on hand in '' at 0 0 3 of 2\n"
            "hose on arm in 'base' at 0 0 0 of 3\n"
            "lid on arm in 'elbow' at 0 0 0 of 4\n");
  EXPECT_THAT(scene.attached[0].touch_links, ElementsAre("finger", "thumb"));
  ASSERT_EQ(scene.objects.size(), 1u);
  EXPECT_EQ(scene.objects[0].id, "wall");
  EXPECT_THAT(scene.link_padding, ElementsAre(Pair("hand", 0.01)));
}

TEST(Scene, ObjectsInOtherFramesArePlacedWhereTheseAre) {
  const Scene scene = ParseSceneYaml(
      "{fixed_frame_transforms: [], collision_objects: [\n{id: a, header: {frame_id: /hand}, "
      "pose: {position: [1, 0, 0]}, primitives: [{type: sphere, dimensions: [0.5]}]}]}",
      "s");
  World world;
  EXPECT_EQ(FileErrorOf([&] { AddToWorld(scene, world); }),
            "s:2: found object \"a\" in frame \"hand\", expected the world, a frame of this file or one of "
            "the robot");
  EXPECT_EQ(world.numObstacles(), 0u);
  AddToWorld(scene, world, {{"hand", Pose3::FromTranslation({0, 3, 0})}});
  EXPECT_NEAR(world.view().nearestObstacle({1, 3, 0})->distance, -0.5, 1e-12);
}

TEST(Scene, FaultsInYamlAreNamedWithTheirLine) {
  const LogCapture quiet;
  testing::ExpectFaults("scene_yaml", [](const std::string& text) { ParseSceneYaml(text, "s"); });
}

TEST(Scene, FaultsInTextAreNamedWithTheirLine) {
  testing::ExpectFaults("scene_text", [](const std::string& text) { ParseSceneText(text, "t"); });
}

}  // namespace
}  // namespace kavo::formats
