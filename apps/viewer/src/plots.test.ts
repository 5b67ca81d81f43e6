import assert from "node:assert/strict";
import { test } from "node:test";
import { lineClass, spread, valueAt } from "./chart";
import { contactSpans } from "./clearance_plot";
import type { Contact } from "./document";
import { isBeyond, shortNames } from "./joint_values";
import { commandLine, describeThinning, lengthOf } from "./panel";

test("values between samples, at the ends, beyond them and beside gaps", () => {
  const line = { at: [0, 1, 1, 2, 3], values: [0, 10, 20, 30, null] };
  const cases: [number, number | null][] = [[-1, 0], [0, 0], [0.25, 2.5], [1, 20], [1.5, 25], [2, 30], [2.5, null]];
  for (const [time, value] of cases) {
    assert.equal(valueAt(line, time), value, `at ${time}`);
  }
});

test("labels that would cover each other are moved apart and stay inside", () => {
  const places = [5, 6, 7, 98].map((y) => ({ y }));
  spread(places, 4, 100, 13);
  const gaps = places.slice(1).map(({ y }, i) => y - (places[i]?.y ?? NaN));
  assert.ok(gaps.every((gap) => gap >= 13));
  assert.ok((places[0]?.y ?? 0) >= 4 && (places[3]?.y ?? 101) <= 100);
});

test("contacts one after the other are one span, told by all that touches", () => {
  const contact = (frame: string, obstacle: string, depth: number): Contact => ({
    frame,
    sphere: 0,
    obstacle,
    obstacle_index: 0,
    other_frame: null,
    other_sphere: null,
    depth,
  });
  const contacts = [
    { sample: 1, contacts: [contact("hand", "a", 0.1), contact("finger", "a", 0.3)] },
    { sample: 2, contacts: [contact("hand", "b", 0.4)] },
    { sample: 4, contacts: [contact("hand", "b", 0.2)] },
  ];
  assert.deepEqual(contactSpans({ contacts }, [0, 10, 20, 30, 40, 50]), [
    { from: 10, to: 20, worst: 20, depth: 0.4, label: "hand, finger touch a, hand touches b" },
    { from: 40, to: 40, worst: 40, depth: 0.2, label: "hand touches b" },
  ]);
});

test("lines are told apart", () => {
  assert.equal(new Set(Array.from({ length: 49 }, (_, i) => lineClass(i))).size, 49);
});

test("limits, names and command lines", () => {
  assert.ok(!isBeyond(1 + 1e-12, { low: -1, high: 1 }) && isBeyond(1.001, { low: null, high: 1 }));
  assert.ok(isBeyond(-1.001, { low: -1, high: null }) && !isBeyond(9, { low: -1, high: null }));
  assert.deepEqual(shortNames(["panda_joint1", "panda_joint2"]), ["1", "2"]);
  assert.deepEqual(shortNames(["shoulder_pan_joint", "elbow_joint"]), ["1", "2"]);
  assert.deepEqual(shortNames(["slide"]), ["slide"]);
  assert.equal(commandLine(["plan", "--goal", "0,-1.5", "my robot's.urdf", ""]), "kavo plan --goal 0,-1.5 'my robot'\\''s.urdf' ''");
  assert.equal(lengthOf([[0, 0], [3, 4], [3, 5]]), 6);
});

test("what is drawn in part is said, and only that", () => {
  const pose = { position: [0, 0, 0], orientation: [0, 0, 0, 1] } as const;
  const obstacle = (name: string, num_points: number): object => ({
    name,
    pose,
    shape: { points: { points: [0, 0, 0, 1, 1, 1], radius: 0.1, num_points } },
  });
  const plan = {
    robot_model: { frames: [], attachments: [] },
    scene: { obstacles: [obstacle("<i>cloud</i>", 1200000), obstacle("whole", 2)] },
    searches: [{ trees: [{ root: "goal", nodes: [[0]], num_nodes: 2001 }] }],
    trajectory: null,
  } as unknown as Parameters<typeof describeThinning>[0];
  assert.deepEqual(describeThinning(plan), [
    "<i>cloud</i>: 2 of 1\u202f200\u202f000 points",
    "Tree from the goal: 1 of 2\u202f001 nodes",
  ]);
});
