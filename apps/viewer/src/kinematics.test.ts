import assert from "node:assert/strict";
import { test } from "node:test";

import type { Configuration, Frame, RobotModel, Vec3 } from "./document";
import { Kinematics, positionOf } from "./kinematics";

function frameOf(name: string, changes: Partial<Frame>): Frame {
  return {
    name,
    parent: null,
    motion: "fixed",
    coordinate: null,
    multiplier: 1,
    offset: 0,
    origin: { position: [0, 0, 0], orientation: [0, 0, 0, 1] },
    axis: [0, 0, 1],
    spheres: [],
    padding: 0,
    allowed_obstacles: [],
    visual_meshes: [],
    collision_meshes: [],
    ...changes,
  };
}

function modelOf(frames: Frame[]): RobotModel {
  return { frames, coordinates: [], tip_frame: frames.at(-1)!.name, pairs: [], attachments: [] };
}

function assertNear(actual: Vec3, expected: Vec3, tolerance: number): void {
  const error = Math.hypot(...actual.map((value, i) => value - expected[i]!));
  assert.ok(error <= tolerance, `${String(actual)} is ${error} from ${String(expected)}`);
}

// The built-in arm of seven joints: origin and turn about x of each joint, in quarters.
const joints: [Vec3, number][] = [
  [[0, 0, 0.333], 0],
  [[0, 0, 0], -1],
  [[0, -0.316, 0], 1],
  [[0.0825, 0, 0], 1],
  [[-0.0825, 0.384, 0], -1],
  [[0, 0, 0], 1],
  [[0.088, 0, 0], 1],
];
const half = Math.SQRT1_2;
const eighth = Math.PI / 8;
const arm = modelOf([
  frameOf("base", {}),
  ...joints.map(([position, quarter], i) =>
    frameOf(`link${i + 1}`, {
      parent: i,
      motion: "revolute",
      coordinate: i,
      origin: { position, orientation: quarter === 0 ? [0, 0, 0, 1] : [quarter * half, 0, 0, half] },
    }),
  ),
  frameOf("hand", {
    parent: 7,
    origin: { position: [0, 0, 0.107], orientation: [0, 0, -Math.sin(eighth), Math.cos(eighth)] },
  }),
  frameOf("left_finger", {
    parent: 8,
    origin: { position: [0, 0.04, 0.0584], orientation: [0, 0, 0, 1] },
  }),
]);

test("the tool stands where the planner, asked for a position, has put it", () => {
  const kinematics = new Kinematics(arm);
  // By kavo plan --robot franka --frame left_finger --target ..., which comes as near as 1e-5.
  const cases: [Configuration, Vec3][] = [
    [
      [0.25309503078460693, 0.2952183783054352, 0.23613159358501434, -1.8616822957992554, 0.628757119178772,
        1.3316222429275513, 0.3786928057670593],
      [0.4, 0.3, 0.3],
    ],
    [
      [0.06550628691911697, -0.14872077107429504, -0.8988490104675293, -1.537376880645752, 0.10541657358407974,
        1.2922708988189697, 0.4795851409435272],
      [0.3, -0.4, 0.6],
    ],
  ];
  for (const [q, expected] of cases) {
    assertNear(kinematics.toolPosition(q), expected, 2e-5);
    assertNear(positionOf(kinematics.frames(q)[kinematics.tip]!), expected, 2e-5);
  }
});

test("fingers follow a coordinate by multiplier and offset, held joints stay at their offset, spheres go along", () => {
  const model = modelOf([
    frameOf("base", {}),
    frameOf("held", { parent: 0, motion: "revolute", offset: Math.PI / 2 }),
    frameOf("finger", {
      parent: 1,
      motion: "prismatic",
      coordinate: 0,
      multiplier: -2,
      offset: 0.1,
      axis: [1, 0, 0],
      spheres: [[0, 0.5, 0, 0.03]],
      padding: 0.01,
    }),
  ]);
  const kinematics = new Kinematics(model);
  // The held joint turns x into y.
  assertNear(kinematics.toolPosition([0.2]), [0, -0.3, 0], 1e-12);
  assertNear(kinematics.sphereCentres(kinematics.frames([0.2]))[0]!, [-0.5, -0.3, 0], 1e-12);
  assert.equal(kinematics.spheres[0]!.radius, 0.04);
});
