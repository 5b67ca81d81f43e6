"""A plan from Python: an arm takes its hand round a post, and what comes of it is checked, timed and kept.

Needs the module kavo, see bindings/python: PYTHONPATH=build/release/bindings/python python3 examples/plan_in_python.py
"""

import pickle
from pathlib import Path

import numpy as np
from numpy.typing import NDArray

import kavo

# A robot: built in, from a URDF with what is beside it, or described in code.
robot = kavo.Robot.franka()
folder = Path(__file__).parent / "own_robot"
own = kavo.load_robot(folder / "arm.urdf", folder / "arm.srdf", group="arm")
print(f"The arm has {robot.dof} joints, the robot of the files {own.dof}: {', '.join(own.coordinate_names)}")

# A world, and many balls asked about at once.
world = kavo.World()
world.add(kavo.HalfSpace(), kavo.Pose3(translation=(0.0, 0.0, -0.1)), "floor")
post = world.add(kavo.Box((0.1, 0.1, 1.0)), kavo.Pose3(translation=(0.4, 0.0, 0.5)), "post")
centers = np.random.default_rng(1).uniform(-1.0, 1.0, (10000, 3))
print(f"{world.view().in_collision(centers, 0.05).sum()} of {len(centers)} balls touch something")

# A path to a configuration, and one to a pose of the hand.
planner = kavo.Planner(robot, world, step_size=0.05)
start = robot.default_configuration
target = start.copy()
start[0] -= 1.0
target[0] += 1.0
plan = planner.plan_to_configuration(start, target, timeout=10.0)
if not plan:
    raise SystemExit(f"No path: {plan.report.status}")
print(f"{len(plan.path)} waypoints, {plan.report.num_validity_checks} configurations checked")
down = kavo.Pose3(rotation=(1.0, 0.0, 0.0, 0.0), translation=(0.3, 0.4, 0.4))
to_pose = planner.plan_to_pose(plan.path[-1], kavo.PoseGoal(down, frame="tool"))
line = planner.plan_line(to_pose.path[-1], kavo.Pose3(translation=(0.0, 0.0, -0.1)) @ down)
print(f"To the pose: {to_pose.report.status}; then 10 cm straight down: {line.end}")

# Checked by what shares nothing with the planner, and proven between the points too.
check = kavo.check_path(robot, world, plan.path)
proof = kavo.prove_path(robot, world, to_pose.path)
assert check.clearance is not None
print(f"Valid at {check.num_configurations} points, {check.clearance.distance * 1000:.1f} mm from "
      f"{check.clearance.obstacle_name} at least; the path to the pose: {proof.verdict}")

# In time.
trajectory = kavo.time_path(to_pose.path, robot, world, kavo.franka_motion_limits())
samples = trajectory.samples(0.01)
print(f"It takes {trajectory.duration:.2f} s; {samples.position.shape[0]} samples of {samples.position.shape[1]} joints")

# Same settings, same answer, bit for bit: also in another process.
robot, world, settings = pickle.loads(pickle.dumps((robot, world, planner.settings)))
again = kavo.Planner(robot, world, **settings).plan_to_configuration(start, target)
assert again.path.tobytes() == plan.path.tobytes()


# A space of your own: a rule about many configurations at once.
def is_valid(q: NDArray[np.float64]) -> NDArray[np.bool_]:
    return np.asarray(np.hypot(q[:, 0], q[:, 1]) > 0.5)


disk = kavo.CustomEnvironment((-1.0, -1.0), (1.0, 1.0), is_valid)
found = kavo.find_by_bi_rrt(disk, (-0.8, 0.0), (0.8, 0.0))
print(f"Round the disk: {found.status} by {len(found.path)} waypoints")
