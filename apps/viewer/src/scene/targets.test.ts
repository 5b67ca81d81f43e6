import assert from "node:assert/strict";
import { test } from "node:test";

import type { Contact, Goal, Inspection } from "../document";
import { describeContacts, ghostsOf, unreachedPoses } from "./targets";

function touching(frame: string, obstacle: string | null, other_frame: string | null, depth: number): Contact {
  return { frame, sphere: 0, obstacle, obstacle_index: 0, other_frame, other_sphere: null, depth };
}

test("contacts are told once for each thing that is touched, at the deepest of them", () => {
  const contacts = [
    touching("hand", "shelf", null, 0.01),
    touching("link5", null, "base", 0.02),
    touching("finger", "shelf", null, 0.03),
    touching("hand", "shelf", null, 0.02),
    touching("link6", "shelf", null, 0.001),
  ];
  const described = describeContacts(contacts).map(({ text, contact }) => [text, contact.depth]);
  assert.deepEqual(described, [["hand, finger … touch shelf", 0.03], ["link5 touches base", 0.02]]);
  assert.equal(describeContacts(contacts, 9)[0]?.text, "hand, finger, link6 touch shelf");
});

test("without a path each goal is seen: as what was looked at, as its own configuration, or as its pose", () => {
  const start = [0];
  const goals: Goal[] = [[1], { frame: "tool", position: [1, 2, 3] }, { frame: "tool", position: [4, 5, 6] }, [2]];
  const stages = [{ kind: "free" as const, goals }];
  const looked = (what: Inspection["what"], goal: number | null, q: number, contacts: Contact[]): Inspection => ({
    what, goal, configuration: [q], clearance: null, self_clearance: null, contacts, limits: [],
  });
  const hit = [touching("hand", "shelf", null, 0.01)];
  const inspections = [looked("start", null, 0, hit), looked("nearest", 1, 5, []), looked("goal", 2, 6, hit)];
  const failed = { start, stages, path: [], inspections };
  assert.deepEqual(
    ghostsOf(failed).map(({ label, configuration, contacts }) => [label, configuration[0], contacts.length]),
    [["S", 0, 1], ["G1", 1, 0], ["nearest", 5, 0], ["G3", 6, 1], ["G4", 2, 0]],
  );
  assert.deepEqual(unreachedPoses(failed).map(({ label }) => label), ["G2"]);

  const found = { ...failed, path: [[0], [6]] };
  assert.deepEqual(ghostsOf(found).map(({ label, configuration }) => [label, configuration[0]]), [["S", 0], ["G", 6]]);
  assert.deepEqual(unreachedPoses(found), []);
});
