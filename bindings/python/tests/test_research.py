"""The building blocks, in spaces written in Python."""

import numpy as np
import pytest

import kavo


def outside_of_disk(q):
    return np.hypot(q[:, 0], q[:, 1]) > 0.5


def square(is_valid=outside_of_disk, **options):
    return kavo.CustomEnvironment((-1.0, -1.0), (1.0, 1.0), is_valid, **options)


@pytest.mark.parametrize("find", [kavo.find_by_rrt_connect, kavo.find_by_bi_rrt])
@pytest.mark.parametrize("metric", ["euclidean", (1.0, 2.0), lambda a, b: float(np.abs(a - b).sum())])
def test_planners_and_smoothing_in_an_environment_of_ones_own(find, metric):
    found = find(square(metric=metric), (-0.8, 0.0), (0.8, 0.0))
    assert found and len(found.path) > 2
    np.testing.assert_array_equal(found.path[[0, -1]], [(-0.8, 0.0), (0.8, 0.0)])
    fractions = np.linspace(0.0, 1.0, 20)[:, None, None]
    between = (found.path[:-1] * (1.0 - fractions) + found.path[1:] * fractions).reshape(-1, 2)
    assert np.hypot(between[:, 0], between[:, 1]).min() > 0.48

    raw = find(square(), (-0.8, 0.0), (0.8, 0.0), shorten=False).path
    for shorter in (kavo.short_circuit_path(square(), raw, 0.02), kavo.shorten_by_motions(square(), raw)):
        assert length(shorter) < length(raw)
    # What is asked at once is no part of the answer.
    one_by_one = find(square(at_once=1, metric=metric), (-0.8, 0.0), (0.8, 0.0))
    np.testing.assert_array_equal(one_by_one.path, found.path)


def length(path):
    return np.linalg.norm(np.diff(path, axis=0), axis=1).sum()


def test_planners_of_points_and_of_positions():
    def outside_of_ball(q):
        return np.linalg.norm(q, axis=1) > 0.5

    room = kavo.CustomEnvironment((-1.0,) * 3, (1.0,) * 3, outside_of_ball)
    found = kavo.find_by_basic_rrt(room, (-0.8, 0.0, 0.0), (0.8, 0.0, 0.0))
    assert found and room.are_valid(found.path).all() and found.path[-1].tolist() == [0.8, 0.0, 0.0]
    nodes_spent = kavo.find_by_basic_rrt(room, (-0.8, 0.0, 0.0), (0.8, 0.0, 0.0), max_nodes=3)
    assert nodes_spent.status == "nodes spent"

    robot = kavo.Robot.three_link_arm()
    world = kavo.World()
    world.add(kavo.Sphere(0.3), kavo.Pose3(translation=(1.7, 0.6, 0.0)), "ball")
    limits = [(-2.0, 2.0), (-2.0, 2.0), (0.0, 0.0)]
    environment = kavo.RobotEnvironment(robot, world, frame="tool", task_space_limits=limits)
    found = kavo.find_by_jt_rrt(environment, (-0.4, 0.1, 0.2), (1.0, 1.2, 0.0), zone=(0.03, 0.03, 0.03))
    assert found and kavo.check_path(robot, world, found.path)
    np.testing.assert_allclose(robot.positions(found.path[-1:]), [(1.0, 1.2, 0.0)], atol=1e-5)
    with pytest.raises(ValueError, match="lower ones first"):
        kavo.RobotEnvironment(robot, world, frame="tool", task_space_limits=[(2.0, -2.0)] * 3)


def test_what_a_rule_raises_leaves_the_query():
    def broken(q):
        raise KeyError("rule")

    with pytest.raises(KeyError, match="rule"):
        kavo.find_by_bi_rrt(square(broken), (-0.8, 0.0), (0.8, 0.0))
    with pytest.raises(ValueError, match="a weight for each of the 2"):
        square(metric=(1.0, 2.0, 3.0))
    with pytest.raises(ValueError, match="of 2 coordinates"):
        kavo.short_circuit_path(square(), [[0.0], [0.5]], 0.1)
    with pytest.raises(ValueError, match="finite limits"):
        kavo.CustomEnvironment((-np.inf,), (np.inf,), outside_of_disk)
    with pytest.raises(ValueError, match="as many bools"):
        square(lambda q: True).are_valid([[0.8, 0.0], [0.0, 0.8]])
    environment = square(lambda q: environment.are_valid(q))
    with pytest.raises(RuntimeError, match="in use"):
        environment.are_valid([[0.8, 0.0]])


def test_batches_of_configurations_agree_with_one_by_one():
    robot = kavo.Robot.franka()
    world = kavo.World()
    world.add(kavo.Sphere(0.3), kavo.Pose3(translation=(0.4, 0.2, 0.5)), "ball")
    environment = kavo.RobotEnvironment(robot, world)
    q = np.random.default_rng(2).uniform(robot.lower, robot.upper, (200, 7))
    valid = environment.are_valid(q)
    np.testing.assert_array_equal(valid, [environment.fault(one) is None for one in q])
    np.testing.assert_array_equal(valid, [bool(kavo.check_path(robot, world, [one])) for one in q])
    assert 0 < valid.sum() < 200
    assert environment.are_valid([environment.sample()]).all()

    asked = []
    custom = square(lambda q: asked.append(len(q)) or outside_of_disk(q))
    q = np.random.default_rng(2).uniform(-1.1, 1.1, (200, 2))
    within = (np.abs(q) <= 1.0).all(axis=1)
    np.testing.assert_array_equal(custom.are_valid(q), within & outside_of_disk(q))
    assert asked == [within.sum()]


@pytest.mark.parametrize(
    "tree, scales",
    [
        (kavo.basic_tree(3), (1.0, 1.0, 1.0)),
        (kavo.fast_tree(3), (1.0, 1.0, 1.0)),
        (kavo.basic_tree(3, (1.0, 4.0, 9.0)), (1.0, 2.0, 3.0)),
    ],
)
def test_trees_find_the_nearest_of_all(tree, scales):
    rng = np.random.default_rng(3)
    points = rng.uniform(size=(500, 3))
    parents = np.concatenate([[-1], rng.integers(0, np.arange(1, 500))])
    tree.add(points[:200], parents[:200])
    tree.add(points[200:], parents[200:])
    np.testing.assert_array_equal(tree.nodes, points)
    queries = rng.uniform(size=(50, 3))
    nodes, _ = tree.closest(queries)
    np.testing.assert_array_equal(nodes, np.linalg.norm((queries[:, None] - points) * scales, axis=2).argmin(axis=1))
    chain = tree.backtrace(499)
    assert chain[0] == 499 and chain[-1] == 0 and all(parents[child] == up for child, up in zip(chain, chain[1:]))
    with pytest.raises(ValueError, match="node 500 has parent 500"):
        tree.add(points[:1], [500])
    assert len(tree) == 500


@pytest.mark.parametrize("options", [{}, {"split": "basic"}, {"num_reinserted": 3}])
def test_an_index_finds_the_nearest_of_all_boxes(options):
    rng = np.random.default_rng(4)
    lower = rng.uniform(size=(400, 3))
    upper = lower + rng.uniform(0.0, 0.1, size=(400, 3))
    upper[:100] = lower[:100]
    tree = kavo.RStarTree(3, min_entries_per_node=4, max_entries_per_node=10, **options)
    tree.add(lower[:100])
    tree.add(lower[100:], upper[100:])
    points = rng.uniform(-0.5, 1.5, size=(50, 3))
    distances = np.linalg.norm(points[:, None] - np.clip(points[:, None], lower, upper), axis=2)
    boxes, nearest = tree.nearest(points)
    np.testing.assert_array_equal(boxes, distances.argmin(axis=1))
    np.testing.assert_allclose(nearest, distances.min(axis=1))
    boxes, near = tree.nearest(points, approximate=True)
    np.testing.assert_allclose(near, distances[np.arange(50), boxes])
    with pytest.raises(ValueError, match="box 1"):
        tree.add(lower[:2], [upper[0], (np.inf, 1.0, 1.0)])
    with pytest.raises(ValueError, match="point 1"):
        tree.nearest([(0.0, 0.0, 0.0), (np.nan, 0.0, 0.0)])
    assert len(tree) == 400
    with pytest.raises(ValueError, match="must not be negative"):
        kavo.RStarTree(3, num_reinserted=-1)
