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
  const std::string ball = "{type: sphere, dimensions: [1]}";
  const std::string object = "world: {collision_objects: [{id: a, primitives: [" + ball + "]";
  const std::vector<std::pair<std::string, std::string>> cases = {
      // What says nothing is nothing.
      {object + "}], octomap: {octomap: {id: x, data: []}}}\nlink_padding: [{link_name: l, padding: 0}]\n"
                "link_scale: [{link_name: l, scale: 1.0}]\nallowed_collision_matrix: {entry_names: []}",
       ""},
      {object + ", header: {frame_id: arm}}]}", ""},
      {object + "}], octomap: {octomap: {data: [1]}}}", "octomap s:1: an octomap"},
      {object + ", meshes: [{}]}]}", "meshes s:1: a mesh in object \"a\""},
      {"world: {collision_objects: [{id: a, primitives: [{type: 4, dimensions: [1, 1]}, " + ball + "]}]}",
       "cones s:1: a cone in object \"a\""},
      {object + "}]}\nlink_padding: [{link_name: l, padding: 0.1}]",
       "link_padding s:2: link_padding 0.1 of link \"l\""},
      {object + "}]}\nlink_scale: [{link_name: l, scale: 0}]", "link_scale s:2: link_scale 0 of link \"l\""},
      {object + "}]}\nrobot_state: {attached_collision_objects: [{link_name: l, object: {id: cup}}]}",
       "attached_objects s:2: an object \"cup\" attached to link \"l\""},
  };
  const LogCapture log;
  for (const auto& [text, unhonoured] : cases) {
    const Scene scene = ParseSceneYaml(text, "s");
    EXPECT_EQ(scene.objects.at(0).parts.size(), 1u) << text;
    std::string found;
    for (const Unhonoured& one : scene.unhonoured) {
      found += std::string(ToString(one.kind)) + " " + ToText(one);
    }
    EXPECT_EQ(found, unhonoured) << text;
  }
  const Scene text = ParseSceneText(
      "n\n* o\n2\nmesh\n3 1\n0 0 0\n1 0 0\n0 1 0\n0 1 2\n0 0 0\n0 0 0 1\n0 0 0 0\n"
      "cone\n1 2\n0 0 0\n0 0 0 1\n0 0 0 0\n.\n",
      "t");
  EXPECT_EQ(ToText(text.unhonoured.at(0)) + ToText(text.unhonoured.at(1)),
            "t:4: a mesh in object \"o\"t:13: a cone in object \"o\"");
  EXPECT_THAT(log.warnings(), ElementsAre("t: The scene has no obstacle."));
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

TEST(Scene, AMatrixThatDiffersFromTheSrdfIsFound) {
  LoadedRobot robot;
  robot.bodies = {{"a", 0}, {"b", 1}, {"c", 2}, {"rigid with c", 2}};
  Srdf srdf;
  srdf.disabled_pairs = {{"b", "a", "", 0}};
  robot.srdf = std::make_shared<const Srdf>(srdf);
  const auto difference = [&](const std::string& matrix) {
    const Scene scene = ParseSceneYaml(
        "{collision_objects: [{id: o, primitives: [{type: sphere, dimensions: [1]}]}],\n"
        "allowed_collision_matrix: {" +
            matrix + "}}",
        "s");
    const auto found = FindMatrixDifference(scene, robot);
    return found ? ToText(*found) : "none";
  };
  const std::string other = " touch, other than by the robot's SRDF";
  const std::string start = "s:2: an allowed collision matrix by which ";
  const std::pair<const char*, std::string> cases[] = {
      {"", "none"},
      {"entry_names: [a, b, c], entry_values: [[0, 1, 0], [1, 0, 0], [0, 0, 1]]", "none"},
      {"entry_names: [a, b], entry_values: [{enabled: [false, true]}, {enabled: [true, false]}]", "none"},
      {"entry_names: [a, b], entry_values: [[0, 0], [0, 0]]",
       start + "links \"a\" and \"b\" must not" + other},
      {"entry_names: [a, b], entry_values: [[0, 1], [1, 0]], default_entry_names: [c], "
       "default_entry_values: [true]",
       start + "links \"a\" and \"c\" may" + other},
      // Where both have a default, both have to allow it.
      {"default_entry_names: [a, b, c, rigid with c, o], default_entry_values: [1, 1, 0, 0, 0]", "none"},
      {"entry_names: [a, b, o], entry_values: [[0, 1, 0], [1, 0, 1], [0, 1, 0]]",
       start + "link \"b\" and object \"o\" may touch"},
  };
  for (const auto& [matrix, expected] : cases) {
    EXPECT_EQ(difference(matrix), expected) << matrix;
  }
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
