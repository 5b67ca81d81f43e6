import type { BenchDocument, BenchRun, PlanDocument } from "./document";
import { create } from "./dom";
import { createPlanPage } from "./plan_page";
import { createReport } from "./report";
import { formatDistance, formatNumber } from "./text";

/** The report, and in its place the plan of a run while the address ends in `#run=` and its number. */
export function createBenchPage(bench: BenchDocument): HTMLElement {
  const report = createReport(bench, (run) => (planOf(bench, run) ? `#run=${run}` : null));
  const page = create("div", "bench-page", report);
  let leave = new AbortController();
  let reportScroll = 0;
  const show = (): void => {
    leave.abort();
    leave = new AbortController();
    const match = /^#run=(\d+)$/.exec(location.hash);
    const plan = match ? planOf(bench, Number(match[1])) : null;
    if (!plan) {
      page.replaceChildren(report);
      scrollTo(0, reportScroll);
      return;
    }
    if (report.isConnected) {
      reportScroll = scrollY;
    }
    const back = create("a", "back", "← Back to the report");
    back.href = "#";
    page.replaceChildren(create("nav", "", back, ` ${describeRun(bench, Number(match?.[1]))}`), createPlanPage(plan, leave.signal));
    scrollTo(0, 0);
  };
  addEventListener("hashchange", show);
  show();
  return page;
}

function describeRun({ problems, runs }: BenchDocument, index: number): string {
  const run = runs[index];
  const problem = run && problems[run.problem];
  return run && problem ? `${problem.family} ${problem.name}, ${run.planner}, run ${run.repeat + 1}` : "";
}

function describeFault({ passes_check: passes, check_step: step = 0, depth = 0 }: BenchRun): string {
  return passes === false
    ? `not free where it was sampled, ${formatNumber(step)} apart; its deepest contact is ${formatDistance(depth)}`
    : "";
}

/** What is known of a run as the document of a plan; null where plans were not kept. */
export function planOf(bench: BenchDocument, index: number): PlanDocument | null {
  const run = bench.runs[index];
  const problem = run && bench.problems[run.problem];
  const robotModel = problem?.robot_model ?? bench.robot_model;
  if (!run || !problem?.scene || !robotModel) {
    return null;
  }
  return {
    format: "kavo/plan",
    format_version: 1,
    version: bench.version,
    arguments: [],
    files: bench.files,
    robot: bench.robot,
    robot_model: robotModel,
    scene: problem.scene,
    joint_names: bench.joint_names,
    held_joints: run.held_joints,
    start: problem.start,
    target: null,
    stages: problem.stages.map((stage) => ({ ...stage, status: run.status, goal: run.found ? 0 : null })),
    settings: bench.settings,
    seed: run.seed,
    found: run.found,
    status: run.status,
    explanation: run.fault,
    path: run.path ?? [],
    interpolated_path: [],
    statistics: {
      search: run.status,
      num_iterations: run.iterations,
      num_nodes: run.nodes,
      num_validity_checks: run.validity_checks,
      num_samples_drawn: run.samples_drawn,
      num_samples_rejected: run.samples_rejected,
      planner: run.planner,
      num_motions: run.motions,
      num_placements: run.placements,
      num_divisions: run.divisions,
      num_raw_waypoints: run.raw_waypoints ?? 0,
      raw_length: run.raw_length ?? 0,
      search_seconds: run.search_seconds,
      shortening_seconds: run.shortening_seconds,
      was_shortening_stopped: false,
      first_invalid_interpolated: null,
    },
    check: run.found
      ? {
          passed: run.proof === "proven free",
          verdict: run.proof ?? "not proven",
          ignored: run.ignored,
          uncovered_links: run.uncovered_links,
          cover_tolerance: null,
          self_collision_pairs: run.self_collision_pairs,
          step: null,
          num_configurations: 0,
          fault: describeFault(run),
          clearance: null,
          self_clearance: null,
          tolerance: null,
        }
      : null,
    trajectory: null,
    searches: [],
    inspections: [],
    profile: null,
  };
}
