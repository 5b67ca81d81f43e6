#include "kavo/formats/srdf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kavo::formats {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

TEST(Srdf, ReadsWhatItSays) {
  const Srdf srdf = ParseSrdf(R"(<?xml version="1.0"?>
<!-- About the robot. -->
<robot name="arm">
  <group name="arm">
    <joint name="j1"/><joint name="j2"/><link name="tip"/>
    <chain base_link="base" tip_link="tip"/>
    <passive_joint name="j3"/>
    <group name="hand"/>
  </group>
  <group_state name="home" group="arm">
    <joint name="j1" value="-.5"/><joint name="float" value="0 0 0 0 0 0 1"/>
  </group_state>
  <end_effector name="gripper" parent_link="tip" group="hand"/>
  <virtual_joint name="float" type="floating" parent_frame="world" child_link="base"/>
  <disable_collisions link1="base" link2="a" reason="Adjacent"/>
  <disable_collisions link1="a" link2="tip"/>
  <link_sphere_approximation link="a">
    <sphere center="1 -2 3e-1" radius="0.5"/><sphere center="0 0 0" radius="0"/>
  </link_sphere_approximation>
  <link_sphere_approximation link="tip"><sphere center="0 0 0" radius="0"/></link_sphere_approximation>
  <joint_property joint_name="j1" property_name="p" value="1"/>
</robot>)",
                              "arm.srdf");
  EXPECT_EQ(srdf.robot_name, "arm");
  ASSERT_EQ(srdf.groups.size(), 1u);
  const Srdf::Group& group = srdf.groups[0];
  EXPECT_EQ(group.line, 4);
  EXPECT_THAT(group.joints, ElementsAre("j1", "j2"));
  EXPECT_THAT(group.links, ElementsAre("tip"));
  ASSERT_EQ(group.chains.size(), 1u);
  EXPECT_EQ(group.chains[0].base_link, "base");
  EXPECT_EQ(group.chains[0].tip_link, "tip");
  EXPECT_THAT(group.subgroups, ElementsAre("hand"));
  ASSERT_EQ(srdf.group_states.size(), 1u);
  EXPECT_EQ(srdf.group_states[0].group, "arm");
  EXPECT_THAT(srdf.group_states[0].joint_values, ElementsAre(Pair("j1", -0.5)));
  ASSERT_EQ(srdf.end_effectors.size(), 1u);
  EXPECT_EQ(srdf.end_effectors[0].parent_link, "tip");
  EXPECT_EQ(srdf.end_effectors[0].parent_group, "");
  EXPECT_THAT(srdf.virtual_joints, ElementsAre("float"));
  ASSERT_EQ(srdf.disabled_pairs.size(), 2u);
  EXPECT_EQ(srdf.disabled_pairs[0].link2, "a");
  EXPECT_EQ(srdf.disabled_pairs[0].reason, "Adjacent");
  ASSERT_EQ(srdf.link_spheres.at("a").size(), 1u);
  EXPECT_EQ(srdf.link_spheres.at("a")[0].center, Eigen::Vector3d(1.0, -2.0, 0.3));
  EXPECT_EQ(srdf.link_spheres.at("a")[0].radius, 0.5);
  EXPECT_THAT(srdf.link_spheres.at("tip"), IsEmpty());
}

}  // namespace
}  // namespace kavo::formats
