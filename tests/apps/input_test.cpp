#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/apps/robots.h"
#include "tests/apps/run_kavo.h"

namespace kavo::testing {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

using Arguments = std::vector<std::string>;

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

// What `kavo` makes of files that ask for more than a path of the planned joints.
class InputTest : public ::testing::Test {
 protected:
  // A finger that mimics the slide, and a joint that is fixed.
  static std::string Urdf() {
    return Replaced(kArmUrdf, "</robot>",
                    "<link name='finger'/><link name='mount'/>"
                    "<joint name='grip' type='prismatic'><parent link='gripper'/><child link='finger'/>"
                    "<limit lower='0' upper='1'/><mimic joint='slide' multiplier='2'/></joint>"
                    "<joint name='weld' type='fixed'><parent link='post'/><child link='mount'/></joint>"
                    "</robot>");
  }
  static std::string SrdfText() {
    return Replaced(kArmSrdf, "</robot>",
                    "<virtual_joint name='base' type='floating' parent_frame='odom' "
                    "child_link='post'/></robot>");
  }

  Outcome Run(Arguments command, const Arguments& more, const std::string& scene,
              const std::string& urdf = Urdf()) const {
    const Arguments common = {"--robot", folder_.Write("arm.urdf", urdf),
                              "--srdf",  folder_.Write("arm.srdf", SrdfText()),
                              "--group", "arm",
                              "--scene", folder_.Write("scene.yaml", scene)};
    command.insert(command.end(), common.begin(), common.end());
    command.insert(command.end(), more.begin(), more.end());
    return RunKavo(command);
  }
  Outcome Plan(const std::string& request, const Arguments& more = {}, const std::string& scene = kPegScene,
               const std::string& urdf = Urdf()) const {
    return Run({"plan", "--request", folder_.Write("request.yaml", request)}, more, scene, urdf);
  }
  Outcome Bench(const Arguments& more) const {
    Arguments arguments = {"bench", "--robot", folder_ / "arm.urdf", "--coordinates", "shoulder,elbow"};
    arguments.insert(arguments.end(), {"--problems", folder_ / "problems"});
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunKavo(arguments);
  }

  Folder folder_;
};

std::string SceneState(const std::string& names, const std::string& values) {
  return std::string(kPegScene) + "robot_state: {joint_state: {name: [" + names + "], position: [" + values +
         "]}}\n";
}

TEST_F(InputTest, JointsOutsideTheGroupStandWhereTheyArePut) {
  const std::string at_03 = Replaced(kPegRequest, "[elbow, shoulder], position: [0, 1]",
                                     "[elbow, shoulder, slide], position: [0, 1, 0.3]");
  const std::string scene = SceneState("slide", "0.2");
  const std::string typo = Replaced(kPegRequest, "joint_name: elbow", "joint_name: elbw");
  // The text is in the answer or the warnings.
  const auto expect = [&](const std::string& request, const std::string& scene_text, const Arguments& more,
                          int status, const std::string& text) {
    const Outcome plan = Plan(request, more, scene_text);
    EXPECT_EQ(plan.status, status) << text << plan.errors;
    EXPECT_THAT(plan.output + plan.errors, HasSubstr(text));
  };
  expect(kPegRequest, kPegScene, {}, 0, "path found");
  expect(kPegRequest, scene, {}, 0, "joints not planned for: 'slide' at 0.2\n");
  expect(at_03, scene, {}, 0, "joints not planned for: 'slide' at 0.3\n");
  expect(at_03, scene, {"--joint", "slide=0.1"}, 0, "joints not planned for: 'slide' at 0.1\n");
  expect(at_03, scene, {"--joint", "slide=0.1", "--json", "-"}, 0, "\"slide\": 0.1");
  expect(Replaced(kPegRequest, "group_name: arm", "group_name: leg"), kPegScene, {}, 0,
         "is for group 'leg', planned is group 'arm'");
  expect(kPegRequest, SceneState("slide", "0.7"), {}, 0, "stands at 0.7, outside its limits 0 and 0.5");
  expect(kPegRequest, SceneState("grip, slide", "0.3, 0.2"), {}, 0,
         "joint 'grip' is at 0.3 by the state, but mimics another one and stands at 0.4");
  expect(kPegRequest, SceneState("weld", "1"), {}, 0,
         "values of joint 'weld', which is fixed, are passed over");
  expect(kPegRequest, SceneState("base", "1"), {}, 0, "joint 'base', which is virtual, are passed over");
  expect(kPegRequest, SceneState("slyde", "1"), {}, 2, "scene.yaml: found a value for joint 'slyde'");
  expect(typo, kPegScene, {}, 2, "request.yaml: found a value for joint 'elbw'");
  expect(Replaced(kPegRequest, "start_state", "start_sate"), kPegScene, {}, 1,
         "found key \"start_sate\" in a request");
  expect(kPegRequest, Replaced(kPegScene, "primitives", "primitive"), {}, 2,
         "found key \"primitive\" in an object");
  expect(Replaced(kPegRequest, "joint_name: elbow", "joint_name: slide"), scene, {}, 2,
         "found a goal with joint 'slide' at 0, which is not planned for and stands at 0.2");
  expect(Replaced(kPegRequest, "position: -1", "position: 3.00005"), kPegScene, {}, 0,
         "the goal is beyond the limit 3 of joint 'shoulder' by no more than 0.0001");
  expect(Replaced(kPegRequest, "position: -1", "position: 3.00005"), kPegScene, {"--limit-tolerance", "0"}, 1,
         "the goal is not valid");
  expect(Replaced(kPegRequest, "position: -1", "position: 3.001"), kPegScene, {}, 1, "the goal is not valid");
  // The tip is where the slide puts it.
  const Outcome check = Run({"check", "--path", folder_.Write("path.csv", "0,0\n")}, {},
                            Replaced(scene, "[2, 0, 0]", "[2.6, 0, 0]"),
                            Replaced(Urdf(), "<link name=\"gripper\"/>",
                                     "<link name='gripper'><collision><geometry><sphere radius='0.2'/>"
                                     "</geometry></collision></link>"));
  EXPECT_EQ(check.status, 1);
  EXPECT_THAT(check.output, AllOf(HasSubstr("joints not planned for: 'slide' at 0.2\n"),
                                  HasSubstr("frame 'gripper' reaches 50 mm into 'peg'")));
}

TEST_F(InputTest, WhatIsNotHonouredIsRefusedUnlessIgnored) {
  const std::string ball = "{type: sphere, dimensions: [0.1]}";
  const std::string far = "primitive_poses: [{position: [9, 9, 9]}]";
  const std::string objects = "world: {collision_objects: [{id: o, primitives: [" + ball + "], " + far;
  const struct {
    std::string kind;
    std::string of_request;
    std::string scene;
  } cases[] = {
      {"path_constraints", "path_constraints: {joint_constraints: [{}]}\n", objects + "}]}"},
      {"link_scale", "", objects + "}]}\nlink_scale: [{link_name: upper, scale: 2}]"},
      {"unknown_frames", "", objects + ", header: {frame_id: hall}}]}"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.kind);
    const std::string request = c.of_request + kPegRequest;
    const Outcome refused = Plan(request, {}, c.scene);
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.errors, HasSubstr("to go on without: --ignore " + c.kind + "\n"));
    const Outcome ignored = Plan(request, {"--ignore", c.kind, "--json", folder_ / "out.json"}, c.scene);
    EXPECT_EQ(ignored.status, 0);
    EXPECT_THAT(ignored.output, HasSubstr("check: proven free with " + c.kind + " ignored at every "));
    const auto check = nlohmann::json::parse(ReadFile(folder_ / "out.json"))["check"];
    EXPECT_EQ(check["ignored"], nlohmann::json({c.kind}));
    EXPECT_EQ(check["verdict"], "proven free with " + c.kind + " ignored");
  }
  EXPECT_THAT(Plan(kPegRequest, {"--ignore", "mesh"}).errors, HasSubstr("--ignore"));

  // The same for problems.
  folder_.Write("problems/scene1.yaml", cases[1].scene);
  folder_.Write("problems/request1.yaml", kPegRequest);
  EXPECT_EQ(Bench({}).status, 2);
  EXPECT_THAT(Bench({"--ignore", "link_scale"}).output, HasSubstr("ignored in 1 of 1 problems: link_scale"));
}

TEST_F(InputTest, WhatStandsForALink) {
  const std::string urdf = Replaced(
      Urdf(), "<link name=\"gripper\"/>",
      "<link name='gripper'><collision><geometry><box size='0.1 0.1 0.1'/></geometry></collision></link>");
  const auto check = [&] { return nlohmann::json::parse(ReadFile(folder_ / "out.json"))["check"]; };
  const Outcome covered =
      Plan(kPegRequest, {"--cover", "0.05", "--json", folder_ / "out.json"}, kPegScene, urdf);
  EXPECT_THAT(covered.output, HasSubstr("check: proven for the collision geometry (cover 50 mm) at every "));
  EXPECT_EQ(check()["cover_tolerance"], 0.05);
  const Outcome refused = Plan(kPegRequest, {"--no-cover"}, kPegScene, urdf);
  EXPECT_EQ(refused.status, 2);
  EXPECT_THAT(refused.errors,
              HasSubstr("of 1 link is not covered by spheres: 'gripper' (box); leave --no-cover out, or"));

  // A mesh that is missing is refused too, unless that is allowed, and is not missed where it is.
  const std::string meshed =
      Replaced(urdf, "<box size='0.1 0.1 0.1'/>", "<mesh filename='package://grip/a.ply'/>");
  const Outcome missing = Plan(kPegRequest, {}, kPegScene, meshed);
  EXPECT_EQ(missing.status, 2);
  EXPECT_THAT(missing.errors, AllOf(HasSubstr("arm.urdf:9: found \"package://grip/a.ply\", which is not in "),
                                    HasSubstr("(--package grip=DIR)")));
  const Outcome allowed =
      Plan(kPegRequest, {"--allow-uncovered", "--json", folder_ / "out.json"}, kPegScene, meshed);
  EXPECT_EQ(allowed.status, 0);
  EXPECT_THAT(allowed.output,
              HasSubstr("check: proven free for the covered links only (not 'gripper') at every "));
  EXPECT_EQ(check()["uncovered_links"], nlohmann::json({"gripper"}));
  folder_.Write(
      "parts/a.ply",
      "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
      "element face 1\nproperty list uchar int vertex_index\nend_header\n"
      "0 0 0\n0.1 0 0\n0 0.1 0\n3 0 1 2\n");
  const std::string package = "grip=" + folder_ / "parts";
  const Outcome found =
      Plan(kPegRequest, {"--package", package, "--json", folder_ / "out.json"}, kPegScene, meshed);
  EXPECT_THAT(found.output, HasSubstr("check: proven for the collision meshes (cover "));
  EXPECT_EQ(nlohmann::json::parse(ReadFile(folder_ / "out.json"))["files"].back()["name"],
            folder_ / "parts/a.ply");
  EXPECT_EQ(Plan(kPegRequest, {"--package", "grip"}, kPegScene, meshed).status, 2);
  EXPECT_THAT(RunKavo({"info", "--robot", folder_ / "arm.urdf", "--package", package}).output,
              AllOf(ContainsRegex("post +spheres of the URDF +1 sphere +- +1 +- +-\n"),
                    ContainsRegex("gripper +cover +1 mesh +1 +[1-9][0-9]* +[0-9.]+ mm +[0-9.]+ mm\n")));

  // Written to a file, the covers are the same spheres.
  for (const std::string name : {"spheres.yaml", "spheres.srdf"}) {
    const Outcome written = RunKavo({"spheres", folder_ / "arm.urdf", "--package", package, "-o",
                                     folder_ / name, "--tolerance", "0.008"});
    EXPECT_EQ(written.status, 0) << written.errors;
    EXPECT_THAT(written.output,
                HasSubstr(": they hold every point of the collision meshes (cover 8 mm) and "));
    const auto spheres_in = [&](const std::string& srdf) {
      return srdf.substr(0, srdf.rfind("</link_sphere_approximation>"));
    };
    const auto spheres_of = [&](const Arguments& more) {
      Arguments arguments = {"pairs", "--robot", folder_ / "arm.urdf", "-o", "-", "--package", package};
      arguments.insert(arguments.end(), more.begin(), more.end());
      return spheres_in(RunKavo(arguments).output);
    };
    const std::string covered_anew = spheres_of({"--cover", "0.008"});
    EXPECT_THAT(covered_anew, HasSubstr("<link_sphere_approximation link=\"gripper\">"));
    EXPECT_EQ(name == "spheres.yaml" ? spheres_of({"--spheres", folder_ / name})
                                     : spheres_in(ReadFile(folder_ / name)),
              covered_anew)
        << name;
  }
}

TEST_F(InputTest, WhatIsHeldAllowedAndPaddedCounts) {
  // A pin 0.3 m beyond the tip at the last waypoint.
  const std::string scene =
      Replaced(Replaced(kPegScene, "[2, 0, 0]", "[1.243, 1.935, 0]"), "[0.25]", "[0.05]");
  const std::string held =
      scene +
      "robot_state: {attached_collision_objects: [{link_name: gripper, object: {id: cup, "
      "primitives: [{type: sphere, dimensions: [0.1]}], primitive_poses: [{position: "
      "[0.3, 0, 0]}]}}]}\n";
  const std::string let_touch =
      "allowed_collision_matrix: {entry_names: [cup, peg], entry_values: [[0, 1], [1, 0]]}\n";
  const struct {
    std::string scene;
    Arguments options;
    int status;
    std::string text;
  } cases[] = {
      {scene, {}, 0, "clearance: 150 mm"},
      {scene, {"--attach", "sphere:0.1@gripper,0.3,0,0"}, 1, "frame 'sphere' reaches"},
      {scene, {"--attach", "sphere:0.1@gripper,0.3,0,0", "--allow", "peg:sphere"}, 0, "clearance: 150 mm"},
      {scene, {"--padding", "0.2"}, 1, "clearance: -50.2 mm between frame 'lower' and 'peg'"},
      {scene, {"--padding", "0.2", "--padding", "lower=0.1"}, 0, "clearance: 49.8 mm"},
      {scene, {"--padding", "peg=0.2"}, 1, "clearance: -50.2 mm between frame 'lower' and 'peg'"},
      {held, {}, 1, "frame 'cup' reaches"},
      {held + let_touch, {}, 0, "clearance: 150 mm"},
      {scene + "link_padding: [{link_name: lower, padding: 0.2}]\n", {}, 1, "frame 'lower' reaches"},
      {scene, {"--attach", "sphere:0.1@claw"}, 2, "the robot has no frame 'claw'"},
      {scene, {"--allow", "lower:cup"}, 2, "--allow lower:cup: expected LINK:NAME"},
      {scene, {"--padding", "cup=0.1"}, 2, "there is no link or obstacle 'cup'"},
      {scene, {"--padding", "-0.1"}, 2, "a number of at least 0"},
  };
  const std::string path = folder_.Write("path.csv", "1.5707963267948966,0\n1,0\n");
  for (const auto& c : cases) {
    const Outcome check = Run({"check", "--path", path}, c.options, c.scene);
    EXPECT_EQ(check.status, c.status) << c.text << check.errors;
    EXPECT_THAT(check.output + check.errors, HasSubstr(c.text));
  }
  EXPECT_THAT(RunKavo({"info", "--robot", folder_ / "arm.urdf", "--scene",
                       folder_.Write("held.yaml", held + let_touch), "--padding", "lower=0.1"})
                  .output,
              AllOf(HasSubstr("'cup' is held by 'gripper', as "), HasSubstr("'cup' may touch 'peg'"),
                    HasSubstr("'lower' stays 100 mm away from obstacles")));
}

TEST_F(InputTest, ObjectsInTheFrameOfALinkAreThere) {
  const auto scene = [](const std::string& frame, const std::string& place) {
    return "collision_objects: [{id: cup, header: {frame_id: " + frame +
           "}, primitives: [{type: sphere, dimensions: [0.25]}], primitive_poses: [{position: " + place +
           "}]}]\nrobot_state: {multi_dof_joint_state: {transforms: [{translation: [0, 0, 1]}]}}";
  };
  const struct {
    std::string frame;
    std::string place;
    bool moves;
  } cases[] = {{"post", "[0, 2, 0]", false},
               {"mount", "[0, 2, 0]", false},
               {"upper", "[2, 0, 0]", true},
               {"odom", "[0, 2, 1]", false},
               {"world", "[0, 2, 1]", false}};
  // The arm points along y at the first waypoint.
  const std::string path = folder_.Write("path.csv", "1.5707963267948966,0\n1,0\n");
  for (const auto& c : cases) {
    const Outcome check = Run({"check", "--path", path}, {}, scene(c.frame, c.place));
    EXPECT_EQ(check.status, 1);
    EXPECT_THAT(check.output, HasSubstr("frame 'lower' reaches 350 mm into 'cup'")) << c.frame;
    EXPECT_EQ(check.errors.find("'cup' is given in frame 'upper', which moves") != std::string::npos,
              c.moves);
  }
  EXPECT_EQ(Run({"check", "--path", path}, {}, scene("hall", "[0, 2, 0]")).status, 2);
}

TEST_F(InputTest, TimeAndAttemptsAreBounded) {
  const Arguments few = {"--set", "max_iterations=1"};
  const std::string thrice = "num_planning_attempts: 3\n";
  const std::string hurried = "allowed_planning_time: 1e-9\n";
  EXPECT_THAT(Plan(kPegRequest, {"--time-limit", "1e-9"}).output, HasSubstr("no path: stopped"));
  EXPECT_THAT(Plan(hurried + kPegRequest).output, HasSubstr("no path: stopped"));
  EXPECT_EQ(Plan(hurried + kPegRequest, {"--time-limit", "60"}).status, 0);
  EXPECT_THAT(Plan(thrice + kPegRequest, few).errors,
              AllOf(HasSubstr("seed 1235: iterations spent"), Not(HasSubstr("seed 1236"))));

  folder_.Write("problems/scene1.yaml", kPegScene);
  folder_.Write("problems/request1.yaml", hurried + kPegRequest);
  const auto status = [&](const Arguments& more) {
    Arguments arguments = {"--json", "-"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return nlohmann::json::parse(Bench(arguments).output)["runs"][0]["status"];
  };
  EXPECT_EQ(status({}), "found");
  EXPECT_EQ(status({"--request-effort"}), "stopped");
  EXPECT_EQ(status({"--request-effort", "--time-limit", "60"}), "found");
  EXPECT_EQ(status({"--time-limit", "1e-9"}), "stopped");
}

TEST_F(InputTest, FilesWithoutEndAndControlCharacters) {
  for (const char* option : {"--scene", "--spheres", "--srdf"}) {
    const Outcome endless = RunKavo({"check", "--robot", folder_.Write("arm.urdf", Urdf()), option,
                                     "/dev/zero", "--path", folder_.Write("path.csv", "0,0,0\n")});
    EXPECT_EQ(endless.status, 2);
    EXPECT_THAT(endless.errors, HasSubstr("/dev/zero: found more than ")) << option;
  }
  EXPECT_THAT(RunKavo({"plan", "--robot", "three_link", "--start", "default", "--goal", "default", "--config",
                       "/dev/zero"})
                  .errors,
              HasSubstr("/dev/zero: found more than "));
  const Outcome check = Run({"check", "--path", folder_.Write("path.csv", "0,0\n")}, {},
                            Replaced(kPegScene, "id: peg", "id: \"\\e[31mpeg\\x9b\""));
  EXPECT_THAT(check.output, HasSubstr("into '?[31mpeg?"
                                      "?'"));
}

}  // namespace
}  // namespace kavo::testing
