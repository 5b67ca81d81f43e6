// The documents that the program writes: what `kavo plan --json` and `kavo bench --json` say, as types. docs/formats.md
// describes every key. Lengths are metres, angles radians, times seconds, quaternions x y z w; poses are relative to the
// robot's base unless a comment says otherwise.

export type Vec3 = [number, number, number];

export interface Pose {
  position: Vec3;
  orientation: [number, number, number, number];
}

/** One value for each joint name of the document. */
export type Configuration = number[];

export interface FileRecord {
  role: string;
  name: string;
  sha256: string | null;
}

export interface PlanDocument {
  format: "kavo/plan";
  format_version: 1;
  /** Of the program that wrote the document. */
  version: string;
  /** Of the command, without the program's name: they run it again. */
  arguments: string[];
  files: FileRecord[];
  robot: string;
  robot_model: RobotModel;
  scene: SceneModel;
  joint_names: string[];
  held_joints: Record<string, number>;
  start: Configuration;
  target: Goal | null;
  stages: Stage[];
  settings: Record<string, unknown>;
  seed: number;
  found: boolean;
  status: string;
  /** What the command prints. */
  explanation: string;
  path: Configuration[];
  interpolated_path: Configuration[];
  statistics: Statistics;
  check: Check | null;
  trajectory: Trajectory | null;
  searches: Search[];
  inspections: Inspection[];
  profile: Profile | null;
}

export type Goal = Configuration | RangeGoal | PoseGoal;

/** A configuration with what it may differ by, downwards and upwards. */
export interface RangeGoal {
  configuration: Configuration;
  below: number[];
  above: number[];
}

/** A pose of a frame, or only its position: then there is no orientation. */
export interface PoseGoal {
  frame: string;
  position: Vec3;
  orientation?: Pose["orientation"];
  position_tolerance?: number | null;
  orientation_tolerance?: number | null;
  tool?: Pose;
  free_translations?: boolean[];
  free_rotations?: boolean[];
  regions?: (Pose & Shape)[];
  axis_tolerances?: { angles: Vec3; parameterization: "euler_angles" | "rotation_vector" };
}

export interface Stage {
  kind: "line" | "free";
  goals: Goal[];
  goal?: number | null;
  first_waypoint?: number;
  last_waypoint?: number;
  status?: string;
  goal_reports?: GoalReport[];
  line?: { end: string; fraction: number; deviation: number; angle: number } | null;
}

export interface GoalReport {
  num_configurations: number;
  num_rejected: number;
  num_not_accepted: number;
  num_restarts: number;
  is_too_close: boolean;
  nearest?: {
    configuration: Configuration;
    position_error: number;
    orientation_error: number;
    coordinates_at_limits: number[];
  };
  fault?: { coordinate: number } | { frame: string; obstacle: string } | { frames: [string, string] };
}

export interface Statistics {
  search: string;
  num_iterations: number;
  num_nodes: number[];
  num_validity_checks: number;
  num_samples_drawn: number;
  num_samples_rejected: number;
  planner: string;
  num_motions: number;
  num_placements: number;
  num_divisions: number;
  num_raw_waypoints: number;
  raw_length: number;
  search_seconds: number;
  shortening_seconds: number;
  was_shortening_stopped: boolean;
  first_invalid_interpolated: number | null;
}

export interface Check {
  passed: boolean;
  verdict: string;
  ignored: string[];
  uncovered_links: string[];
  cover_tolerance: number | null;
  self_collision_pairs: number;
  step: number | null;
  num_configurations: number;
  fault: string;
  clearance: number | null;
  self_clearance: number | null;
  tolerance: number | null;
}

export interface Trajectory {
  duration: number;
  period: number;
  num_samples: number;
  waypoint_times: number[];
  blend_deviation: number;
  num_blends: number;
  num_tightened: number;
  num_stops: number;
  verdict: string;
  cubic_deviation: number;
  quintic_deviation: number;
  velocity_limits: number[];
  acceleration_limits: number[];
  jerk_limits: number[] | null;
  /** Thinned to at most 1000; the first and the last sample are always there. */
  samples: {
    times: number[];
    positions: Configuration[];
    velocities: Configuration[];
    accelerations: Configuration[];
  };
}

export interface Search {
  planner: string;
  /** As found, before shortening. */
  raw_path: Configuration[];
  trees: SearchTree[];
}

export interface SearchTree {
  root: "start" | "goal";
  /** Before thinning. */
  num_nodes: number;
  nodes: Configuration[];
  /** Indices into `nodes`; null at a root. */
  parents: (number | null)[];
}

/** What is true of one configuration: what touches what there, and which limits it is beyond. */
export interface Inspection {
  what: "start" | "goal" | "fault" | "nearest";
  goal: number | null;
  configuration: Configuration;
  clearance: number | null;
  self_clearance: number | null;
  contacts: Contact[];
  limits: { coordinate: number; value: number; lower: number; upper: number }[];
}

/** A sphere of the robot that touches an obstacle, or a sphere of another frame. */
export interface Contact {
  frame: string;
  sphere: number;
  obstacle: string | null;
  /** Of `scene.obstacles`. */
  obstacle_index: number | null;
  other_frame: string | null;
  other_sphere: number | null;
  depth: number;
}

/** Distances along what is played. */
export interface Profile {
  /** Of `at`. Waypoints: 2.25 is a quarter of the way from waypoint 2 to waypoint 3 of `path`. */
  unit: "seconds" | "waypoints";
  at: number[];
  clearance: (number | null)[];
  /** Frame and obstacle. */
  nearest: ([string, string] | null)[];
  self_clearance: (number | null)[];
  self_nearest: ([string, string] | null)[];
  /** Only samples at which something touches, in their order. */
  contacts: { sample: number; contacts: Contact[] }[];
}

export interface RobotModel {
  /** The base first, each after its parent. */
  frames: Frame[];
  /** One for each value of a configuration. */
  coordinates: Coordinate[];
  /** The tool whose trace is drawn. */
  tip_frame: string;
  /** Frames that must not touch each other. */
  pairs: [string, string][];
  attachments: Attachment[];
}

export interface Coordinate {
  name: string;
  kind: "revolute" | "prismatic";
  /** Null: unlimited. */
  min: number | null;
  max: number | null;
  /** Null: not known. */
  velocity: number | null;
  acceleration: number | null;
  jerk: number | null;
}

/**
 * The pose of a frame is that of its parent, times `origin`, times a turn about or a slide along `axis` by
 * `multiplier` q[`coordinate`] + `offset`.
 */
export interface Frame {
  name: string;
  parent: number | null;
  motion: "fixed" | "revolute" | "prismatic";
  coordinate: number | null;
  multiplier: number;
  offset: number;
  origin: Pose;
  axis: Vec3;
  /** x, y, z and radius in the frame. */
  spheres: number[][];
  padding: number;
  allowed_obstacles: string[];
  visual_meshes: MeshPart[];
  collision_meshes: MeshPart[];
}

export interface Mesh {
  /** Flat: x y z of each vertex. */
  vertices: number[];
  /** Flat: three vertices of each triangle. */
  triangles: number[];
  /** Before thinning. */
  num_triangles: number;
}

export interface MeshPart extends Mesh {
  pose: Pose;
  name: string;
}

/** What the robot holds, in the frame that carries it. */
export interface Attachment {
  name: string;
  frame: string;
  pose: Pose;
  shape: Shape;
}

export interface SceneModel {
  /** The robot's base in the world of the files. */
  base_pose: Pose;
  obstacles: Obstacle[];
}

export interface Obstacle {
  name: string;
  pose: Pose;
  padding: number;
  enabled: boolean;
  shape: Shape;
}

export type Shape =
  | { sphere: { radius: number } }
  /** Full side lengths. */
  | { box: Vec3 }
  | { cylinder: { radius: number; height: number } }
  /** The height is between the centres of its ends. */
  | { capsule: { radius: number; height: number } }
  /** About z, its base at -height / 2. */
  | { cone: { radius: number; height: number } }
  /** All points with z <= 0. */
  | { half_space: Record<string, never> }
  | { mesh: Mesh }
  /** Flat: x y z of each point; `num_points` before thinning. */
  | { points: { points: number[]; radius: number; num_points: number } }
  /** Flat: x y z and the full edge of each cell; `num_cells` before thinning. */
  | { octree: { cells: number[]; num_cells: number } };

export interface BenchDocument {
  format: "kavo/bench";
  format_version: 1;
  version: string;
  files: FileRecord[];
  robot: string;
  joint_names: string[];
  settings: Record<string, unknown>;
  planners: string[];
  num_wanted: number;
  /** Only where plans were kept, as are the scenes of the problems and the paths of the runs. */
  robot_model: RobotModel | null;
  problems: BenchProblem[];
  runs: BenchRun[];
}

export interface BenchProblem {
  family: string;
  name: string;
  scene_file: string;
  request_file: string;
  start: Configuration;
  stages: Stage[];
  /** Where it is another one than that of the benchmark: one that holds something, say. */
  robot_model: RobotModel | null;
  scene: SceneModel | null;
}

export interface BenchRun {
  /** Of `problems`. */
  problem: number;
  repeat: number;
  planner: string;
  seed: number;
  status: string;
  fault: string;
  ignored: string[];
  uncovered_links: string[];
  self_collision_pairs: number;
  held_joints: Record<string, number>;
  found: boolean;
  iterations: number;
  nodes: number[];
  validity_checks: number;
  motions: number;
  placements: number;
  divisions: number;
  samples_drawn: number;
  samples_rejected: number;
  search_seconds: number;
  shortening_seconds: number;
  /** These and what follows: only where a path was found. */
  raw_waypoints?: number;
  raw_length?: number;
  waypoints?: number;
  length?: number;
  proof?: string;
  check_step?: number;
  passes_check?: boolean;
  path?: Configuration[];
  first_bad_edge?: string;
  depth?: number;
}
