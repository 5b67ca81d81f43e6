"""Many queries on a cluster: one arm, many worlds of balls, in one process and then by two workers, one of which is killed.

The paths are the same, bit for bit. Needs the module kavo and Dask distributed (Debian: python3-distributed):
PYTHONPATH=build/release/bindings/python python3 examples/batch_planning.py [number of problems]
"""

import logging
import os
import signal
import sys
import time
from typing import List

import numpy as np
from distributed import Client, LocalCluster

import kavo
from kavo import batch


def random_problems(number: int) -> List[batch.Problem]:
    """Five queries to each world, from one configuration that touches nothing to another."""
    robot = kavo.Robot.franka()
    rng = np.random.default_rng(1)
    problems: List[batch.Problem] = []
    while len(problems) < number:
        world = kavo.World()
        for center in rng.uniform((-0.8, -0.8, 0.1), (0.8, 0.8, 1.2), (15, 3)):
            world.add(kavo.Sphere(0.08), kavo.Pose3(translation=center))
        environment = kavo.RobotEnvironment(robot, world)
        ends = rng.uniform(robot.lower, robot.upper, (100, robot.dof))
        ends = ends[environment.are_valid(ends)]
        for start, target in zip(ends[:5], ends[5:10]):
            problems.append(batch.Problem(robot, world, start, target, settings={"planner": "bi_rrt"}, seed=1))
    return problems[:number]


def paths(results: batch.Results) -> List[bytes]:
    return [plan.path.tobytes() if plan else b"" for plan in results.plans]


def main() -> None:
    problems = random_problems(int(sys.argv[1]) if len(sys.argv) > 1 else 2000)
    begin = time.perf_counter()
    here = batch.plan(problems)
    seconds_here = time.perf_counter() - begin
    rate = len(problems) / seconds_here
    print(f"One process: {len(problems)} problems in {seconds_here:.1f} s, {rate:.0f} a second")
    for status in np.unique(here.table["status"]):
        print(f"  {(here.table['status'] == status).sum():6} {status}")

    # Workers that die are news to Dask, which would tell of it at length.
    cluster = LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None, silence_logs=logging.CRITICAL)
    with cluster, Client(cluster) as client:
        client.wait_for_workers(2)
        # So that the workers have loaded the module.
        batch.plan(problems[:20], client)
        begin = time.perf_counter()
        two = batch.plan(problems, client)
        seconds = time.perf_counter() - begin
        print(f"Two workers: {seconds:.1f} s, {len(problems) / seconds:.0f} a second, {seconds_here / seconds:.2f} times")

        pids = list(client.run(os.getpid).values())

        def kill_one(num_done: int, number: int) -> None:
            if 3 * num_done >= number and pids:
                print(f"A worker is killed after {num_done} of {number} problems")
                os.kill(pids.pop(), signal.SIGKILL)
                pids.clear()

        begin = time.perf_counter()
        bereft = batch.plan(problems, client, progress=kill_one)
        print(f"With its loss: {time.perf_counter() - begin:.1f} s, {len(bereft)} answers")
        # The one in its place has to be there to be taken down.
        client.wait_for_workers(2)

    assert not pids, "nothing was killed"
    assert paths(here) == paths(two) == paths(bereft)
    print("All three have the same paths, bit for bit")
    here.to_csv("batch.csv")


if __name__ == "__main__":
    main()
