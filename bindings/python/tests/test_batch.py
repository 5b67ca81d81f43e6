"""Many queries at once; examples/batch_planning.py tests workers, and the loss of one."""

import csv
import json
import os
import re
import subprocess
import sys
from pathlib import Path

import dask
import distributed
import pytest

import kavo
from kavo import batch

EXAMPLES = Path(__file__).resolve().parents[3] / "examples"


class Lethal:
    """Takes down the worker that it gets to."""

    def __reduce__(self):
        return os._exit, (1,)


def problem(name, target, **options):
    robot = kavo.Robot.franka()
    return batch.Problem(robot, None, robot.default_configuration, target, name=name, **options)


def test_every_problem_has_its_row(tmp_path):
    near = kavo.Robot.franka().default_configuration + 0.05
    pose = kavo.Robot.franka().pose(near, "tool")
    file = tmp_path / "planner.yaml"
    file.write_text(re.sub("^seed: .*", "seed: 5", (EXAMPLES / "planner.yaml").read_text(), flags=re.MULTILINE))
    problems = [
        problem("near", near, seed=3),
        problem("of a file", near, config_file=file, settings={"planner": "bi_rrt"}),
        problem("pose", pose, query="pose"),
        problem("far", near + 100.0),
        problem("short", near[:3]),
        problem("stepsize", near, settings={"stepsize": 1}),
        problem("seed", near, seed="7"),
    ]
    told = []
    results = batch.plan(problems, chunk_size=4, progress=lambda *counts: told.append(counts))
    assert told == [(4, 7), (7, 7)]
    table = results.table
    assert table["name"].tolist() == [one.name for one in problems]
    assert table["status"].tolist() == ["found"] * 3 + ["invalid target"] + ["error"] * 3
    assert table["seed"].tolist()[:2] == [3, 5] and table["planner"].tolist()[:2] == ["rrt_connect", "bi_rrt"]
    assert results.plans[4] is None and "FatalError" in results.errors[4] and "stepsize" in results.errors[5]
    with pytest.raises(ValueError, match="query 'line'"):
        batch.plan([problem("line", pose, query="line")])

    results.to_csv(tmp_path / "table.csv")
    with open(tmp_path / "table.csv", newline="") as stream:
        rows = list(csv.DictReader(stream))
    assert [float(row["length"]) for row in rows[:3]] == table["length"].tolist()[:3]
    assert results.to_pandas()["length"].tolist()[:3] == table["length"].tolist()[:3]


def test_a_problem_that_takes_workers_down_is_one_error():
    near = kavo.Robot.franka().default_configuration + 0.05
    problems = [problem(str(i), near) for i in range(5)]
    problems[2] = problem("2", Lethal())
    options = {"n_workers": 1, "threads_per_worker": 1, "dashboard_address": None, "silence_logs": 50}
    with dask.config.set({"distributed.scheduler.allowed-failures": 0}):
        with distributed.LocalCluster(**options) as cluster, distributed.Client(cluster) as client:
            results = batch.plan(problems, client, chunk_size=4)
            client.wait_for_workers(1)
    assert results.table["found"].tolist() == [True, True, False, True, True]
    assert results.errors[2].startswith("KilledWorker")


def test_a_benchmark_in_parts_is_the_benchmark(tmp_path):
    program = os.environ["KAVO_COMMAND"]
    folder = str(EXAMPLES / "own_robot")
    arguments = ["--robot", f"{folder}/arm.urdf", "--srdf", f"{folder}/arm.srdf", "--group", "arm", "--problems", folder]
    arguments += ["--repeat", "5"]

    def runs(json_file):
        found = json.loads(json_file.read_text())
        assert not found["stopped"]
        return [(run["seed"], run["path"]) for run in found["runs"]]

    whole, merged = tmp_path / "whole.json", tmp_path / "merged.json"
    subprocess.run([program, "bench", *arguments, "--json", whole], check=True, capture_output=True)
    own = ["--workers", "1", "--parts", "3", "--program", program, "--json", merged]
    bench = [sys.executable, "-m", "kavo.batch", "bench", *own, "--", *arguments]
    done = subprocess.run(bench, check=True, capture_output=True, text=True)
    assert runs(merged) == runs(whole) and "own_robot" in done.stdout and "3 of 3" in done.stderr
    refused = subprocess.run([*bench, "--repeat", "0"], capture_output=True, text=True)
    assert refused.returncode == 1 and "--repeat" in refused.stderr


def test_a_benchmark_that_takes_workers_down_says_so(tmp_path):
    lethal = tmp_path / "lethal"
    lethal.write_text("#!/bin/sh\nkill -9 $PPID\n")
    lethal.chmod(0o755)
    bench = [sys.executable, "-m", "kavo.batch", "bench", "--workers", "1", "--parts", "1", "--program", str(lethal)]
    environment = {**os.environ, "DASK_DISTRIBUTED__SCHEDULER__ALLOWED_FAILURES": "0"}
    done = subprocess.run([*bench, "--", "--quiet"], env=environment, capture_output=True, text=True)
    assert done.returncode == 1 and "1 in all; the last one was tcp://" in done.stderr
    assert "Traceback" not in done.stderr
