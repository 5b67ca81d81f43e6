import assert from "node:assert/strict";
import { test } from "node:test";
import { planOf } from "./bench_page";
import { cumulate, groupRuns, measure, quantile } from "./bench_statistics";
import type { BenchDocument, BenchRun } from "./document";
import { sortRows } from "./sortable_table";

const run = (problem: number, planner: string, seconds: number, rest: Partial<BenchRun> = {}): BenchRun =>
  ({
    problem,
    planner,
    repeat: 0,
    status: "found",
    found: true,
    proof: "proven free",
    passes_check: true,
    length: 10 * seconds,
    nodes: [2, 3],
    search_seconds: seconds,
    shortening_seconds: 0,
    ...rest,
  }) as BenchRun;
const failed = (status: string): Partial<BenchRun> => ({ status, found: false, proof: "", passes_check: false });
const bench = {
  planners: ["a", "b"],
  problems: ["x", "x", "y", "y"].map((family, i) => ({ family, name: String(i), scene: null, start: [0], stages: [] })),
  runs: [
    run(0, "a", 1),
    run(0, "b", 2, { proof: "touches", passes_check: false }),
    run(1, "a", 3),
    run(1, "b", 9, failed("iterations spent")),
    run(2, "a", 5),
    run(2, "b", 4),
    run(3, "a", 100, failed("invalid start")),
    run(3, "b", 100, failed("invalid start")),
  ],
} as unknown as BenchDocument;

test("quantiles lie between neighbours", () => {
  assert.deepEqual([0, 0.5, 0.95, 1].map((fraction) => quantile([4, 1, 3, 2], fraction)), [1, 2.5, 3.8499999999999996, 4]);
  assert.ok(Number.isNaN(quantile([], 0.5)));
  assert.deepEqual(cumulate([3, 2], 4, 0, 5), { at: [0, 2, 2, 3, 3, 5], share: [0, 0, 0.25, 0.25, 0.5, 0.5] });
});

test("times are of runs with valid ends, lengths of what all planners solved", () => {
  const figures = groupRuns(bench).map((group) => ({ group: `${group.family ?? "-"}/${group.planner}`, ...measure(group) }));
  const picked = figures.map((f) => [f.group, f.numRuns, f.numInvalid, f.numSolved, f.share, f.numBad, f.numUnproven, f.both.median, f.length.mean]);
  assert.deepEqual(picked, [
    ["x/a", 2, 0, 2, 1, 0, 0, 2, 10],
    ["x/b", 2, 0, 1, 0.5, 1, 1, 5.5, 20],
    ["y/a", 2, 1, 1, 1, 0, 0, 5, 50],
    ["y/b", 2, 1, 1, 1, 0, 0, 4, 40],
    ["-/a", 4, 1, 3, 1, 0, 0, 3, 30],
    ["-/b", 4, 1, 2, 2 / 3, 1, 1, 4, 30],
  ]);
  assert.deepEqual([...(figures[5]?.failures ?? [])], [["iterations spent", 1], ["invalid start", 1]]);
});

test("rows without a value go last in both orders, numbers in names count", () => {
  const sorted = (values: (number | string | null)[], isDown: boolean): (number | string | null)[] =>
    sortRows(values, { title: "", cell: String, key: (value) => value }, isDown);
  assert.deepEqual(sorted([2, NaN, 10, null, 1], true), [10, 2, 1, NaN, null]);
  assert.deepEqual(sorted(["p10", "p9"], false), ["p9", "p10"]);
});

test("a run has a scene only where plans were kept, and the robot of its problem where that differs", () => {
  assert.equal(planOf(bench, 0), null);
  const [common, own] = [{ tip_frame: "tool" }, { tip_frame: "held" }];
  const problems = bench.problems.map((problem, i) => ({ ...problem, scene: {}, robot_model: i === 1 ? own : null }));
  const kept = { ...bench, robot_model: common, problems } as unknown as BenchDocument;
  assert.deepEqual([0, 2, 99].map((run) => planOf(kept, run)?.robot_model), [common, own, undefined]);
});
