#include "kavo/formats/robot_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <iomanip>
#include <locale>
#include <new>
#include <random>
#include <sstream>
#include <utility>

#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/math/constants_internal.h"
#include "tests/formats/files.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::formats {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::LogCapture;
using ::testing::Pair;
using testing::RandomVec;
using testing::Vec;

using math::kPi;

const RobotDescriptionInternal& Internal(const LoadedRobot& robot) {
  return dynamic_cast<const RobotDescriptionInternal&>(*robot.description);
}

Eigen::Isometry3d Place(const RobotDescription& robot, const Eigen::VectorXd& q, const std::string& frame) {
  const std::unique_ptr<Kinematics> kinematics = robot.kinematics();
  const Pose3 pose = kinematics->pose(q, kinematics->frame(frame));
  return Eigen::Translation3d(pose.translation()) * pose.rotation();
}

void ExpectSame(const Eigen::Isometry3d& actual, const Eigen::Isometry3d& expected,
                double tolerance = 1e-12) {
  EXPECT_LT((actual.matrix() - expected.matrix()).cwiseAbs().maxCoeff(), tolerance)
      << actual.matrix() << "\n\n"
      << expected.matrix();
}

std::string JointText(const std::string& name, const std::string& type, const std::string& parent,
                      const std::string& child, const std::string& inside = "") {
  return "<joint name='" + name + "' type='" + type + "'><parent link='" + parent + "'/><child link='" +
         child + "'/>" + inside + "</joint>\n";
}

constexpr char kLimit[] = "<limit lower='-1' upper='2' effort='1' velocity='1'/>";
constexpr char kSphere[] = "<collision><geometry><sphere radius='0.1'/></geometry></collision>";

std::string Links(const std::string& names, const std::string& inside = "") {
  std::istringstream words(names);
  std::string text;
  for (std::string name; words >> name;) {
    text += "<link name='" + name + "'>" + inside + "</link>\n";
  }
  return text;
}

LoadedRobot Parse(const std::string& urdf, const RobotFileOptions& options = {},
                  const std::optional<std::string>& srdf = {},
                  const std::optional<std::string>& spheres = {}) {
  const auto file = [](const char* name, const std::optional<std::string>& text) {
    return text ? std::optional(FileText{name, *text}) : std::nullopt;
  };
  return ParseRobot(
      {"arm.urdf", "<robot name='arm'>\n" + urdf + "</robot>\n"},
      // A whole document, or what is in one.
      file("arm.srdf",
           !srdf || srdf->find("<robot") == 0 ? srdf : "<robot name='arm'>\n" + *srdf + "</robot>\n"),
      file("arm.yaml", spheres), options);
}

// What `Parse` says against its arguments.
template <typename... Arguments>
std::string Fault(const Arguments&... arguments) {
  return testing::FileErrorOf([&] { Parse(arguments...); });
}

// base -turn-> a -slide-> b -twist (follows turn)-> c -push (follows twist)-> d, a -fixed-> e;
// b -spin-> g -trail (follows spin)-> h.
std::string Mechanism() {
  return Links("base a b c d e g h", kSphere) +
         JointText("turn", "revolute", "base", "a",
                   std::string("<origin xyz='1 -2 3' rpy='0.3 -0.4 0.5'/><axis xyz='0 0 1'/>") + kLimit) +
         JointText("slide", "prismatic", "a", "b",
                   std::string("<origin xyz='0.5 0 0'/><axis xyz='0 3 4'/>") + kLimit) +
         JointText("weld", "fixed", "a", "e", "<origin xyz='0 0.25 0' rpy='0 1.57079632679 0'/>") +
         JointText("twist", "revolute", "b", "c",
                   std::string(kLimit) + "<mimic joint='turn' multiplier='2' offset='0.1'/>") +
         JointText("push", "prismatic", "c", "d",
                   std::string("<axis xyz='0 0 -2'/>") + kLimit +
                       "<mimic joint='twist' multiplier='-0.5' offset='0.25'/>") +
         JointText("spin", "continuous", "b", "g", "<axis xyz='0 1 0'/>") +
         JointText("trail", "continuous", "g", "h", "<mimic joint='spin' multiplier='2'/>");
}

TEST(RobotFile, FramesWorkedOutFromTheNumbers) {
  RobotFileOptions options;
  options.joints = {"slide", "turn"};
  options.joint_values = {{"spin", 0.7}};
  const LoadedRobot robot = Parse(Mechanism(), options);
  EXPECT_EQ(robot.name, "arm");
  EXPECT_EQ(robot.description->cSpaceCoordName(0), "slide");

  const double turn = 0.6;
  const double slide = 0.35;
  const Eigen::VectorXd q = Vec({slide, turn});
  const auto place = [&](const char* frame) { return Place(*robot.description, q, frame); };
  const auto about = [](const Eigen::Vector3d& axis, double angle) { return Eigen::AngleAxisd(angle, axis); };
  const Eigen::Vector3d x = Eigen::Vector3d::UnitX();
  const Eigen::Vector3d y = Eigen::Vector3d::UnitY();
  const Eigen::Vector3d z = Eigen::Vector3d::UnitZ();

  // Roll, pitch and yaw about fixed axes, entry by entry.
  const double sr = std::sin(0.3), cr = std::cos(0.3);
  const double sp = std::sin(-0.4), cp = std::cos(-0.4);
  const double sy = std::sin(0.5), cy = std::cos(0.5);
  Eigen::Isometry3d origin = Eigen::Isometry3d::Identity();
  origin.linear() << cy * cp, cy * sp * sr - sy * cr, cy * sp * cr + sy * sr,  //
      sy * cp, sy * sp * sr + cy * cr, sy * sp * cr - cy * sr,                 //
      -sp, cp * sr, cp * cr;
  origin.translation() << 1.0, -2.0, 3.0;

  const Eigen::Isometry3d a = origin * about(z, turn);
  ExpectSame(place("a"), a);
  ExpectSame(place("e"), a * Eigen::Translation3d(0.0, 0.25, 0.0) * about(y, kPi / 2));
  const Eigen::Isometry3d b = a * Eigen::Translation3d(0.5, 0.6 * slide, 0.8 * slide);
  ExpectSame(place("b"), b);
  // The axis of a joint that does not name one is x.
  const double twist = 2 * turn + 0.1;
  ExpectSame(place("c"), b * about(x, twist));
  ExpectSame(place("d"), b * about(x, twist) * Eigen::Translation3d(0.0, 0.0, -(-0.5 * twist + 0.25)));
  ExpectSame(place("g"), b * about(y, 0.7));
  ExpectSame(place("h"), b * about(y, 0.7) * about(x, 1.4));
}

TEST(RobotFile, ValuesOfJointsOutsideTheCSpace) {
  const std::string text =
      Links("base a b c") + JointText("move", "continuous", "base", "a") +
      JointText("high", "prismatic", "a", "b", "<axis xyz='1 0 0'/><limit lower='0.5' upper='2'/>") +
      JointText("low", "prismatic", "b", "c", "<axis xyz='0 1 0'/><limit lower='-2' upper='-0.25'/>");
  RobotFileOptions options;
  options.joints = {"move"};
  // Zero is out of range; the nearest limit is not.
  EXPECT_EQ(Place(*Parse(text, options).description, Vec({0.0}), "c").translation(),
            Eigen::Vector3d(0.5, -0.25, 0.0));
}

TEST(RobotFile, LimitsAsUrdfSays) {
  const double inf = HUGE_VAL;
  const struct {
    std::string type;
    std::string limit;
    double lower;
    double upper;
    double velocity;
    std::string warning;
  } cases[] = {
      {"continuous", "", -inf, inf, inf, ""},
      {"continuous", "<limit lower='2' upper='x' velocity='3.5'/>", -inf, inf, 3.5, ""},
      {"revolute", "<limit effort='1' velocity='1'/>", 0.0, 0.0, 1.0, ""},
      {"revolute", "<limit upper='3141' velocity='0'/>", 0.0, 3141.0, inf, ""},
      {"revolute", "<limit lower='-6284' velocity='-1'/>", -6284.0, 0.0, inf,
       "6284 rad, more than a thousand turns"},
      {"prismatic", "<limit lower='-0.5' velocity='fast'/>", -0.5, 0.0, inf, ""},
      {"prismatic", "<limit upper='1000.5'/>", 0.0, 1000.5, inf, "1000.5 m, more than a kilometre"},
  };
  for (const auto& [type, limit, lower, upper, velocity, warning] : cases) {
    SCOPED_TRACE(type + limit);
    const LogCapture log;
    const LoadedRobot robot = Parse(Links("base a", kSphere) + JointText("j", type, "base", "a", limit));
    const kinematics::JointLimits limits = ExtractJointLimits(robot.description.get()).front();
    EXPECT_EQ(limits.min, lower);
    EXPECT_EQ(limits.max, upper);
    EXPECT_EQ(robot.motion_limits.velocity[0], velocity);
    EXPECT_EQ(log.warnings().size(), warning.empty() ? 0u : 1u);
    EXPECT_THAT(log.warnings(), Each("arm.urdf:4: joint \"j\" ranges over " + warning +
                                     ": planning will take long, if it comes to an end at all."));
  }
}

TEST(RobotFile, QuarterTurnsAreExact) {
  int number = 0;
  std::string text = Links("base tip") + JointText("move", "continuous", "base", "tip");
  std::vector<Eigen::Matrix3d> expected;
  for (int roll = -3; roll <= 4; ++roll) {
    for (int pitch = -2; pitch <= 2; ++pitch) {
      for (int yaw = -1; yaw <= 2; ++yaw) {
        // Rounded to ten places, as files have them.
        std::ostringstream rpy;
        rpy << std::fixed << std::setprecision(10) << roll * kPi / 2 << ' ' << pitch * kPi / 2 << ' '
            << yaw * kPi / 2;
        const std::string name = "f" + std::to_string(number++);
        text += Links(name) + JointText(name, "fixed", "tip", name, "<origin rpy='" + rpy.str() + "'/>");
        const Eigen::Matrix3d turn = (Eigen::AngleAxisd(yaw * kPi / 2, Eigen::Vector3d::UnitZ()) *
                                      Eigen::AngleAxisd(pitch * kPi / 2, Eigen::Vector3d::UnitY()) *
                                      Eigen::AngleAxisd(roll * kPi / 2, Eigen::Vector3d::UnitX()))
                                         .toRotationMatrix();
        expected.push_back(turn.array().round());
      }
    }
  }
  const LoadedRobot robot = Parse(text);
  const std::unique_ptr<Kinematics> kinematics = robot.description->kinematics();
  const kinematics::Kinematics& model = dynamic_cast<const KinematicsInternal&>(*kinematics).model();
  for (int i = 0; i < number; ++i) {
    const auto plan = model.plan({model.frame("f" + std::to_string(i))});
    EXPECT_EQ(plan.frames[0].offset.transform.rotation, expected[static_cast<std::size_t>(i)]) << i;
  }

  // What is not that close to a quarter turn stays what it is.
  const LoadedRobot near = Parse(Links("base tip f") + JointText("move", "continuous", "base", "tip") +
                                 JointText("f", "fixed", "tip", "f", "<origin rpy='1.5708 0 0'/>"));
  EXPECT_NEAR(Place(*near.description, Vec({0.0}), "f").matrix()(1, 1), std::cos(1.5708), 1e-15);
}

// Decimal commas, as a program's global locale may have them.
class Commas : public std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
};

TEST(RobotFile, TheBuiltInArmAsAFile) {
  const std::locale former = std::locale::global(std::locale(std::locale(), new Commas));
  const LoadedRobot robot = LoadRobot(KAVO_SOURCE_DIR "/tests/formats/data/franka.urdf");
  std::locale::global(former);
  const std::unique_ptr<RobotDescription> built_in = LoadFrankaRobotDescription();
  const auto& expected = dynamic_cast<const RobotDescriptionInternal&>(*built_in);

  EXPECT_EQ(robot.name, "franka");
  EXPECT_THAT(robot.uncovered_links, IsEmpty());
  ASSERT_EQ(robot.description->numCSpaceCoords(), 7u);
  const auto limits = ExtractJointLimits(robot.description.get());
  for (std::size_t i = 0; i < 7; ++i) {
    EXPECT_EQ(limits[i].min, expected.jointLimits()[i].min);
    EXPECT_EQ(limits[i].max, expected.jointLimits()[i].max);
  }
  ASSERT_EQ(Internal(robot).collision().frames, expected.collision().frames);
  for (const std::string& frame : expected.collision().frames) {
    const std::vector<math::Sphere> actual = Internal(robot).collision().spheresOf(frame);
    const std::vector<math::Sphere> wanted = expected.collision().spheresOf(frame);
    ASSERT_EQ(actual.size(), wanted.size()) << frame;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      EXPECT_EQ(actual[i].center, wanted[i].center);
      EXPECT_EQ(actual[i].radius, wanted[i].radius);
    }
  }
  const std::vector<std::string> frames = built_in->kinematics()->frameNames();
  std::mt19937 engine(5);
  for (int i = 0; i < 100; ++i) {
    const Eigen::VectorXd q = RandomVec(engine, 7, -3.0, 3.0);
    for (const std::string& frame : frames) {
      ExpectSame(Place(*robot.description, q, frame), Place(*built_in, q, frame));
    }
  }
}

// base -j1-> a -j2-> b -fixed-> hand -left-> left, hand -right (follows left)-> right; base -head-> head.
std::string Arm() {
  const std::string limit = kLimit;
  return Links("base a b hand left right head", kSphere) + JointText("j1", "revolute", "base", "a", limit) +
         JointText("neck", "revolute", "base", "head", limit) + JointText("j2", "revolute", "a", "b", limit) +
         JointText("mount", "fixed", "b", "hand") + JointText("left", "prismatic", "hand", "left", limit) +
         JointText("right", "prismatic", "hand", "right", limit + "<mimic joint='left'/>");
}

// Groups of that arm, good and bad.
std::string Groups() { return testing::ReadFile(KAVO_SOURCE_DIR "/tests/formats/data/arm.srdf"); }

TEST(RobotFile, CSpaceOfAGroup) {
  const struct {
    const char* group;
    std::vector<std::string> joints;
    const char* tip;
  } cases[] = {
      // Depth first, in the order of the file.
      {"", {"j1", "j2", "left", "neck"}, "left"}, {"arm", {"j1", "j2"}, "hand"},
      {"across", {"j1", "j2", "neck"}, "b"},      {"fingers", {"left"}, "left"},
      {"by_link", {"j2", "neck"}, "a"},           {"all", {"j1", "j2", "left"}, "hand"},
  };
  for (const auto& c : cases) {
    RobotFileOptions options;
    options.group = c.group;
    const LoadedRobot robot = Parse(Arm(), options, Groups());
    std::vector<std::string> joints;
    for (std::size_t i = 0; i < robot.description->numCSpaceCoords(); ++i) {
      joints.push_back(robot.description->cSpaceCoordName(i));
    }
    EXPECT_EQ(joints, c.joints) << c.group;
    EXPECT_EQ(robot.tip_frame, c.tip) << c.group;
  }
}

TEST(RobotFile, NamedConfigurations) {
  const LogCapture log;
  RobotFileOptions options;
  options.group = "arm";
  const LoadedRobot arm = Parse(Arm(), options, Groups());
  EXPECT_THAT(arm.named_configurations,
              ElementsAre(Pair("default", Vec({-0.5, 0.25})), Pair("home", Vec({5.0, 0.5})),
                          Pair("wide", Vec({1.0, 1.0}))));
  // "home" is outside the limits.
  EXPECT_EQ(arm.description->defaultCSpaceConfiguration(), Vec({-0.5, 0.25}));
  const std::string outside =
      R"(arm.srdf:16: group state "home" puts "j1" at 5, outside its limits -1 and 2.)";
  EXPECT_THAT(log.warnings(), ElementsAre(outside));

  options.group = "all";
  const LoadedRobot all = Parse(Arm(), options, Groups());
  EXPECT_THAT(all.named_configurations, ElementsAre(Pair("wide", Vec({1.0, 1.0, 2.0}))));
  EXPECT_EQ(all.description->defaultCSpaceConfiguration(), Vec({0.5, 0.5, 0.5}));
  EXPECT_THAT(log.warnings(),
              ElementsAre(outside,
                          "arm.srdf:18: group state \"default\" has no value for \"left\" and "
                          "is left out.",
                          outside));
}

TEST(RobotFile, WhatDoesNotFitInAnSrdfIsWarnedOf) {
  const LogCapture log;
  ParseRobot({"arm.urdf", "<robot name='arm'>" + Arm() + "</robot>"},
             FileText{"leg.srdf",
                      "<robot name='leg'><disable_collisions link1='a' link2='c'/>\n"
                      "<disable_collisions link1='c' link2='b'/>\n"
                      "<group_state name='up' group='x'><joint name='j3' value='0'/></group_state></robot>"},
             std::nullopt);
  EXPECT_THAT(log.warnings(),
              ElementsAre(R"(leg.srdf: is for a robot "leg", the URDF describes "arm".)",
                          R"(leg.srdf:1: collisions are disabled for "c", which is no link of the robot.)",
                          R"(leg.srdf:3: group state "up" names "j3", which is no joint of the robot.)"));
}

TEST(RobotFile, IsMadeWithJointsWhereAStatePutsThem) {
  RobotFileOptions options;
  options.joints = {"slide"};
  options.joint_values = {{"spin", 0.25}};
  const RobotFiles files({"arm.urdf", "<robot name='arm'>" + Mechanism() + "</robot>"}, std::nullopt,
                         std::nullopt, options);
  // Beyond its limit, a value that goes behind that of the options, and names without a meaning.
  const LoadedRobot robot = files.make({{"turn", 2.5}, {"spin", 9}, {"weld", 9}, {"slide", 9}, {"none", 9}});
  RobotFileOptions placed = options;
  placed.joint_values["turn"] = 1.5;
  const Eigen::VectorXd q = Vec({0.5});
  for (const char* frame : {"b", "c", "d", "e", "h"}) {
    ExpectSame(Place(*files.make({{"turn", 1.5}}).description, q, frame),
               Place(*Parse(Mechanism(), placed).description, q, frame));
  }
  const auto& joints = robot.other_joints;
  using Kind = LoadedRobot::OtherJoint::Kind;
  EXPECT_EQ(joints.size(), 6u);
  EXPECT_EQ(joints.at("turn").kind, Kind::kHeld);
  EXPECT_EQ(joints.at("turn").value(q), 2.5);
  EXPECT_EQ(joints.at("spin").value(q), 0.25);
  EXPECT_EQ(joints.at("weld").kind, Kind::kFixed);
  EXPECT_EQ(joints.at("twist").kind, Kind::kFollower);
  EXPECT_EQ(joints.at("twist").value(q), 5.1);
}

// A box, open at one side, of edges 0.2 about (1, 0, 0).
constexpr char kOpenBox[] =
    "ply\nformat ascii 1.0\nelement vertex 8\nproperty float x\nproperty float y\nproperty float z\n"
    "element face 5\nproperty list uchar int vertex_index\nend_header\n"
    "0.9 -0.1 -0.1\n1.1 -0.1 -0.1\n1.1 0.1 -0.1\n0.9 0.1 -0.1\n0.9 -0.1 0.1\n1.1 -0.1 0.1\n1.1 0.1 0.1\n"
    "0.9 0.1 0.1\n4 0 1 2 3\n4 0 1 5 4\n4 1 2 6 5\n4 2 3 7 6\n4 3 0 4 7\n";

// One link with all kinds of solids, and one that rests on it.
std::string Solids() {
  const auto collision = [](const std::string& inside) {
    return "<collision><origin xyz='1 2 3' rpy='0.1 0.2 0.3'/><geometry>" + inside +
           "</geometry></collision>";
  };
  return Links("base", collision("<box size='0.1 0.2 0.3'/>") + collision("<sphere radius='0.1'/>") +
                           collision("<cylinder radius='0.05' length='0.4'/>") +
                           collision("<mesh filename='package://parts/box.ply' scale='0.5 1 -1'/>")) +
         Links("a", kSphere) + JointText("move", "continuous", "base", "a");
}

TEST(RobotFile, WhereSpheresComeFrom) {
  const LogCapture log;
  const std::string box = "<collision><geometry><box size='1 1 1'/></geometry></collision>";
  const std::string ball =
      "<collision><origin xyz='0 0 1' rpy='1 2 3'/><geometry><sphere radius='0.5'/></geometry></collision>";
  const std::string urdf = Links("base", ball) + Links("a b c e", ball + box) + Links("d") +
                           JointText("move", "continuous", "base", "a") +
                           JointText("b", "fixed", "base", "b") + JointText("c", "fixed", "base", "c") +
                           JointText("d", "fixed", "base", "d") + JointText("e", "fixed", "base", "e");
  const std::string srdf =
      "<link_sphere_approximation link='a'><sphere center='1 2 3' radius='0.25'/></link_sphere_approximation>"
      "<link_sphere_approximation link='b'><sphere center='4 5 6' radius='0.25'/></link_sphere_approximation>"
      "<link_sphere_approximation link='c'><sphere center='0 0 0' radius='0'/></link_sphere_approximation>";
  const std::string bare = "b: [{center: [7, 8, 9], radius: 0.125}]";
  RobotFileOptions options;
  options.cover_tolerance = 0.3;
  const auto text = [](const LoadedRobot& robot) {
    const char* const sources[] = {"file", "srdf", "urdf", "cover", "none"};
    std::ostringstream out;
    for (const LoadedRobot::LinkShape& shape : robot.link_shapes) {
      out << shape.link << " " << sources[static_cast<int>(shape.source)] << " ";
      const std::vector<math::Sphere> spheres = Internal(robot).collision().spheresOf(shape.link);
      EXPECT_EQ(spheres.size(), shape.num_spheres);
      for (const math::Sphere& s : spheres) {
        if (shape.source != LoadedRobot::LinkShape::Source::kCover) {
          out << s.center.transpose().format(Eigen::IOFormat(3, 1, " ", " ")) << " " << s.radius << "; ";
        }
      }
    }
    return out.str();
  };
  const std::string given = "base urdf 0 0 1 0.5; a srdf 1 2 3 0.25; b file 7 8 9 0.125; c srdf ";
  // Files of spheres come in several forms.
  for (const std::string& form : {"collision_spheres: {" + bare + "}\nother: 1", bare,
                                  "robot_cfg: {kinematics: {other: 1, collision_spheres: {" + bare + "}}}"}) {
    EXPECT_EQ(text(Parse(urdf, options, srdf, form)), given + "e cover ");
  }
  EXPECT_THAT(log.warnings(), IsEmpty());
  options.cover = false;
  EXPECT_EQ(text(Parse(urdf, options, srdf, bare)), given + "e urdf 0 0 1 0.5; ");
  EXPECT_THAT(log.warnings(),
              ElementsAre("arm.urdf: collision geometry of 1 link is not covered by spheres and will not be "
                          "checked: \"e\" (box)."));
}

TEST(RobotFile, CoversHoldAllSolidsOfALink) {
  const testing::Folder folder;
  folder.Write("parts/box.ply", kOpenBox);
  const std::string urdf = folder.Write("arms/arm.urdf", "<robot name='arm'>" + Solids() + "</robot>");
  RobotFileOptions options;
  options.cover_tolerance = 0.05;
  const LoadedRobot robot = LoadRobot(urdf, options);
  const LoadedRobot::LinkShape& shape = robot.link_shapes[0];
  EXPECT_EQ(shape.num_boxes + shape.num_cylinders + shape.num_balls + shape.num_meshes, 4u);
  EXPECT_THAT(shape.mesh_files, ElementsAre(folder / "parts/box.ply"));
  EXPECT_EQ(shape.num_triangles, 10u);
  EXPECT_EQ(shape.tolerance, 0.05);
  EXPECT_LE(shape.bulge, 0.05);

  const Eigen::Isometry3d pose =
      Eigen::Translation3d(1.0, 2.0, 3.0) * Eigen::AngleAxisd(0.3, Eigen::Vector3d::UnitZ()) *
      Eigen::AngleAxisd(0.2, Eigen::Vector3d::UnitY()) * Eigen::AngleAxisd(0.1, Eigen::Vector3d::UnitX());
  const std::vector<math::Sphere> spheres = Internal(robot).collision().spheresOf("base");
  std::mt19937 engine(7);
  for (int i = 0; i < 2000; ++i) {
    const Eigen::Vector3d p = RandomVec(engine, 3, -1.0, 1.0);
    Eigen::Vector3d on_wall = 0.1 * p;
    on_wall[i % 2] = 0.1;
    for (const Eigen::Vector3d& point :
         {Eigen::Vector3d(0.05 * p[0], 0.1 * p[1], 0.15 * p[2]), Eigen::Vector3d(0.1 * p.normalized()),
          Eigen::Vector3d(0.05 * std::cos(9.0 * p[0]), 0.05 * std::sin(9.0 * p[0]), 0.2 * p[1]),
          // Scaled, and turned over at the open side.
          Eigen::Vector3d(0.5 * (1.0 + on_wall[0]), on_wall[1], on_wall[2]),
          Eigen::Vector3d(0.5 + 0.05 * p[0], 0.1 * p[1], 0.1)}) {
      const Eigen::Vector3d placed = pose * point;
      ASSERT_TRUE(std::any_of(spheres.begin(), spheres.end(), [&](const math::Sphere& sphere) {
        return (placed - sphere.center).norm() <= sphere.radius + 1e-9;
      })) << point.transpose();
    }
  }
  options.max_cover_spheres = 3;
  EXPECT_LE(LoadRobot(urdf, options).link_shapes[0].num_spheres, 3u);
}

TEST(RobotFile, AMeshThatCannotBeRead) {
  const testing::Folder folder;
  const std::string urdf = folder.Write("arm.urdf", "<robot name='arm'>\n" + Solids() + "</robot>");
  EXPECT_THAT(testing::FileErrorOf([&] { LoadRobot(urdf); }),
              HasSubstr("arm.urdf:2: found \"package://parts/box.ply\", which is not in " + folder.path() +
                        "/parts, "));
  RobotFileOptions options;
  options.packages["parts"] = folder.path() + "/other";
  folder.Write("other/box.ply", "ply\n");
  EXPECT_THAT(testing::FileErrorOf([&] { LoadRobot(urdf, options); }), HasSubstr("/other/box.ply:1: found "));
  options.allow_unreadable_meshes = true;
  const LogCapture log;
  const LoadedRobot robot = LoadRobot(urdf, options);
  ASSERT_EQ(robot.uncovered_links.size(), 1u);
  EXPECT_EQ(robot.uncovered_links[0].kind, "mesh");
  // The other solids are there.
  EXPECT_EQ(robot.link_shapes[0].source, LoadedRobot::LinkShape::Source::kCover);
  EXPECT_THAT(log.warnings(), ElementsAre(HasSubstr("; link \"base\" goes without it."),
                                          HasSubstr("will not be checked: \"base\" (mesh).")));
}

TEST(RobotFile, CoversAreKept) {
  const testing::Folder folder;
  const std::string cache = folder / "cache/kavo";
  folder.Write("parts/box.ply", kOpenBox);
  const std::string urdf = folder.Write("arm.urdf", "<robot name='arm'>" + Solids() + "</robot>");
  RobotFileOptions options;
  options.cover_cache = cache;
  options.cover_tolerance = 0.1;
  const auto bits = [&] {
    std::string text;
    for (const math::Sphere& sphere : Internal(LoadRobot(urdf, options)).collision().spheresOf("base")) {
      for (const double number : {sphere.center[0], sphere.center[1], sphere.center[2], sphere.radius}) {
        text.append(reinterpret_cast<const char*>(&number), sizeof number);
      }
    }
    return text;
  };
  const auto entries = [&] {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(cache)) {
      files.push_back(entry.path().string());
    }
    return files;
  };
  const std::string made = bits();
  ASSERT_EQ(entries().size(), 1u);
  const std::string file = entries()[0];
  const std::string kept = testing::ReadFile(file);
  EXPECT_EQ(bits(), made);
  // A cover that is found is one that was kept: with another number in it and a sum that fits, it would be
  // taken. Any damage shows, and is made good.
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{7}, kept.size() - 1, kept.size(), kept.size() + 8}) {
    std::string damaged = kept;
    damaged.resize(size, 'x');
    if (size == kept.size()) {
      damaged[kept.size() / 2] = static_cast<char>(damaged[kept.size() / 2] ^ 1);
    }
    folder.Write("cache/kavo/" + std::filesystem::path(file).filename().string(), damaged);
    EXPECT_EQ(bits(), made) << size;
    EXPECT_EQ(testing::ReadFile(file), kept) << size;
  }
  // Another tolerance, another scale and another place of a file, of which only the first two matter.
  options.cover_tolerance = 0.2;
  const std::string coarse = bits();
  EXPECT_NE(coarse, made);
  EXPECT_EQ(entries().size(), 2u);
  folder.Write("elsewhere/parts/box.ply", kOpenBox);
  options.packages["parts"] = folder / "elsewhere/parts";
  EXPECT_EQ(bits(), coarse);
  EXPECT_EQ(entries().size(), 2u);
  std::string longer = kOpenBox;
  longer.replace(longer.find("0.9 "), 3, "0.8");
  folder.Write("elsewhere/parts/box.ply", longer);
  bits();
  EXPECT_EQ(entries().size(), 3u);
  // A folder that cannot be.
  options.cover_cache = folder.Write("file", "") + "/below";
  options.packages.clear();
  EXPECT_EQ(bits(), coarse);
}

TEST(RobotFile, PairsThatMustNotTouch) {
  RobotFileOptions options;
  options.joints = {"j1", "j2"};
  EXPECT_THAT(Internal(Parse(Arm(), options)).collision().pairs, IsEmpty());
  options.self_collision = true;
  // Joints that are held count like others: the fingers and the head may stand where they touch something.
  EXPECT_THAT(
      Internal(Parse(Arm(), options)).collision().pairs,
      ElementsAre(Pair("base", "b"), Pair("base", "hand"), Pair("base", "left"), Pair("base", "right"),
                  Pair("a", "left"), Pair("a", "right"), Pair("a", "head"), Pair("b", "head"),
                  Pair("hand", "head"), Pair("left", "right"), Pair("left", "head"), Pair("right", "head")));
  // With pairs in the SRDF, neighbours are as good as any other.
  const std::string srdf =
      "<disable_collisions link1='b' link2='base'/><disable_collisions link1='base' link2='hand'/>"
      "<disable_collisions link1='head' link2='a'/><disable_collisions link1='a' link2='left'/>";
  EXPECT_THAT(
      Internal(Parse(Arm(), options, srdf)).collision().pairs,
      ElementsAre(Pair("base", "a"), Pair("base", "left"), Pair("base", "right"), Pair("base", "head"),
                  Pair("a", "b"), Pair("a", "hand"), Pair("a", "right"), Pair("b", "left"),
                  Pair("b", "right"), Pair("b", "head"), Pair("hand", "left"), Pair("hand", "right"),
                  Pair("hand", "head"), Pair("left", "right"), Pair("left", "head"), Pair("right", "head")));
}

TEST(RobotFile, FaultsOfTheUrdf) {
  testing::ExpectFaults("urdf", [](const std::string& text) { Parse(text); });
  const auto collision = [](const char* inside) {
    return Links("base", std::string("<collision>") + inside + "</collision>");
  };
  // What urdfdom alone objects to is in the message, and nowhere else.
  ::testing::internal::CaptureStderr();
  EXPECT_THAT(Fault(collision("<geometry><mesh filename='a.stl' scale='1 2'/></geometry>")),
              HasSubstr("arm.urdf: found what urdfdom refuses (Mesh scale"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_THROW(LoadRobot("no/such.urdf"), FileError);
  EXPECT_THROW(ParseRobot({"arm.urdf", ""}, {}, {}), FileError);
}

TEST(RobotFile, FaultsOfTheOptions) {
  const auto group = [&](const char* name) {
    RobotFileOptions options;
    options.group = name;
    return options;
  };
  const auto joints = [&](std::vector<std::string> names, std::map<std::string, double> values = {}) {
    RobotFileOptions options;
    options.joints = std::move(names);
    options.joint_values = std::move(values);
    return options;
  };
  const std::string movable = R"(expected one of "j1", "j2", "left", "neck")";
  const std::pair<RobotFileOptions, std::string> of_the_urdf[] = {
      {group("legs"), "found no group \"legs\", expected one of nothing (there are none)"},
      {joints({"j1", "j3"}), "found no joint \"j3\", " + movable},
      {joints({"mount"}), "found joint \"mount\", which is fixed, " + movable},
      {joints({"right"}), "found joint \"right\", which follows \"left\", " + movable},
      {joints({"j1", "j1"}), "found joint \"j1\" twice in the list, expected different joints"},
      {joints({"j1"}, {{"j3", 0.0}}), "found no joint \"j3\", " + movable},
  };
  for (const auto& [options, message] : of_the_urdf) {
    EXPECT_EQ(Fault(Arm(), options), "arm.urdf: " + message);
  }
  EXPECT_EQ(Fault(Arm(), joints({"j1"}, {{"j1", 0.0}})),
            "arm.urdf:9: found a value for joint \"j1\", which is a coordinate of the c-space, expected a "
            "joint outside it");
  EXPECT_EQ(Fault(Arm(), joints({"j1"}, {{"j2", 2.5}})),
            "arm.urdf:11: found the value 2.5 for joint \"j2\", expected one in [-1, 2]");

  const std::optional<std::string> groups = Groups();
  const std::optional<std::string> open = "<group name='open'><group name='none'/></group>";
  const struct {
    const char* name;
    std::optional<std::string> srdf;
    std::string message;
  } of_groups[] = {
      {"rigid", groups, "arm.urdf: found group \"rigid\" without a joint that moves, expected at least one"},
      {"snake", groups,
       "arm.srdf:10: found group \"snake\" inside itself, expected groups that do not contain each other"},
      {"typo", groups, R"(arm.srdf:11: found joint "j3" in group "typo", expected a joint of the robot)"},
      {"lost", groups, R"(arm.srdf:12: found link "c" in group "lost", expected a link of the robot)"},
      {"legs", open, R"(arm.srdf: found no group "legs", expected one of "open")"},
      {"open", open, R"(arm.srdf:2: found no group "none", expected one of "open")"},
  };
  for (const auto& [name, srdf, message] : of_groups) {
    EXPECT_EQ(Fault(Arm(), group(name), srdf), message);
  }
}

TEST(RobotFile, FaultsOfTheOtherFiles) {
  testing::ExpectFaults("srdf", [](const std::string& text) { Parse(Arm(), {}, text); });
  testing::ExpectFaults("spheres", [](const std::string& text) { Parse(Arm(), {}, std::nullopt, text); });
}

}  // namespace
}  // namespace kavo::formats
