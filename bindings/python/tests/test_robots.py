"""Robots from files and in code, in other forms, and what they hold."""

import json
import pickle
from pathlib import Path

import numpy as np
import pytest

import kavo

OWN = Path(__file__).resolve().parents[3] / "examples" / "own_robot"
URDF = """<robot name="arm">
  <link name="base"/>
  <link name="tip"><collision><geometry><mesh filename="tip.ply"/></geometry></collision></link>
  <joint name="turn" type="revolute"><parent link="base"/><child link="tip"/><origin xyz="0 0 1"/>
    <axis xyz="0 0 1"/><limit lower="-1" upper="2" velocity="3" effort="1"/></joint>
</robot>"""
TETRAHEDRON = """ply
format ascii 1.0
element vertex 4
property float x
property float y
property float z
element face 4
property list uchar int vertex_indices
end_header
0 0 0
0.1 0 0
0 0.1 0
0 0 0.1
3 0 2 1
3 0 1 3
3 0 3 2
3 1 2 3
"""


def same(a, b):
    q = a.default_configuration
    spheres, others = a.collision_spheres, b.collision_spheres
    return (
        a.frame_names == b.frame_names
        and a.pose(q) == b.pose(q)
        and spheres.keys() == others.keys()
        and all((spheres[frame] == others[frame]).all() for frame in spheres)
    )


def test_a_robot_of_files_goes_where_its_meshes_are_not(tmp_path, monkeypatch):
    (tmp_path / "arm.urdf").write_text("<!-- größer -->" + URDF, encoding="latin-1")
    (tmp_path / "tip.ply").write_text(TETRAHEDRON)
    monkeypatch.chdir(tmp_path)
    robot = kavo.load_robot("arm.urdf")
    monkeypatch.chdir("/")
    assert same(pickle.loads(pickle.dumps(robot)), robot) and len(robot.collision_spheres["tip"]) > 0
    assert robot.motion_limits.velocity == [3.0] and (robot.lower, robot.upper) == ([-1.0], [2.0])
    with pytest.raises(kavo.FileError, match="gruop"):
        kavo.load_robot(tmp_path / "arm.urdf", group="gruop")


def test_groups_scenes_and_named_configurations():
    robot = kavo.load_robot(OWN / "arm.urdf", OWN / "arm.srdf", group="arm", cover=False)
    assert robot.dof == 5 and robot.tip_frame == "tool" and robot.named_configurations["home"].shape == (5,)
    scene = pickle.loads(pickle.dumps(kavo.load_scene(OWN / "scene.yaml")))
    world = pickle.loads(pickle.dumps(scene.world(robot)))
    assert len(world) == 3 and scene.unhonoured == [] and scene.file == str(OWN / "scene.yaml")


def test_a_request_becomes_a_start_and_goals(tmp_path):
    robot = kavo.load_robot(OWN / "arm.urdf", OWN / "arm.srdf", group="arm", cover=False)
    request = pickle.loads(pickle.dumps(kavo.load_request(OWN / "request.yaml")))
    assert request.group_name == "arm" and request.joint_state["gripper"] == 0.02
    np.testing.assert_array_equal(request.start(robot), [-0.7, 0.3, 1.9, 0.9, 0.0])
    np.testing.assert_array_equal(request.goals(robot), [[0.7, 0.3, 1.9, 0.9, 1.5708]])

    (tmp_path / "request.yaml").write_text(
        """
goal_constraints:
- joint_constraints: [{joint_name: pan, position: 0.5, tolerance_above: 0.2, tolerance_below: 0.1}]
- position_constraints: [{link_name: tool, constraint_region: {primitives: [{type: sphere, dimensions: [0.01]}],
    primitive_poses: [{position: [1.3, 0, 0.3]}]}}]
  orientation_constraints: [{link_name: tool, orientation: [1, 0, 0, 0], absolute_x_axis_tolerance: 0.1,
    absolute_y_axis_tolerance: 0.1, absolute_z_axis_tolerance: 4}]
"""
    )
    goals = kavo.load_request(tmp_path / "request.yaml").goals(robot, kavo.Pose3(translation=(1.0, 0.0, 0.0)))
    assert goals[0].above.tolist() == [0.2, 0.0, 0.0, 0.0, 0.0] and goals[0].below[0] == 0.1
    plan = kavo.Planner(robot).plan_to_goals(robot.default_configuration, goals[1:])
    tool = robot.pose(plan.path[-1], "tool")
    assert np.linalg.norm(tool.translation - (0.3, 0.0, 0.3)) <= 0.01 and tool.matrix[2, 2] < -0.98
    with pytest.raises(ValueError, match="none of the robot's joints"):
        kavo.load_request(OWN / "request.yaml").goals(kavo.Robot.franka())


def test_a_robot_in_a_scene_keeps_to_its_rules(tmp_path):
    urdf = URDF.replace('<mesh filename="tip.ply"/>', '<sphere radius="0.1"/>')
    (tmp_path / "arm.urdf").write_text(urdf)
    # The table touches the tip, the ball would touch what the tip holds, the shelf is nearer than the padding.
    (tmp_path / "scene.yaml").write_text(
        """
robot_state: {attached_collision_objects: [{link_name: tip, object: {id: cup, header: {frame_id: tip},
  pose: {position: [0, 0, 0.3]}, primitives: [{type: sphere, dimensions: [0.05]}]}}]}
collision_objects:
- {id: table, pose: {position: [0, 0, 0.85]}, primitives: [{type: sphere, dimensions: [0.1]}]}
- {id: ball, pose: {position: [0, 0.1, 1.3]}, primitives: [{type: sphere, dimensions: [0.06]}]}
- {id: shelf, pose: {position: [0.3, 0, 1]}, primitives: [{type: sphere, dimensions: [0.19]}]}
allowed_collision_matrix: {entry_names: [tip, table], entry_values: [[0, 1], [1, 0]]}
link_padding: [{link_name: tip, padding: 0.02}]
"""
    )
    scene = kavo.load_scene(str(tmp_path / "scene.yaml"))
    plain = kavo.load_robot(tmp_path / "arm.urdf")
    robot = scene.robot(plain, [0.0])
    assert scene.attached == robot.attached == ["cup"]
    for form in (robot, pickle.loads(pickle.dumps(robot))):
        contacts = []
        for alone in ("table", "ball", "shelf"):
            world = scene.world()
            for obstacle in world.obstacles:
                if world.name(obstacle) != alone:
                    world.remove(obstacle)
            seen = [kavo.RobotEnvironment(one, world).fault([0.0]) for one in (plain, form)]
            contacts.append(tuple(fault.contact.frame if fault else None for fault in seen))
        assert contacts == [("tip", None), (None, "cup"), (None, "tip")]
    plan = kavo.Planner(robot).plan_to_configuration([0.0], [0.1])
    (held,) = json.loads(plan.to_json())["robot_model"]["attachments"]
    assert held["name"] == "cup" and held["shape"] == {"sphere": {"radius": 0.05}}


def test_clouds_and_octrees_from_files(tmp_path):
    (tmp_path / "points.xyz").write_text("x y z\n0 0 0\nnan 0 0\n0.001 0 0\n1 0 0\n")
    cloud = kavo.load_point_cloud(str(tmp_path / "points.xyz"), radius=0.02)
    np.testing.assert_array_equal(cloud.points, [[0, 0, 0], [0.001, 0, 0], [1, 0, 0]])
    assert (cloud.radii == 0.02).all()
    assert len(kavo.load_point_cloud(str(tmp_path / "points.xyz"), voxel_size=0.1).points) == 2
    # A root of which the first child is occupied, the fourth free, and nothing is known of the others.
    header = b"# Octomap OcTree binary file\nid OcTree\nsize 1\nres 0.5\ndata\n"
    (tmp_path / "map.bt").write_bytes(header + bytes([0b01000010, 0]))
    octree = kavo.load_octree(str(tmp_path / "map.bt"))
    assert len(octree.centers) == 1
    assert len(kavo.load_octree(str(tmp_path / "map.bt"), unknown_is_occupied=True).centers) == 3


def test_a_robot_in_code_and_what_it_holds():
    joint = kavo.Joint("turn", "revolute", "base", "arm", axis=(0, 0, 1), limits=(-2.0, 2.0))
    tool = kavo.Joint("tool", "fixed", "arm", "tool", kavo.Pose3(translation=(0.5, 0.0, 0.0)))
    spheres = np.array([[0.0, 0.0, 0.0, 0.05]])
    robot = kavo.Robot.describe("base", [joint, tool], {"tool": spheres})
    spheres[:] = 1.0
    np.testing.assert_allclose(robot.positions([[0.0], [np.pi / 2]]), [[0.5, 0, 0], [0, 0.5, 0]], atol=1e-15)
    np.testing.assert_allclose(robot.position_jacobian([0.0]), [[0.0], [0.5], [0.0]], atol=1e-15)

    world = kavo.World()
    world.add(kavo.Box((0.1, 0.1, 0.1)), kavo.Pose3(translation=(0.6, 0.0, 0.0)), "box")
    planner = kavo.Planner(robot, world, task_space_frame_name="tool")
    start, target = [0.0], [1.5]
    assert planner.plan_to_configuration(start, target).report.fault.contact.obstacle_name == "box"
    planner.attach_from_world("box", "tool", start)
    assert len(world) == 0 and planner.plan_to_configuration(start, target)
    holding = planner.robot
    assert holding.attached == ["box"] and same(pickle.loads(pickle.dumps(holding)), holding)
    (box,) = planner.detach_into_world("box", target)
    np.testing.assert_allclose(world.pose(box).translation, 0.6 * np.array([np.cos(1.5), np.sin(1.5), 0.0]))
    assert planner.robot.attached == [] and same(pickle.loads(pickle.dumps(planner.robot)), robot)
    assert holding.attached == ["box"] and len(pickle.dumps(planner.robot)) == len(pickle.dumps(robot))
