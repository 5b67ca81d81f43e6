"""What the Python module adds to what it calls: each task here and in C++, in turns, the shortest time of each.

python_cost.py <program made of python_reference.cpp>; scripts/bench --python runs it.
"""

import logging
import os
import signal
import subprocess
import sys
import threading
import time

import numpy as np

import kavo

NUM_ITEMS = 10000
NUM_OBSTACLES = 20
NUM_PLANS = 2000
NUM_REPEATS = 30
NUM_ROUNDS = 7
NUM_INTERRUPTS = 20


def spread(number, dimension):
    return np.fmod(np.arange(1, number + 1)[:, None] * np.sqrt(2.0 + 3.0 * np.arange(dimension)), 1.0)


def shortest(repeats, work):
    best = float("inf")
    for _ in range(repeats):
        begin = time.perf_counter()
        answer = work()
        best = min(best, time.perf_counter() - begin)
    return best, answer


def in_python(world):
    robot = kavo.Robot.franka()
    planner, view, environment = kavo.Planner(robot, world), world.view(), kavo.RobotEnvironment(robot, world)
    start = robot.default_configuration
    target = start + 0.05
    centers = 2.0 * spread(NUM_ITEMS, 3) - 1.0
    q = environment.lower + spread(NUM_ITEMS, robot.dof) * (environment.upper - environment.lower)
    plan, answer = shortest(NUM_PLANS, lambda: planner.plan_to_configuration(start, target))
    spheres, touching = shortest(NUM_REPEATS, lambda: view.in_collision(centers, 0.05))
    configurations, valid = shortest(NUM_REPEATS, lambda: environment.are_valid(q))
    return {
        "plan": (plan, len(answer.path)),
        "spheres": (spheres, int(touching.sum())),
        "configurations": (configurations, int(valid.sum())),
    }


def in_cpp(program):
    lines = subprocess.run([program], check=True, capture_output=True, text=True).stdout.splitlines()
    return {name: (float(seconds), int(answer)) for name, seconds, answer in map(str.split, lines)}


def interrupt_seconds():
    """From the signal to the exception, in a search without an end."""
    world = kavo.World()
    for y in (-0.5, 0.5):
        world.add(kavo.Sphere(0.1), kavo.Pose3(translation=(0.0, y, 0.0)))
    planner = kavo.Planner(kavo.Robot.three_link_arm(), world, max_iterations=2_000_000_000, max_nodes=2_000_000_000)
    sent = []

    def interrupt():
        time.sleep(0.2)
        sent.append(time.perf_counter())
        os.kill(os.getpid(), signal.SIGINT)

    thread = threading.Thread(target=interrupt)
    try:
        thread.start()
        planner.plan_to_configuration(np.zeros(3), (3.0, 0.0, 0.0))
    except KeyboardInterrupt:
        end = time.perf_counter()
    thread.join()
    return end - sent[0]


def main():
    kavo.set_log_level(logging.CRITICAL)
    world = kavo.World()
    world.add(kavo.HalfSpace(), kavo.Pose3(translation=(0.0, 0.0, -0.1)), "floor")
    for x, y, z in spread(NUM_OBSTACLES, 3):
        world.add(kavo.Sphere(0.08), kavo.Pose3(translation=(2.0 * x - 1.0, 2.0 * y - 1.0, 0.2 + z)))
    rounds = [(in_python(world), in_cpp(sys.argv[1])) for _ in range(NUM_ROUNDS)]
    print("task             C++ us   Python us   ratio   more us")
    for name in rounds[0][0]:
        answers = {run[name][1] for pair in rounds for run in pair}
        if len(answers) != 1:
            sys.exit(f"{name}: the answers differ: {answers}")
        python, cpp = (min(pair[side][name][0] for pair in rounds) * 1e6 for side in (0, 1))
        print(f"{name:14} {cpp:8.1f} {python:11.1f} {python / cpp:7.3f} {python - cpp:9.1f}")
    waits = sorted(interrupt_seconds() * 1e3 for _ in range(NUM_INTERRUPTS))
    print(f"Ctrl-C: {waits[len(waits) // 2]:.1f} ms in the median, {waits[-1]:.1f} ms at most, of {NUM_INTERRUPTS}")


if __name__ == "__main__":
    main()
