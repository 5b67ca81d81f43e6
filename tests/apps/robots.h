#pragma once

namespace kavo::testing {

//! An arm in the x-y plane: two links of 1 m, hinged at "shoulder" and "elbow", and a gripper that slides out
//! along the second one. Spheres of radius 0.1 are at the shoulder and at the end of each link.
inline constexpr char kArmUrdf[] = R"(<robot name="two_link">
  <link name="post"><collision><geometry><sphere radius="0.1"/></geometry></collision></link>
  <link name="upper"><collision>
    <origin xyz="1 0 0"/><geometry><sphere radius="0.1"/></geometry>
  </collision></link>
  <link name="lower"><collision>
    <origin xyz="1 0 0"/><geometry><sphere radius="0.1"/></geometry>
  </collision></link>
  <link name="gripper"/>
  <joint name="shoulder" type="revolute">
    <parent link="post"/><child link="upper"/><axis xyz="0 0 1"/>
    <limit lower="-3" upper="3" effort="1" velocity="1"/>
  </joint>
  <joint name="elbow" type="revolute">
    <parent link="upper"/><child link="lower"/><origin xyz="1 0 0"/><axis xyz="0 0 1"/>
    <limit lower="-3" upper="3" effort="1" velocity="1"/>
  </joint>
  <joint name="slide" type="prismatic">
    <parent link="lower"/><child link="gripper"/><origin xyz="1 0 0"/><axis xyz="1 0 0"/>
    <limit lower="0" upper="0.5" effort="1" velocity="1"/>
  </joint>
</robot>
)";

inline constexpr char kArmSrdf[] = R"(<robot name="two_link">
  <group name="arm"><joint name="shoulder"/><joint name="elbow"/></group>
  <group_state name="left" group="arm">
    <joint name="shoulder" value="1"/><joint name="elbow" value="0"/>
  </group_state>
  <group_state name="right" group="arm">
    <joint name="shoulder" value="-1"/><joint name="elbow" value="0"/>
  </group_state>
  <group_state name="into_the_peg" group="arm">
    <joint name="shoulder" value="0"/><joint name="elbow" value="0"/>
  </group_state>
  <group_state name="too_far" group="arm">
    <joint name="shoulder" value="0"/><joint name="elbow" value="3.25"/>
  </group_state>
</robot>
)";

//! A ball of radius 0.25 where the stretched arm ends when it points along x.
inline constexpr char kPegScene[] = R"(name: peg
world:
  collision_objects:
    - id: peg
      primitives: [{type: sphere, dimensions: [0.25]}]
      primitive_poses: [{position: [2, 0, 0], orientation: [0, 0, 0, 1]}]
)";

//! From one side of the peg to the other.
inline constexpr char kPegRequest[] = R"(group_name: arm
start_state: {joint_state: {name: [elbow, shoulder], position: [0, 1]}}
goal_constraints:
  - joint_constraints:
      - {joint_name: shoulder, position: -1}
      - {joint_name: elbow, position: 0}
)";

}  // namespace kavo::testing
