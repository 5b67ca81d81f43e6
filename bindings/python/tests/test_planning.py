"""What a user of the module relies on, held against independent answers."""

import gc
import html.parser
import json
import logging
import os
import pickle
import re
import signal
import threading
import time
import weakref
from pathlib import Path

import jsonschema
import numpy as np
import pytest

import kavo

ROOT = Path(__file__).resolve().parents[3]
EXAMPLES = ROOT / "examples"
SCHEMAS = ROOT / "docs" / "schemas"
DOWN = (1.0, 0.0, 0.0, 0.0)


def at(*translation):
    return kavo.Pose3(translation=translation)


@pytest.fixture
def scene():
    """An arm that has to take its hand round a post."""
    robot = kavo.Robot.franka()
    world = kavo.World()
    world.add(kavo.HalfSpace(), at(0.0, 0.0, -0.1), "floor")
    world.add(kavo.Box((0.1, 0.1, 1.0)), at(0.4, 0.0, 0.5), "post")
    start = robot.default_configuration
    target = start.copy()
    start[0] -= 1.0
    target[0] += 1.0
    return robot, world, start, target


@pytest.fixture
def hopeless():
    """A search without an end: the first link of the arm would have to go through a post on either side."""
    world = kavo.World()
    for y in (-0.5, 0.5):
        world.add(kavo.Sphere(0.1), at(0.0, y, 0.0))
    planner = kavo.Planner(kavo.Robot.three_link_arm(), world, max_iterations=2_000_000_000, max_nodes=2_000_000_000)
    return lambda **options: planner.plan_to_configuration(np.zeros(3), (3.0, 0.0, 0.0), **options)


def test_a_plan_is_proven_repeated_and_survives_pickling(scene):
    robot, world, start, target = scene
    plan = kavo.Planner(robot, world, step_size=0.05, seed=7).plan_to_configuration(start, target, True)
    assert plan and plan.report.status == "found"
    assert plan.path.shape[1] == 7 and len(plan.path) > 2
    np.testing.assert_array_equal(plan.path[[0, -1]], [start, target])
    assert len(plan.interpolated_path) > len(plan.path)

    straight = kavo.check_path(robot, world, [start, target], 0.01)
    assert not straight and straight.first_bad.fault.contact.obstacle_name == "post"
    assert kavo.check_path(robot, world, plan.path)

    # Everything that goes to another process and back.
    robot, world, settings, plan_again = pickle.loads(
        pickle.dumps((robot, world, kavo.Planner(robot, step_size=0.05, seed=7).settings, plan))
    )
    assert plan_again == plan and not plan_again != plan and plan_again != plan._replace(path=plan.path[1:])
    again = kavo.Planner(robot, world, **settings).plan_to_configuration(start, target, True)
    assert again.path.tobytes() == plan.path.tobytes() == plan_again.path.tobytes()
    # A third of them would not be the same if their quaternions were scaled once more.
    for rotation in np.random.default_rng(1).normal(size=(20, 4)):
        pose = kavo.Pose3(rotation, (1.0, 2.0, 3.0))
        assert pickle.loads(pickle.dumps(pose)) == pose


def test_goals_lines_stages_and_trajectories(scene):
    robot, world, start, _ = scene
    planner = kavo.Planner(robot, world)
    above = kavo.Pose3(DOWN, (0.3, 0.4, 0.4))
    below = kavo.Pose3(DOWN, (0.3, 0.4, -0.3))
    plan = planner.plan_to_goals(start, [kavo.PoseGoal(below), kavo.PoseGoal(above, free_rotations=(False, False, True))])
    assert plan.goal == 1 and planner.report.goals[0].fault.contact.obstacle_name == "floor"
    np.testing.assert_allclose(robot.pose(plan.path[-1]).translation, above.translation, atol=1e-4)
    assert kavo.prove_path(robot, world, plan.path).verdict == "proven free"

    asked = []
    refused = planner.plan_to_pose(start, kavo.PoseGoal(above, accepts=lambda q: asked.append(q.shape)))
    assert not refused and set(asked) == {(7,)}

    position = planner.plan_to_position(start, (0.25, -0.4, 0.5))
    np.testing.assert_allclose(robot.positions(position.path[-1:]), [[0.25, -0.4, 0.5]], atol=1e-4)

    line = planner.plan_line(plan.path[-1], at(0.3, 0.4, 0.3) @ kavo.Pose3(rotation=DOWN))
    assert line and np.ptp(robot.positions(line.path)[:, :2], axis=0).max() < 1e-3

    staged = planner.plan_stages(start, [kavo.Stage([above]), kavo.Stage([line_goal(0.35)], kavo.LineOptions())])
    assert staged and staged.parts[1].line.end == "complete"

    limits = kavo.franka_motion_limits()
    trajectory = kavo.time_path(plan.path, robot, world, limits)
    samples = trajectory.samples(0.01)
    assert samples.position.shape == samples.velocity.shape == (len(samples.time), 7)
    assert (np.abs(samples.velocity) <= limits.velocity * (1.0 + 1e-9)).all()
    np.testing.assert_array_equal(trajectory.at(samples.time[3:5]).position, samples.position[3:5])
    written = np.loadtxt(trajectory.to_text(robot.coordinate_names, 0.01).splitlines()[1:], delimiter=",")
    np.testing.assert_array_equal(written, np.column_stack([*map(np.asarray, samples)]))


class FrameReader(html.parser.HTMLParser):
    """The document inside of a frame."""

    def __init__(self, text):
        super().__init__()
        self.documents = []
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        self.documents.append(dict(attributes)["srcdoc"])


def test_answers_show_what_the_planner_saw(scene):
    robot, world, start, target = scene
    hostile = '</script>"&quot;'
    world.add(kavo.Sphere(0.01), at(0.0, 0.0, 1.5), hostile)
    planner = kavo.Planner(robot, world)
    planner.keeps_searches = True
    planner.attach("stick", "tool", [(kavo.Cylinder(0.01, 0.1), at(0.0, 0.0, 0.05))])
    plan = planner.plan_to_configuration(start, target)
    # None of this is seen by a plan that was made before.
    for obstacle in world.obstacles:
        world.remove(obstacle)
    planner.update_world()
    planner.detach("stick")
    planner.set(step_size=0.01)

    document = json.loads(plan.to_json())
    jsonschema.validate(document, json.loads((SCHEMAS / "plan.schema.json").read_text()))
    assert document["path"] == plan.path.tolist() and document["start"] == start.tolist()
    assert [obstacle["name"] for obstacle in document["scene"]["obstacles"]] == ["floor", "post", hostile]
    assert [held["name"] for held in document["robot_model"]["attachments"]] == ["stick"]
    assert document["check"]["verdict"] == "proven free" and document["check"]["clearance"] < 0.2
    assert document["settings"]["step_size"] == 0.1 and document["searches"][0]["trees"][0]["nodes"]
    assert np.array_equal(np.loadtxt(plan.to_csv().splitlines()[1:], delimiter=","), plan.path)

    if kavo._kavo._has_page():
        page = plan.to_html()
        (embedded,) = re.findall('<script type="application/json" id="document">([^<]*)</script>', page)
        assert json.loads(embedded) == document
        assert FrameReader(plan._repr_html_()).documents == [page]
    else:
        assert plan._repr_html_() is None
        with pytest.raises(RuntimeError, match="built without the page"):
            plan.to_html()

    no_way = planner.plan_to_pose(start, at(5.0, 0.0, 0.0))
    assert json.loads(no_way.to_json())["stages"][0]["status"] == no_way.report.status == "unreachable target"
    staged = json.loads(planner.plan_stages(start, [kavo.Stage([target]), kavo.Stage([start])]).to_json())
    assert [stage["goal"] for stage in staged["stages"]] == [0, 0] and len(staged["searches"]) == 2
    travelled = pickle.loads(pickle.dumps(plan))
    assert travelled._repr_html_() is None and repr(travelled) == repr(plan)
    with pytest.raises(ValueError, match="planner's own"):
        travelled.to_csv()


def test_an_answer_lets_go_of_the_function_of_its_goal(scene):
    robot, world, start, target = scene

    class Asker:
        def __init__(self):
            goal = kavo.PoseGoal(robot.pose(target, "tool"), "tool", accepts=self.accepts)
            self.plan = kavo.Planner(robot, world).plan_to_pose(start, goal)

        def accepts(self, q):
            return q[0] > 0.0

    asker = Asker()
    assert asker.plan and asker.plan.path[-1][0] > 0.0 and asker.plan.to_json()
    alive = weakref.ref(asker)
    del asker
    gc.collect()
    assert alive() is None


def line_goal(height):
    return kavo.Pose3(DOWN, (0.3, 0.4, height))


def test_batches_of_spheres_agree_with_one_by_one(scene):
    world = scene[1]
    view = world.view()
    rng = np.random.default_rng(1)
    # Columns that do not lie side by side, to be read in place.
    centers = rng.uniform(-0.6, 0.6, (300, 6))[:, ::2]
    radii = rng.uniform(0.0, 0.2, 600)[::2]
    one_by_one = [view.in_collision(center, radius) for center, radius in zip(centers, radii)]
    np.testing.assert_array_equal(view.in_collision(centers, radii), one_by_one)
    assert 0 < sum(one_by_one) < 300
    nearest = view.nearest(centers)
    np.testing.assert_array_equal(nearest.distances <= radii, one_by_one)
    world.remove(nearest.obstacles[0])
    assert view.name(nearest.obstacles[0]) in ("floor", "post")
    view.update()
    assert view.name(nearest.obstacles[0]) == ""
    with pytest.raises(ValueError, match=r"\(N,\)"):
        view.in_collision(centers, radii[:5])


def test_settings_have_types_and_ranges(scene, tmp_path):
    planner = kavo.Planner(scene[0], bi_rrt_params={"range": 0.5})
    assert planner.settings["bi_rrt_params/range"] == 0.5
    before = planner.settings
    for name, value, error in [
        ("step_size", -1.0, ValueError),
        ("step_size", "0.1", TypeError),
        ("seed", 1.5, TypeError),
        ("enable_tesk_tree", 1, TypeError),
        ("max_iterations", True, TypeError),
        ("task_space_limits", [[0.0, 1.0, 2.0]], TypeError),
        ("stepsize", 0.1, KeyError),
    ]:
        with pytest.raises(error):
            planner.set_param(name, value)
    assert planner.settings == before
    assert kavo.Planner(scene[0], config_file=EXAMPLES / "planner.yaml", seed=5).settings["seed"] == 5
    (tmp_path / "planner.yaml").write_text("seed: 1\nstep_size: a\n")
    with pytest.raises(kavo.FileError) as caught:
        kavo.Planner(scene[0], config_file=str(tmp_path / "planner.yaml"))
    assert caught.value.line == 2
    planner.set_param("step_size", 1)
    planner.set(task_space_limits=np.array([[-0.5, 0.5]] * 3), distance_metric_weights=np.arange(1.0, 8.0))
    assert planner.settings["step_size"] == 1.0 and planner.settings["distance_metric_weights"][6] == 7.0


def interrupted(record):
    raise KeyboardInterrupt


def test_fatal_errors_and_records_reach_python(scene, caplog):
    with pytest.raises(kavo.FatalError, match="radius") as caught:
        kavo.World().add(kavo.Sphere(-1.0))
    assert (caught.value.file, caught.value.line) == ("world/world", 20) and "Sphere" in caught.value.message
    assert pickle.loads(pickle.dumps(caught.value)).condition == caught.value.condition
    assert caplog.records[-1].name == "kavo" and caplog.records[-1].levelno == logging.CRITICAL
    # The first that Python runs after a signal may be what a record goes through.
    logger = logging.getLogger("kavo")
    logger.addFilter(interrupted)
    try:
        with pytest.raises(KeyboardInterrupt):
            kavo.Planner(scene[0]).plan_to_configuration(scene[2] + 100.0, scene[3])
            time.sleep(0.1)
    finally:
        logger.removeFilter(interrupted)
    with pytest.raises(kavo.FatalError, match="Unknown|unknown|frame"):
        scene[0].pose(np.zeros(7), "nothing")
    with pytest.raises(kavo.FileError, match="arm.urdf"):
        kavo.Robot._parse(("arm.urdf", "<robot"), None, None, {})


def test_a_search_ends_by_time_by_a_function_and_by_a_signal(hopeless, scene):
    assert hopeless(timeout=0.05).report.status == "stopped"
    assert kavo.check_path(*scene[:2], scene[2:], 1e-7, stop=lambda: True).was_stopped

    asked = []
    assert hopeless(stop=lambda: len(asked) == 3 or asked.append(0)).report.status == "stopped"
    assert len(asked) == 3
    with pytest.raises(ZeroDivisionError):
        hopeless(stop=lambda: 1 / 0)

    # The other thread runs while the search does, and sees that the planner is taken.
    seen = []

    def interrupt():
        time.sleep(0.1)
        with pytest.raises(RuntimeError, match="in use"):
            hopeless()
        seen.append("taken")
        os.kill(os.getpid(), signal.SIGINT)

    thread = threading.Thread(target=interrupt)
    thread.start()
    # Without an end if the signal is not seen.
    with pytest.raises(KeyboardInterrupt):
        hopeless()
    thread.join()
    assert seen == ["taken"]
    assert hopeless(timeout=0.0).report.status == "stopped"
