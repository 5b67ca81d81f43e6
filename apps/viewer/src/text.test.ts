import assert from "node:assert/strict";
import { test } from "node:test";
import { formatDistance, formatNumber, formatTime } from "./text";
import { linearTicks, logTicks } from "./ticks";

test("numbers are written as the command writes them", () => {
  const cases: [number, number, string][] = [
    [0, 6, "0"],
    [1.5, 6, "1.5"],
    [-0.00012345678, 4, "-0.0001235"],
    [0.000012345, 3, "1.23e-05"],
    [1234567, 6, "1.23457e+06"],
    [99.96, 3, "100"],
    [999.9, 3, "1e+03"],
    [120, 3, "120"],
    [1018.5, 4, "1018"],
    [-1017.5, 4, "-1018"],
    [2.5, 1, "2"],
    [NaN, 3, "nan"],
  ];
  for (const [value, digits, text] of cases) {
    assert.equal(formatNumber(value, digits), text);
  }
  assert.deepEqual([4.2e-5, 0.01234, 3.14159].map(formatTime), ["42 us", "12.3 ms", "3.14 s"]);
  assert.deepEqual([-0.0123, 1.5].map(formatDistance), ["-12.3 mm", "1.5 m"]);
});

test("marks of axes are round numbers inside the interval", () => {
  assert.deepEqual(linearTicks(-2.9, 2.9, 5), [-2, 0, 2]);
  assert.deepEqual(linearTicks(0, 0.3, 6), [0, 0.05, 0.1, 0.15, 0.2, 0.25, 0.3]);
  assert.deepEqual(linearTicks(3, 3, 5), [3]);
  assert.deepEqual(logTicks(2e-4, 30), [1e-3, 1e-2, 0.1, 1, 10]);
  assert.deepEqual(logTicks(1e-3, 0.03), [1e-3, 2e-3, 5e-3, 0.01, 0.02]);
});
