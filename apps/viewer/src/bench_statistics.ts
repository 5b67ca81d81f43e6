// The figures of a benchmark, as the command's tables have them.

import type { BenchDocument, BenchRun } from "./document";

/** Between the two neighbours in order, linearly; NaN of nothing. */
export function quantile(values: readonly number[], fraction: number): number {
  const sorted = [...values].sort((a, b) => a - b);
  const position = fraction * (sorted.length - 1);
  const below = Math.floor(position);
  const low = sorted[below];
  const high = sorted[Math.min(below + 1, sorted.length - 1)];
  return low === undefined || high === undefined ? NaN : low + (position - below) * (high - low);
}

function mean(values: readonly number[]): number {
  return values.length === 0 ? NaN : values.reduce((sum, value) => sum + value, 0) / values.length;
}

export function secondsOf(run: BenchRun): number {
  return run.search_seconds + run.shortening_seconds;
}

/** Others are no fault of a planner, and their times count for nothing. */
export function hasValidEnds({ status }: BenchRun): boolean {
  return status !== "invalid start" && status !== "invalid target";
}

export function isUnproven({ found, proof }: BenchRun): boolean {
  return found && proof !== "proven free";
}

export function isBad({ found, passes_check }: BenchRun): boolean {
  return found && passes_check !== true;
}

/** Runs that are looked at together. */
export interface RunGroup {
  /** Null: all of them. */
  family: string | null;
  planner: string;
  runs: BenchRun[];
  /** Of which lengths and work are told: all that found a path; beside other planners, what all of them solved. */
  solved: BenchRun[];
}

export function familiesOf({ problems }: Pick<BenchDocument, "problems">): string[] {
  return [...new Set(problems.map(({ family }) => family))];
}

/** Of each family, and where there are several of all of them: a group for each planner. */
export function groupRuns(document: Pick<BenchDocument, "problems" | "runs" | "planners">): RunGroup[] {
  const { problems, runs, planners } = document;
  const familyOf = ({ problem }: BenchRun): string => problems[problem]?.family ?? "";
  const numSolving = new Map<string, number>();
  const key = ({ problem, repeat }: BenchRun): string => `${problem}/${repeat}`;
  for (const run of runs.filter(({ found }) => found)) {
    numSolving.set(key(run), (numSolving.get(key(run)) ?? 0) + 1);
  }
  const families = familiesOf(document);
  const groupsOf = (family: string | null, ofFamily: BenchRun[]): RunGroup[] =>
    planners.map((planner) => {
      const own = ofFamily.filter((run) => run.planner === planner);
      const solved = own.filter((run) => run.found && numSolving.get(key(run)) === planners.length);
      return { family, planner, runs: own, solved };
    });
  const groups = families.flatMap((family) =>
    groupsOf(
      family,
      runs.filter((run) => familyOf(run) === family),
    ),
  );
  return families.length > 1 ? [...groups, ...groupsOf(null, runs)] : groups;
}

export interface Summary {
  median: number;
  mean: number;
  high: number;
  longest: number;
}

function summarise(values: readonly number[]): Summary {
  return {
    median: quantile(values, 0.5),
    mean: mean(values),
    high: quantile(values, 0.95),
    longest: quantile(values, 1),
  };
}

/** What is measured of a group; NaN of nothing. */
export interface Figures {
  numProblems: number;
  numRuns: number;
  numInvalid: number;
  numSolved: number;
  /** Of the runs with valid ends; from 0 to 1. */
  share: number;
  numBad: number;
  numUnproven: number;
  /** How many runs that found nothing ended how. */
  failures: Map<string, number>;
  /** Seconds, of the runs with valid ends. */
  search: Summary;
  shortening: Summary;
  both: Summary;
  /** Of the solved runs. */
  rawWaypoints: Summary;
  waypoints: Summary;
  rawLength: Summary;
  length: Summary;
  nodes: Summary;
  motions: Summary;
  placements: Summary;
}

export function measure({ runs, solved }: RunGroup): Figures {
  const valid = runs.filter(hasValidEnds);
  const found = runs.filter((run) => run.found);
  const failures = new Map<string, number>();
  for (const { status } of runs.filter((run) => !run.found)) {
    failures.set(status, (failures.get(status) ?? 0) + 1);
  }
  const of = (group: readonly BenchRun[], value: (run: BenchRun) => number): Summary => summarise(group.map(value));
  return {
    numProblems: new Set(runs.map(({ problem }) => problem)).size,
    numRuns: runs.length,
    numInvalid: runs.length - valid.length,
    numSolved: found.length,
    share: found.length / valid.length,
    numBad: runs.filter(isBad).length,
    numUnproven: runs.filter(isUnproven).length,
    failures,
    search: of(valid, (run) => run.search_seconds),
    shortening: of(valid, (run) => run.shortening_seconds),
    both: of(valid, secondsOf),
    rawWaypoints: of(solved, (run) => run.raw_waypoints ?? NaN),
    waypoints: of(solved, (run) => run.waypoints ?? NaN),
    rawLength: of(solved, (run) => run.raw_length ?? NaN),
    length: of(solved, (run) => run.length ?? NaN),
    nodes: of(solved, (run) => run.nodes.reduce((sum, count) => sum + count, 0)),
    motions: of(solved, (run) => run.motions),
    placements: of(solved, (run) => (run.planner === "bi_rrt" ? run.placements : run.validity_checks)),
  };
}

/** Which share of `count` has at most a value: a staircase from (from, 0) to (to, ...). */
export function cumulate(
  values: readonly number[],
  count: number,
  from: number,
  to: number,
): { at: number[]; share: number[] } {
  const at = [from];
  const share = [0];
  [...values]
    .sort((a, b) => a - b)
    .forEach((value, i) => {
      at.push(value, value);
      share.push(i / count, (i + 1) / count);
    });
  at.push(to);
  share.push(values.length / count);
  return { at, share };
}
