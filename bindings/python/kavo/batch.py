"""Many queries at once: in this process, or on a cluster of Dask.

    >>> import numpy as np
    >>> import kavo
    >>> from kavo import batch
    >>> robot, world = kavo.Robot.franka(), kavo.World()
    >>> start = robot.default_configuration
    >>> targets = np.random.default_rng(1).uniform(robot.lower, robot.upper, (20, robot.dof))
    >>> problems = [batch.Problem(robot, world, start, target, seed=7) for target in targets]
    >>> results = batch.plan(problems)
    >>> len(results.plans), results.table["seed"][0], results.table["length"].shape
    (20, 7, (20,))

With `client=distributed.Client(...)` the same call gives the same paths, bit for bit.
"""

import argparse
import contextlib
import csv
import io
import logging
import os
import pickle
import shlex
import subprocess
import sys
import tempfile
from typing import Any, Callable, Dict, Iterator, List, Mapping, NamedTuple, Optional, Sequence, Set, Tuple, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from kavo._kavo import Planner, Robot, World, set_log_level
from kavo.records import Plan

File = Union[str, "os.PathLike[str]"]

_QUERIES = ("configuration", "position", "pose", "goals")
# Tasks of a worker's thread: so many that all end at about the same time.
_TASKS_PER_THREAD = 8
# Beyond it a task's overhead is nothing beside its work, and progress would be seen less often.
_MOST_PROBLEMS_PER_TASK = 256
# Of a benchmark: each reads all problems before it plans its own.
_PARTS_PER_THREAD = 4
# What fewer tasks than these need goes with them.
_FEWEST_TASKS_THAT_SHARE = 3


class Problem(NamedTuple):
    """A query, with all that its answer depends on."""

    robot: Robot
    world: Optional[World]
    #: (dof,).
    start: ArrayLike
    #: As the query takes it.
    target: Any
    #: Which one of `Planner`: "configuration", "position", "pose" or "goals".
    query: str = "configuration"
    #: Of the planner, by name.
    settings: Mapping[str, Any] = {}
    #: Goes before that of the settings.
    seed: Optional[int] = None
    #: A planner file, which `plan` reads; `settings` go before it.
    config_file: Optional[File] = None
    #: Seconds. What is stopped by it is not the same from one time to the next.
    timeout: Optional[float] = None
    #: For the table.
    name: str = ""


class Results:
    """What came of problems, in their order.

    Attributes:
        plans: A `Plan` for each; None where there is an error.
        errors: What planning raised, in words; empty where it raised nothing.
        table: A structured array, a problem to a row; times in seconds.
    """

    def __init__(self, problems: Sequence[Problem], answers: Sequence["_Answer"]) -> None:
        self.plans: List[Optional[Plan]] = [answer.plan for answer in answers]
        self.errors: List[str] = [answer.error for answer in answers]
        rows = [_row(problem, answer) for problem, answer in zip(problems, answers)]
        columns: List[Tuple[str, str]] = []
        for i, (name, kind) in enumerate(_COLUMNS):
            longest = max((len(row[i]) for row in rows), default=0) if kind == "U" else 0
            columns.append((name, f"U{max(longest, 1)}" if kind == "U" else kind))
        self.table: NDArray[np.void] = np.array(rows, dtype=columns)

    def __len__(self) -> int:
        return len(self.plans)

    def to_pandas(self) -> Any:
        """The table as a `pandas.DataFrame`."""
        import pandas

        return pandas.DataFrame.from_records(self.table)

    def to_csv(self, file: File) -> None:
        """Writes the table as CSV, the names of the columns first; numbers keep their bits."""
        with open(file, "w", encoding="utf-8", newline="") as stream:
            writer = csv.writer(stream)
            writer.writerow(self.table.dtype.names or ())
            writer.writerows(self.table.tolist())

    def to_parquet(self, file: File) -> None:
        """Writes the table as Parquet, by whichever library for it pandas finds."""
        self.to_pandas().to_parquet(file)


class _Answer(NamedTuple):
    plan: Optional[Plan]
    seed: int
    error: str


_COLUMNS = (
    ("name", "U"),
    ("seed", "i8"),
    ("found", "?"),
    ("status", "U"),
    ("error", "U"),
    ("planner", "U"),
    ("waypoints", "i8"),
    ("length", "f8"),
    ("raw_length", "f8"),
    ("search_seconds", "f8"),
    ("shortening_seconds", "f8"),
    ("iterations", "i8"),
    ("nodes", "i8"),
    ("validity_checks", "i8"),
    ("motions", "i8"),
    ("placements", "i8"),
)


def _row(problem: Problem, answer: _Answer) -> Tuple[Any, ...]:
    if answer.plan is None:
        nan = float("nan")
        return problem.name, answer.seed, False, "error", answer.error, "", 0, nan, nan, nan, nan, 0, 0, 0, 0, 0
    path, report = answer.plan.path, answer.plan.report
    length = float(np.linalg.norm(np.diff(path, axis=0), axis=1).sum()) if answer.plan else float("nan")
    return (
        problem.name,
        answer.seed,
        answer.plan.path_found,
        report.status,
        "",
        report.planner,
        len(path),
        length,
        report.raw_length if answer.plan else float("nan"),
        report.search_seconds,
        report.shortening_seconds,
        report.num_iterations,
        sum(report.num_nodes),
        report.num_validity_checks,
        report.num_motions,
        report.num_placements,
    )


def plan(
    problems: Sequence[Problem],
    client: Any = None,
    *,
    chunk_size: Optional[int] = None,
    progress: Optional[Callable[[int, int], None]] = None,
) -> Results:
    """Plans all problems, each with a planner of its own. Paths and counts are the same wherever that is done.

    What a problem raises goes into its row of the results, and the others go on. A robot or a world that many problems
    share is sent to each worker once; so let them share it. A worker that dies loses nothing: what it did is done again
    by another one. A problem that takes down whichever worker plans it is an error in its row.

    Args:
        problems: What to plan.
        client: A `distributed.Client`, whose workers have this module too; this process unless given. Meshes of robots
            are read again by the workers, from where they were.
        chunk_size: So many problems go into a task; by the number of problems and threads, up to 256, unless given.
        progress: Is told how many problems are done, and how many there are.

    Raises:
        ValueError: For a problem with a query of another name.
        FileError: For a planner file that cannot be read.
    """
    ready = _resolve(problems)
    if chunk_size is None:
        threads = sum(client.nthreads().values()) if client else 1
        chunk_size = min(-(-len(ready) // (max(threads, 1) * _TASKS_PER_THREAD)), _MOST_PROBLEMS_PER_TASK)
    chunk_size = max(chunk_size, 1)
    answers: List[Optional[_Answer]] = [None] * len(ready)
    num_done = 0
    for first, part in (_on_cluster(client, ready, chunk_size) if client else _here(ready, chunk_size)):
        answers[first : first + len(part)] = part
        num_done += len(part)
        if progress:
            progress(num_done, len(ready))
    return Results(ready, [answer for answer in answers if answer])


def _resolve(problems: Sequence[Problem]) -> List[Problem]:
    """The problems with the settings of their planner files."""
    settings: Dict[Tuple[int, str], Dict[str, Any]] = {}
    ready = []
    for problem in problems:
        if problem.query not in _QUERIES:
            raise ValueError(f"query {problem.query!r}: expected one of {', '.join(_QUERIES)}")
        if problem.config_file is not None:
            key = id(problem.robot), os.fspath(problem.config_file)
            if key not in settings:
                settings[key] = Planner(problem.robot, config_file=key[1]).settings
            problem = problem._replace(settings={**settings[key], **problem.settings}, config_file=None)
        ready.append(problem)
    return ready


def _plan_one(problem: Problem) -> _Answer:
    seed = -1
    try:
        settings = dict(problem.settings)
        if problem.seed is not None:
            settings["seed"] = problem.seed
        planner = Planner(problem.robot, problem.world, **settings)
        seed = int(settings["seed"] if "seed" in settings else planner.settings["seed"])
        query = getattr(planner, "plan_to_" + problem.query)
        return _Answer(query(problem.start, problem.target, timeout=problem.timeout), seed, "")
    except Exception as error:
        return _Answer(None, seed, f"{type(error).__name__}: {error}")


def _plan_chunk(problems: Sequence[Problem]) -> List[_Answer]:
    # What went wrong is in the answers.
    level = set_log_level(logging.CRITICAL)
    try:
        return [_plan_one(problem) for problem in problems]
    finally:
        set_log_level(level)


Parts = Iterator[Tuple[int, List[_Answer]]]


def _here(problems: Sequence[Problem], chunk_size: int) -> Parts:
    for first in range(0, len(problems), chunk_size):
        yield first, _plan_chunk(problems[first : first + chunk_size])


class _Pickler(pickle.Pickler):
    """Leaves out what is sent by itself, and says what that was."""

    def __init__(self, stream: io.BytesIO, apart: Mapping[int, Any]) -> None:
        super().__init__(stream)
        self.left_out: Dict[int, int] = {}
        self._apart = apart

    def persistent_id(self, value: Any) -> Optional[int]:
        return self.left_out.setdefault(id(value), len(self.left_out)) if id(value) in self._apart else None


class _Unpickler(pickle.Unpickler):
    def __init__(self, stream: io.BytesIO, left_out: Sequence[Any]) -> None:
        super().__init__(stream)
        self._left_out = left_out

    def persistent_load(self, index: int) -> Any:
        return self._left_out[index]


class _Submitter:
    """Makes tasks of problems, and of what many of these share tasks of its own, on which they depend.

    A task and not data that is scattered: the scheduler makes it again where the workers that had it are gone.
    """

    def __init__(self, client: Any, problems: Sequence[Problem], chunk_size: int) -> None:
        self._client = client
        self._problems = problems
        users: Dict[int, Tuple[Any, Set[int]]] = {}
        for i, problem in enumerate(problems):
            for value in (problem.robot, problem.world):
                users.setdefault(id(value), (value, set()))[1].add(i // chunk_size)
        self._apart = {
            key: client.submit(pickle.loads, pickle.dumps(value))
            for key, (value, chunks) in users.items()
            if value is not None and len(chunks) >= _FEWEST_TASKS_THAT_SHARE
        }

    def submit(self, first: int, last: int) -> Any:
        stream = io.BytesIO()
        pickler = _Pickler(stream, self._apart)
        pickler.dump(self._problems[first:last])
        left_out = [self._apart[key] for key in pickler.left_out]
        return self._client.submit(_plan_pickled, stream.getvalue(), left_out, pure=False)


def _plan_pickled(problems: bytes, left_out: Sequence[Any]) -> List[_Answer]:
    return _plan_chunk(_Unpickler(io.BytesIO(problems), left_out).load())


def _on_cluster(client: Any, problems: Sequence[Problem], chunk_size: int) -> Parts:
    from distributed import KilledWorker, as_completed

    submitter = _Submitter(client, problems, chunk_size)
    spans = {}
    for first in range(0, len(problems), chunk_size):
        last = min(first + chunk_size, len(problems))
        spans[submitter.submit(first, last)] = first, last
    # Of tasks that went down with their workers, by their own fault or by that of a neighbour.
    suspects: List[int] = []
    try:
        for future in as_completed(list(spans)):
            first, last = spans.pop(future)
            try:
                yield first, future.result()
            except KilledWorker:
                suspects.extend(range(first, last))
        for i in suspects:
            # One at a time, with nothing beside it.
            alone = submitter.submit(i, i + 1)
            spans[alone] = i, i + 1
            try:
                yield i, alone.result()
            except KilledWorker as error:
                yield i, [_Answer(None, -1, f"KilledWorker: {error}")]
            del spans[alone]
    finally:
        client.cancel(list(spans))


def _run_part(program: str, arguments: Sequence[str], part: int, number: int) -> bytes:
    """A part of a benchmark, on a worker: the JSON of its runs."""
    command = [program, "bench", *arguments, "--shard", f"{part}/{number}", "--json", "-"]
    done = subprocess.run(command, capture_output=True)
    if done.returncode != 0:
        raise RuntimeError(f"{shlex.join(command)}\n{done.stderr.decode(errors='replace')}")
    return done.stdout


def bench(
    arguments: Sequence[str],
    client: Any,
    *,
    num_parts: Optional[int] = None,
    merge_arguments: Sequence[str] = (),
    program: str = "kavo",
    progress: Optional[Callable[[int, int], None]] = None,
) -> str:
    """`kavo bench` on a cluster: each task runs a part of the problems, and `kavo merge` puts the parts together.

    Answers are those of one `kavo bench`. Times are those of workers that have as many neighbours as there are threads.

    Args:
        arguments: Of `kavo bench`, which finds the files that they name on every worker.
        client: A `distributed.Client`.
        num_parts: Four for each thread of a worker, unless given. Each of them reads all problems first.
        merge_arguments: Of `kavo merge`, such as `["--html", "bench.html"]`.
        program: The command, on every worker and here.
        progress: Is told how many parts are done, and how many there are.

    Returns:
        What `kavo merge` prints: the tables.

    Raises:
        RuntimeError: With what the command said, if it fails; or if a part has taken down as many workers as it may.
    """
    from distributed import KilledWorker, as_completed

    number = num_parts or _PARTS_PER_THREAD * max(sum(client.nthreads().values()), 1)
    futures = [client.submit(_run_part, program, list(arguments), i + 1, number, pure=False) for i in range(number)]
    try:
        with tempfile.TemporaryDirectory() as folder:
            files: List[str] = []
            for future in as_completed(futures):
                files.append(os.path.join(folder, f"{len(files)}.json"))
                with open(files[-1], "wb") as stream:
                    stream.write(future.result())
                future.release()
                if progress:
                    progress(len(files), number)
            merge = subprocess.run([program, "merge", *files, *merge_arguments], capture_output=True, text=True)
    except KilledWorker as error:
        lost = error.allowed_failures + 1
        raise RuntimeError(
            f"a part of the benchmark has taken down each worker that it was given to, {lost} in all; the last one was "
            f"{error.last_worker.address}: see what it logged, and whether its machine ran out of memory"
        ) from error
    finally:
        client.cancel(futures)
    if merge.returncode != 0:
        raise RuntimeError(merge.stderr)
    return merge.stdout


def _show(num_done: int, number: int) -> None:
    print(f"\r{num_done} of {number}", end="" if num_done < number else "\n", file=sys.stderr, flush=True)


def _main() -> None:
    parser = argparse.ArgumentParser(
        prog="python3 -m kavo.batch",
        usage="%(prog)s bench (--scheduler ADDRESS | --workers N) [options] -- <arguments of kavo bench>",
        description="kavo bench on a cluster of Dask",
    )
    parser.add_argument("what", choices=["bench"])
    where = parser.add_mutually_exclusive_group(required=True)
    where.add_argument("--scheduler", help="its address")
    where.add_argument("--workers", type=int, help="so many processes on this machine instead")
    parser.add_argument("--parts", type=int, help="how many tasks; four for each thread of a worker, unless given")
    parser.add_argument("--program", default="kavo", help="the command, on every worker and here")
    parser.add_argument("--json", metavar="FILE", help="as that of kavo bench")
    parser.add_argument("--html", metavar="FILE", help="as that of kavo bench")
    own = sys.argv[1 : sys.argv.index("--")] if "--" in sys.argv else sys.argv[1:]
    options = parser.parse_args(own)
    merge_arguments: List[str] = []
    for name in ("json", "html"):
        if vars(options)[name]:
            merge_arguments += ["--" + name, vars(options)[name]]

    from distributed import Client, LocalCluster, TimeoutError

    with contextlib.ExitStack() as stack:
        where_to = options.scheduler or stack.enter_context(
            LocalCluster(n_workers=options.workers, threads_per_worker=1, dashboard_address=None)
        )
        client = stack.enter_context(Client(where_to))
        try:
            tables = bench(
                sys.argv[len(own) + 2 :],
                client,
                num_parts=options.parts,
                merge_arguments=merge_arguments,
                program=options.program,
                progress=_show,
            )
        except RuntimeError as error:
            if options.workers:
                # One that is closed while it starts shows a traceback.
                with contextlib.suppress(TimeoutError):
                    client.wait_for_workers(options.workers, timeout=30)
            sys.exit(str(error))
    print(tables, end="")


if __name__ == "__main__":
    # By its name, by which workers know it too.
    from kavo.batch import _main as main

    main()
