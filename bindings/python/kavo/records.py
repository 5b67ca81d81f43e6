"""What is asked for and what is answered, as plain data: all of it prints, compares field by field and pickles.

Lengths are metres, angles radians, times seconds. `dof` is the number of coordinates of the robot, N a number of
configurations. Arrays hold doubles.
"""

import html
from typing import Any, Callable, List, NamedTuple, Optional, Sequence, Tuple, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from kavo._kavo import Box, Cylinder, Pose3, Sphere, _Account, _has_page

Array = NDArray[np.float64]
Indices = NDArray[np.int64]


class Joint(NamedTuple):
    """A joint, and the frame that it carries."""

    #: Of the joint and of the coordinate that it is.
    name: str
    #: "fixed", "revolute", "continuous" or "prismatic".
    type: str
    parent: str
    child: str
    #: Of the joint in the parent frame.
    origin: Pose3 = Pose3()
    #: It turns about it or slides along it; of any length but zero.
    axis: Sequence[float] = (0.0, 0.0, 1.0)
    #: Lower and upper; a revolute or prismatic joint needs them.
    limits: Optional[Tuple[float, float]] = None
    #: In the default configuration; the middle of the limits unless given.
    default: Optional[float] = None
    #: The joint that it follows, and a multiplier and an offset: then it is no coordinate.
    mimic: Optional[Tuple[str, float, float]] = None
    #: Where it stays: then it is no coordinate.
    held: Optional[float] = None


class AxisTolerances(NamedTuple):
    """How far a tool may be turned, for each axis by itself."""

    #: (3,); pi or more leaves the turn free.
    angles: ArrayLike
    #: "euler_angles" (x, then y, then z of the turned tool) or "rotation_vector".
    parameterization: str = "euler_angles"


class PoseGoal(NamedTuple):
    """Where a frame of a robot is to end."""

    #: Of the tool, relative to the robot's base.
    pose: Pose3
    #: Empty: the task-space frame of the planner.
    frame: str = ""
    #: In the frame; the frame itself unless given.
    tool: Pose3 = Pose3()
    #: Positive; the planner's settings unless given.
    position_tolerance: Optional[float] = None
    orientation_tolerance: Optional[float] = None
    #: Along and about which axes of `pose` nothing is asked for.
    free_translations: Tuple[bool, bool, bool] = (False, False, False)
    free_rotations: Tuple[bool, bool, bool] = (False, False, False)
    #: In place of the position: the tool's origin is to be in one of these, placed relative to the base.
    regions: Sequence[Tuple[Union[Box, Sphere, Cylinder], Pose3]] = ()
    #: In place of the tolerance of orientation.
    axis_tolerances: Optional[AxisTolerances] = None
    #: What else a configuration (dof,) has to be. It must not call the planner.
    accepts: Optional[Callable[[Array], bool]] = None


class ConfigurationGoal(NamedTuple):
    """A configuration, and how far each coordinate may be from it; all (dof,)."""

    configuration: ArrayLike
    below: ArrayLike
    above: ArrayLike


#: One of several goals.
Goal = Union[PoseGoal, ConfigurationGoal, Pose3, ArrayLike]


class LineOptions(NamedTuple):
    """How closely a tool keeps to a line. All positive."""

    #: The most from one waypoint to the next: metres, and radians.
    step: float = 0.005
    angle_step: float = 0.05
    #: At waypoints.
    position_tolerance: float = 1e-5
    orientation_tolerance: float = 1e-4
    #: Between them, by proof.
    max_deviation: float = 1e-3
    max_angle: float = 1e-2
    #: Beyond that a coordinate jumps.
    max_joint_step: float = 0.2


class Stage(NamedTuple):
    """One of the stages of a motion."""

    #: To end in any one of these.
    goals: Sequence[Goal]
    #: With these the tool goes there on a line; just one goal then, a pose.
    line: Optional[LineOptions] = None


class LimitFault(NamedTuple):
    """A coordinate beyond its range."""

    coordinate: int
    value: float
    lower: float
    upper: float


class Contact(NamedTuple):
    """A collision sphere of the robot that touches an obstacle."""

    frame: str
    #: Index among the spheres of the frame.
    sphere: int
    #: In the world (3,).
    center: Array
    radius: float
    #: Its id and its name.
    obstacle: int
    obstacle_name: str
    #: How far the sphere reaches into it.
    depth: float


class SelfContact(NamedTuple):
    """Two collision spheres of the robot that touch each other and must not."""

    frames: Tuple[str, str]
    spheres: Tuple[int, int]
    depth: float


class Fault(NamedTuple):
    """Why a configuration is not valid: one of these."""

    limit: Optional[LimitFault]
    contact: Optional[Contact]
    self_contact: Optional[SelfContact]
    #: A frame with a sphere whose place is not a finite number.
    unplaced_frame: Optional[str]


class NearestPose(NamedTuple):
    """A configuration, and how far the frame is from its target there."""

    #: (dof,).
    q: Array
    position_error: float
    orientation_error: float
    #: Coordinates that would have to go beyond their limits to come nearer.
    coordinates_at_limits: List[int]


class InverseKinematicsResult(NamedTuple):
    """What a search for configurations found."""

    #: (N, dof), within the limits.
    solutions: Array
    #: Where no configuration has the pose: the nearest.
    nearest: Optional[NearestPose]
    num_restarts: int
    #: Configurations with the pose that were not accepted.
    num_filtered: int


class GoalReport(NamedTuple):
    """What became of one of several goals."""

    #: That the search could end in.
    num_configurations: int
    #: Of a pose: those that are not valid, those that were not accepted, and random restarts.
    num_rejected: int
    num_not_accepted: int
    num_restarts: int
    #: Why the goal is of no use, if it is.
    fault: Optional[Fault]
    is_too_close: bool
    #: (dof,), that either is said of.
    refused: Optional[Array]
    nearest: Optional[NearestPose]


class QueryReport(NamedTuple):
    """What a query did, and why it found no path if it found none."""

    #: "found", "invalid start", "invalid target", "sampling failed", "iterations spent", "stopped", "nodes spent",
    #: "start too close", "target too close", "unreachable target", "line ends early".
    status: str
    fault: Optional[Fault]
    num_iterations: int
    num_nodes: List[int]
    num_validity_checks: int
    num_samples_drawn: int
    num_samples_rejected: int
    num_raw_waypoints: int
    raw_length: float
    search_seconds: float
    shortening_seconds: float
    was_shortening_stopped: bool
    first_invalid_interpolated: Optional[int]
    planner: str
    num_motions: int
    num_placements: int
    num_divisions: int
    goals: List[GoalReport]


class _WithAccount:
    """An answer that can be shown. What it takes goes along with it and is no part of its value."""

    _account: Optional[_Account] = None

    def __reduce__(self) -> Tuple[Any, ...]:
        return type(self), tuple(self)  # type: ignore[arg-type]

    def _told(self) -> _Account:
        if self._account is None:
            raise ValueError("only the planner's own answer can be shown, not one that was pickled or made of its fields")
        return self._account

    def to_html(self) -> str:
        """A page for a browser, without anything beside it: robot, obstacles, motion, what a proof of the path says.

        It is about robot, world and settings as they were when the answer was given, and shows the search, too, if
        `Planner.keeps_searches` was set. Drawing and proof are made now, in some milliseconds.

        Raises:
            RuntimeError: If the module was built without the page.
            ValueError: For what is not the planner's own answer, such as one that was pickled.
        """
        return self._told().to_html()

    def to_json(self) -> str:
        """All that the page shows, in the form that `kavo plan --json` writes. Raises ValueError as `to_html`."""
        return self._told().to_json()

    def to_csv(self) -> str:
        """The waypoints: a line of the coordinates' names, then a configuration to a line. Raises ValueError likewise."""
        return self._told().to_csv()

    def _repr_html_(self) -> Optional[str]:
        """For a notebook: the page in a frame of its own. Nothing where there is none, and the text is shown then."""
        if self._account is None or not _has_page():
            return None
        # Scripts of the page need no more than to run: they see nothing of the notebook.
        return (
            '<iframe sandbox="allow-scripts" style="width: 100%; height: 720px; border: 0" '
            f'srcdoc="{html.escape(self.to_html())}"></iframe>'
        )


class _PlanFields(NamedTuple):
    path_found: bool
    #: Waypoints, start first (N, dof); no rows if none was found.
    path: Array
    #: With points in between, if they were asked for (N, dof).
    interpolated_path: Array
    #: Of several goals the index of the one that the path ends in.
    goal: Optional[int]
    report: QueryReport


class Plan(_PlanFields, _WithAccount):
    """The answer to a query. True if a path was found."""

    def __bool__(self) -> bool:
        return self.path_found


class LineMotion(NamedTuple):
    """A path along a line, as far as it goes. True if it is complete."""

    #: "complete", "invalid start", "unreachable", "jump", "contact", "astray", "stopped".
    end: str
    #: (N, dof), start first.
    path: Array
    #: How much of the line it covers, in [0, 1].
    fraction: float
    #: Nowhere is the tool farther off: metres, and radians.
    deviation: float
    angle: float
    fault: Optional[Fault]
    #: (dof,): would have come next.
    blocked: Optional[Array]
    nearest: Optional[NearestPose]
    #: The coordinate that would jump.
    jumping: Optional[int]

    def __bool__(self) -> bool:
        return self.end == "complete"


class StageAhead(NamedTuple):
    """A line after a stage that cannot be gone from where the stage might end."""

    stage: int
    line: LineMotion


class StagePart(NamedTuple):
    """What became of a stage."""

    #: Waypoints of the path, by index.
    first: int
    last: int
    goal: Optional[int]
    report: QueryReport
    line: Optional[LineMotion]
    ahead: Optional[StageAhead]


class _StagedPlanFields(NamedTuple):
    path_found: bool
    #: (N, dof), of the parts that were found.
    path: Array
    parts: List[StagePart]


class StagedPlan(_StagedPlanFields, _WithAccount):
    """A motion of several stages. True if all are done."""

    def __bool__(self) -> bool:
        return self.path_found


class SearchTree(NamedTuple):
    """A tree that a search grew."""

    #: "start" or "goal".
    root: str
    #: (N, dof).
    nodes: Array
    #: (N,): the node that each grew from; -1 for a root.
    parents: Indices


class Search(NamedTuple):
    """What a search left behind."""

    planner: str
    trees: List[SearchTree]
    #: As it was found, not shortened yet (N, dof).
    raw_path: Array


class Nearest(NamedTuple):
    """The obstacles nearest to some points."""

    #: Signed (N,), negative inside; infinite where there is no obstacle.
    distances: Array
    #: Ids (N,); -1 where there is none.
    obstacles: Indices


class PathPlace(NamedTuple):
    """Where on a path: how far from waypoint `segment` to the next."""

    segment: int
    fraction: float
    #: (dof,).
    configuration: Array


class BadPlace(NamedTuple):
    """A configuration of a path that is not valid."""

    place: PathPlace
    fault: Fault


class Clearance(NamedTuple):
    """The gap between a sphere of the robot and an obstacle, negative where they overlap."""

    distance: float
    frame: str
    obstacle: int
    obstacle_name: str
    place: PathPlace


class SelfClearance(NamedTuple):
    """The gap between two spheres of frames that must not touch each other."""

    distance: float
    frames: Tuple[str, str]
    place: PathPlace


class LimitMargin(NamedTuple):
    """The distance of a coordinate to the nearer of its limits, negative beyond it."""

    distance: float
    coordinate: int
    place: PathPlace


class PathCheck(NamedTuple):
    """What a check of a path found. True if the path is valid at all points that were looked at."""

    is_valid: bool
    num_configurations: int
    num_bad: int
    first_bad: Optional[BadPlace]
    clearance: Optional[Clearance]
    self_clearance: Optional[SelfClearance]
    limit_margin: Optional[LimitMargin]
    was_stopped: bool

    def __bool__(self) -> bool:
        return self.is_valid


class PathProof(NamedTuple):
    """What a proof of a path found. True if the path is proven free everywhere."""

    #: "proven free", "touches", "comes too near", "beyond limits", "undecided", "stopped".
    verdict: str
    bad: Optional[BadPlace]
    clearance: Optional[Clearance]
    self_clearance: Optional[SelfClearance]
    limit_margin: Optional[LimitMargin]
    num_placements: int

    def __bool__(self) -> bool:
        return self.verdict == "proven free"


class MotionLimits(NamedTuple):
    """How fast coordinates may move, each (dof,): radians or metres per second, second squared and second cubed."""

    velocity: ArrayLike
    acceleration: ArrayLike
    jerk: Optional[ArrayLike] = None


class State(NamedTuple):
    """Where a robot is and how it moves: at one time (dof,), or at several, (N,) and (N, dof)."""

    time: Union[float, Array]
    position: Array
    velocity: Array
    acceleration: Array


class FoundPath(NamedTuple):
    """A path in an environment. True if one was found."""

    #: As in `QueryReport`.
    status: str
    #: (N, dimension).
    path: Array
    was_shortening_stopped: bool
    num_raw_waypoints: int
    num_iterations: int
    num_nodes: int

    def __bool__(self) -> bool:
        return self.status == "found"


def _same(a: Any, b: Any) -> bool:
    if isinstance(a, np.ndarray) or isinstance(b, np.ndarray):
        return np.array_equal(a, b)
    return bool(a == b)


def _equal(a: Any, b: Any) -> Any:
    return len(a) == len(b) and all(map(_same, a, b)) if isinstance(b, tuple) else NotImplemented


# NumPy says of each number of two arrays whether it is equal, which tuples do not take for an answer.
for _record in [value for value in globals().values() if isinstance(value, type) and hasattr(value, "_fields")]:
    setattr(_record, "__eq__", _equal)
    setattr(_record, "__ne__", object.__ne__)
