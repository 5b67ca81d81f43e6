import assert from "node:assert/strict";
import { test } from "node:test";
import { Box3, Ray, Vector3 } from "three";

import { frame } from "./framing";

const robot = [0, 1, 2, 3].flatMap((i) => [new Vector3(0.2 * i, 0, 0.1 * i), new Vector3(0, 0.1 * i, 0.3)]);

function boxAt(x: number, y: number, z: number, size: number): Box3 {
  return new Box3().setFromCenterAndSize(new Vector3(x, y, z), new Vector3(size, size, size));
}

test("the camera frames what is near, not a far wall, and looks past what would hide the robot", () => {
  const alone = frame(robot, []);
  assert.ok(alone.direction.z > 0);
  const near = boxAt(0.7, 0, 0.3, 0.2);
  assert.equal(frame(robot, [near]).points.length, robot.length + 8);
  for (const far of [boxAt(3, 0, 0.3, 0.2), boxAt(0, 0, 0, 50)]) {
    assert.deepEqual(frame(robot, [far]).centre, alone.centre);
  }
  const level = alone.direction.clone().setZ(0).normalize();
  const before = boxAt(0.2 + 0.9 * level.x, 0.9 * level.y, 0.3, 1);
  const numHidden = (direction: Vector3): number =>
    robot.filter((point) => new Ray(point, direction).intersectsBox(before)).length;
  assert.ok(numHidden(alone.direction) > 4);
  assert.equal(numHidden(frame(robot, [before]).direction), 0);
});
