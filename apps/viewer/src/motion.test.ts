import assert from "node:assert/strict";
import { test } from "node:test";

import type { Trajectory } from "./document";
import { createMotion, type Motion } from "./motion";
import { Playback } from "./playback";

const resting = { start: [0, 0], path: [], trajectory: null, profile: null };

// Positions t^3 and 1 - t, sampled unevenly.
function cubicTrajectory(): Trajectory {
  const times = [0, 0.5, 0.75, 2];
  return {
    waypoint_times: [0, 1, 2],
    samples: {
      times,
      positions: times.map((t) => [t ** 3, 1 - t]),
      velocities: times.map((t) => [3 * t ** 2, -1]),
      accelerations: times.map((t) => [6 * t, 0]),
    },
  } as unknown as Trajectory;
}

test("a path takes time by its length and passes each waypoint, equal ones too", () => {
  const path = [[0, 0], [3, 4], [3, 4], [3, 9]];
  const motion = createMotion({ ...resting, path });
  assert.equal(motion.duration, 10);
  assert.deepEqual(motion.configurationAt(2.5), [1.5, 2]);
  assert.deepEqual([0, 2.5, 7.5, 10].map((time) => motion.toProfile(time)), [0, 0.5, 2.5, 3]);
  assert.deepEqual([0.5, 1, 2, 2.5].map((at) => motion.fromProfile(at)), [2.5, 5, 5, 7.5]);
  const long = createMotion({ ...resting, path: [[0, 0], [100, 0.1]] });
  assert.deepEqual([long.duration, long.configurationAt(long.duration)], [12, [100, 0.1]]);
  assert.equal(createMotion({ ...resting, path: [[0, 0], [0.001, 0]] }).duration, 4);
});

test("a trajectory is followed by its positions and velocities up to its last sample", () => {
  const trajectory = cubicTrajectory();
  const motion = createMotion({ ...resting, trajectory });
  for (const t of [0, 0.1, 0.5, 0.7, 1.3, 1.999]) {
    const [cubic, line] = motion.configurationAt(t);
    assert.ok(Math.abs(cubic! - t ** 3) < 1e-12 && Math.abs(line! - (1 - t)) < 1e-12, `at ${t}`);
  }
  assert.deepEqual([motion.duration, motion.configurationAt(2)], [2, [8, -1]]);
  const profile = { unit: "waypoints" } as unknown as NonNullable<Parameters<typeof createMotion>[0]["profile"]>;
  const byWaypoints = createMotion({ ...resting, trajectory, profile });
  assert.deepEqual([byWaypoints.toProfile(1.5), byWaypoints.fromProfile(0.25)], [1.5, 0.25]);
});

test("without a path the robot rests at the start", () => {
  const motion: Motion = createMotion(resting);
  assert.deepEqual([motion.duration, motion.configurationAt(1), motion.toProfile(1)], [0, [0, 0], 0]);
});

test("playing stops at the end, begins anew from there, and goes on at the start in a loop", () => {
  const playback = new Playback(2);
  let numChanges = 0;
  const end = playback.onChange(() => ++numChanges);
  playback.playing = true;
  playback.speed = 2;
  playback.tick(0.75);
  assert.equal(playback.time, 1.5);
  playback.tick(1);
  assert.deepEqual([playback.time, playback.playing], [2, false]);
  playback.playing = true;
  assert.equal(playback.time, 0);
  playback.loop = true;
  playback.tick(1.25);
  assert.deepEqual([playback.time, playback.playing], [0.5, true]);
  playback.time = NaN;
  playback.time = 5;
  assert.equal(playback.time, 2);
  assert.equal(numChanges, 8);
  end();
  playback.time = 1;
  assert.equal(numChanges, 8);
});
