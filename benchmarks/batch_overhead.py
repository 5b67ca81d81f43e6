"""What Dask adds to each task of kavo.batch.plan: tasks of more and more problems on a local worker.

In processor time, which other work on the machine changes little. scripts/bench --python runs it.
"""

import logging
import time

from distributed import Client, LocalCluster

import kavo
from kavo import batch

NUM_TASKS = 200


def main():
    robot, world = kavo.Robot.franka(), kavo.World()
    world.add(kavo.HalfSpace(), kavo.Pose3(translation=(0.0, 0.0, -0.1)))
    start = robot.default_configuration
    options = {"n_workers": 1, "threads_per_worker": 1, "dashboard_address": None, "silence_logs": logging.CRITICAL}
    with LocalCluster(**options) as cluster, Client(cluster) as client:
        client.wait_for_workers(1)

        def busy():
            return time.process_time(), sum(client.run(time.process_time).values())

        print("problems a task   planning   client and scheduler   worker beside planning   (ms of processor time a task)")
        most = 0.0
        for size in (1, 16, 256):
            problems = [batch.Problem(robot, world, start, start + 0.05, seed=i + 1) for i in range(size * NUM_TASKS)]
            batch.plan(problems[: 10 * size], client, chunk_size=size)
            begin = time.process_time()
            batch.plan(problems, chunk_size=size)
            planning = (time.process_time() - begin) / NUM_TASKS * 1e3
            before = busy()
            batch.plan(problems, client, chunk_size=size)
            here, there = ((b - a) / NUM_TASKS * 1e3 for a, b in zip(before, busy()))
            print(f"{size:15} {planning:10.2f} {here:22.2f} {there - planning:24.2f}")
            most = most or max(here, there - planning)
    print(f"From tasks of {20 * most:.0f} ms on, neither takes more than a twentieth of what one worker plans")


if __name__ == "__main__":
    main()
