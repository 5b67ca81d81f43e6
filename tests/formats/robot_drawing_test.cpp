#include "kavo/formats/robot_drawing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/world/shapes/triangle_mesh.h"
#include "tests/support/vectors.h"

namespace kavo::formats {
namespace {

using kinematics::Kinematics;

// As whoever draws the robot places a frame.
Pose3 PoseByDrawing(const RobotDrawing& drawing, const Eigen::VectorXd& q, std::size_t frame) {
  const Kinematics::Frame& joint = drawing.frames[frame].joint;
  if (joint.parent < 0) {
    return {};
  }
  Pose3 motion;
  if (joint.motion != Kinematics::Motion::kFixed) {
    const Kinematics::Ratio ratio = joint.ratio.value_or(Kinematics::Ratio());
    const double value = ratio.multiplier * q[joint.coordinate] + ratio.offset;
    const Eigen::Vector3d axis = joint.axis.normalized();
    motion = joint.motion == Kinematics::Motion::kPrismatic
                 ? Pose3::FromTranslation(value * axis)
                 : Pose3::FromRotation(Eigen::Quaterniond(Eigen::AngleAxisd(value, axis)));
  }
  return PoseByDrawing(drawing, q, static_cast<std::size_t>(joint.parent)) * joint.origin * motion;
}

// Also after bodies, one fixed to another, have come and gone.
TEST(RobotDrawing, FramesAreWhereTheRobotHasThem) {
  const FileText urdf = {"arm.urdf", R"(<robot name="arm">
    <link name="base"/><link name="turret"/><link name="slide"/><link name="jaw"/><link name="tool"/>
    <joint name="turn" type="revolute"><parent link="base"/><child link="turret"/>
      <origin xyz="0.1 0 0.3" rpy="0.3 0.2 -1"/><axis xyz="1 2 -2"/><limit lower="-2" upper="2" velocity="3"/></joint>
    <joint name="push" type="prismatic"><parent link="turret"/><child link="slide"/>
      <origin xyz="0 0.2 0" rpy="1 0 0"/><axis xyz="0 0 -1"/><limit lower="0" upper="0.5"/></joint>
    <joint name="follow" type="revolute"><parent link="slide"/><child link="jaw"/><axis xyz="0 1 0"/>
      <limit lower="-9" upper="9"/><mimic joint="turn" multiplier="-2" offset="0.5"/></joint>
    <joint name="end" type="fixed"><parent link="jaw"/><child link="tool"/><origin xyz="0 0 0.1" rpy="0 0 1"/></joint>
    </robot>)"};
  LoadedRobot robot = ParseRobot(urdf, std::nullopt, std::nullopt);
  const Pose3 offset(Eigen::Quaterniond(0.8, 0.6, 0.0, 0.0), {0.1, 0.2, 0.3});
  const std::vector<math::Sphere> ball = {{{0.0, 0.0, 0.0}, 0.1}};
  robot.description = WithAttached(*robot.description, {"tray", "jaw", offset, ball, {}});
  robot.description = WithAttached(*robot.description, {"cup", "tray", offset, ball, {}});
  robot.description = WithAttached(*robot.description, {"spoon", "cup", offset, ball, {}});
  robot.description = WithoutAttached(*robot.description, "tray");

  kavo::AttachedObject cup;
  cup.pose = offset;
  cup.parts = {{SphereObstacle{0.1}, offset}};
  const RobotDrawing drawing = DrawRobot(robot, {cup});
  const std::unique_ptr<kavo::Kinematics> kinematics = robot.description->kinematics();
  ASSERT_EQ(drawing.frames.size(), 7u);
  std::mt19937 engine(5);
  for (int repeat = 0; repeat < 20; ++repeat) {
    const Eigen::VectorXd q = testing::RandomVec(engine, 2, 0.0, 0.5);
    for (std::size_t i = 0; i < drawing.frames.size(); ++i) {
      const Pose3 pose = kinematics->pose(q, kinematics->frame(drawing.frames[i].joint.name));
      const Pose3 drawn = PoseByDrawing(drawing, q, i);
      EXPECT_TRUE(drawn.translation().isApprox(pose.translation(), 1e-12) || i == 0);
      EXPECT_TRUE(drawn.matrix().isApprox(pose.matrix(), 1e-12)) << drawing.frames[i].joint.name;
    }
  }
  EXPECT_EQ(drawing.frames[6].spheres.size(), 1u);
  EXPECT_TRUE(drawing.coordinates[1].slides);
  EXPECT_EQ(drawing.coordinates[0].velocity, 3.0);
  EXPECT_TRUE(drawing.attachments[0].pose.translation().isApprox((offset * offset).translation()));
}

TEST(RobotDrawing, LinksHaveTheSurfacesOfTheirSolids) {
  const std::string ball = "<geometry><sphere radius='0.5'/></geometry>";
  const std::string tube = "<origin xyz='0 0 9'/><geometry><cylinder radius='0.5' length='2'/></geometry>";
  const std::string missing = "<geometry><mesh filename='missing.stl'/></geometry>";
  const std::string huge = "<geometry><box size='1 1 1e300'/></geometry>";
  const auto of = [](const std::string& kind, const std::string& inside) {
    return "<" + kind + ">" + inside + "</" + kind + ">";
  };
  const FileText urdf = {
      "arm.urdf", "<robot name='r'><link name='a'>" + of("visual", ball) + of("visual", tube) +
                      of("collision", "<geometry><box size='1 2 3'/></geometry>") + "</link><link name='b'>" +
                      of("visual", ball) + of("visual", missing) + of("collision", ball) +
                      "</link><link name='c'>" + of("visual", huge) +
                      "</link><joint name='j' type='continuous'><parent link='a'/>"
                      "<child link='b'/></joint><joint name='k' type='fixed'>"
                      "<parent link='b'/><child link='c'/></joint></robot>"};
  RobotFileOptions options;
  options.cover = false;
  const RobotDrawing drawing = DrawRobot(ParseRobot(urdf, std::nullopt, std::nullopt, options));
  ASSERT_EQ(drawing.frames.size(), 3u);
  const RobotDrawing::Frame& a = drawing.frames[0];
  ASSERT_EQ(a.visual_meshes.size(), 2u);
  EXPECT_EQ(a.visual_meshes[1].pose.translation().z(), 9.0);
  const struct {
    const RobotDrawing::Mesh& mesh;
    std::string name;
    double volume;
  } cases[] = {{a.visual_meshes[0], "sphere", M_PI / 6.0},
               {a.visual_meshes[1], "cylinder", M_PI / 2.0},
               {a.collision_meshes.at(0), "box", 6.0}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.mesh.name, c.name);
    // Closed, and its faces turned outwards: the sum over tetrahedra from the origin.
    double volume = 0.0;
    const std::vector<Eigen::Vector3d>& at = c.mesh.mesh.vertices;
    for (const auto& [i, j, k] : c.mesh.mesh.triangles) {
      volume += at[i].dot(at[j].cross(at[k])) / 6.0;
    }
    EXPECT_NEAR(volume / c.volume, 0.97, 0.031) << c.name;
    EXPECT_TRUE(TriangleMesh(at, c.mesh.mesh.triangles).isClosed());
  }
  // Of a link of which something is missing, the collision geometry is left.
  EXPECT_TRUE(drawing.frames[1].visual_meshes.empty());
  EXPECT_EQ(drawing.frames[1].collision_meshes.size(), 1u);
  ASSERT_EQ(drawing.faults.size(), 2u);
  EXPECT_NE(drawing.faults[0].find("missing.stl"), std::string::npos);
}

}  // namespace
}  // namespace kavo::formats
