// The panel beside the scene: what came of the plan, how far it is proven, and what it takes to run it again.

import type { Check, Configuration, FileRecord, Goal, GoalReport, PlanDocument, Shape, Stage } from "./document";
import { create, createButton } from "./dom";
import { createFacts, createFold, createPart, createTable, type Fact } from "./tables";
import { formatDistance, formatNumber, formatTime } from "./text";

export function createPanel(document: PlanDocument): HTMLElement {
  const panel = create(
    "aside",
    "panel",
    createOutcome(document),
    createCheck(document.check),
    createEffort(document),
    ...createTrajectoryPart(document),
    createGoals(document),
    createSettings(document.settings),
    createProvenance(document),
  );
  const drawn = describeThinning(document);
  if (drawn.length > 0) {
    panel.append(createPart("Drawn in part", createList(drawn)));
  }
  panel.setAttribute("aria-label", "Result");
  return panel;
}

function createList(lines: readonly string[]): HTMLElement {
  return create("ul", "", ...lines.map((line) => create("li", "", line)));
}

function createOutcome({ found, status, explanation, path, statistics }: PlanDocument): HTMLElement {
  const outcome = found ? "A path was found." : `No path was found: ${status}.`;
  const part = createPart("Result", create("p", "outcome", outcome));
  if (found) {
    part.append(
      createFacts([
        ["Length", `${formatNumber(lengthOf(path), 4)} (before shortening ${formatNumber(statistics.raw_length, 4)})`],
        ["Waypoints", `${path.length} (before shortening ${statistics.num_raw_waypoints})`],
        ["Shortening", statistics.was_shortening_stopped ? "was stopped before its end" : null],
        [
          "Interpolated path",
          statistics.first_invalid_interpolated === null
            ? null
            : `not valid at its configuration ${statistics.first_invalid_interpolated + 1}`,
        ],
      ]),
    );
  }
  const text = explanation.trim();
  if (text !== "") {
    const full = create("pre", "explanation", text);
    // Of a failure this is the answer; of a path it repeats what the page shows.
    part.append(found ? createFold("What the command says", full) : full);
  }
  return part;
}

/** The sum of the lengths of its segments, in c-space. */
export function lengthOf(path: readonly Configuration[]): number {
  let length = 0;
  path.slice(1).forEach((to, i) => {
    length += Math.hypot(...to.map((value, joint) => value - (path[i]?.[joint] ?? 0)));
  });
  return length;
}

function createCheck(check: Check | null): HTMLElement {
  if (!check) {
    return createPart("Check", create("p", "", "The result was not checked."));
  }
  const { passed, verdict, step, num_configurations: count, fault } = check;
  const how =
    step === null
      ? `The motions were looked at as a whole${count > 0 ? `, by ${count} placements` : ""}: the verdict holds between waypoints and samples, too.`
      : `Looked at in ${count > 0 ? `${count} ` : ""}configurations ${formatNumber(step)} apart, not between them.`;
  return createPart(
    "Check",
    create("p", `badge badge-${passed ? "good" : "bad"}`, verdict),
    create("p", "", how),
    createFacts([
      ["Fault", fault === "" ? null : fault],
      ["Least clearance", check.clearance === null ? null : formatDistance(check.clearance)],
      ["Least from itself", check.self_clearance === null ? null : formatDistance(check.self_clearance)],
      ["Clearances to within", check.tolerance === null ? null : formatDistance(check.tolerance)],
      ["Ignored", check.ignored.length > 0 ? check.ignored.join(", ") : null],
      ["Not covered", check.uncovered_links.length > 0 ? check.uncovered_links.join(", ") : null],
      ["Cover of meshes", check.cover_tolerance === null ? null : `to ${formatDistance(check.cover_tolerance)}`],
      ["Self-collision", describePairs(check.self_collision_pairs)],
    ]),
  );
}

function describePairs(count: number): string {
  return count > 0 ? `${count} ${count === 1 ? "pair" : "pairs"} of frames` : "not looked at";
}

function createEffort({ statistics: work, searches }: PlanDocument): HTMLElement {
  const positive = (count: number): string | null => (count > 0 ? formatCount(count) : null);
  return createPart(
    "Search",
    createFacts([
      ["Outcome", work.search],
      ["Planner", work.planner],
      ["Time", `search ${formatTime(work.search_seconds)}, shortening ${formatTime(work.shortening_seconds)}`],
      ["Iterations", formatCount(work.num_iterations)],
      ["Nodes", work.num_nodes.length > 0 ? work.num_nodes.map(formatCount).join(" and ") : null],
      ["Motions checked", positive(work.num_motions)],
      ["Placements", positive(work.num_placements)],
      ["Divisions", positive(work.num_divisions)],
      ["Configurations checked", positive(work.num_validity_checks)],
      [
        "Samples",
        work.num_samples_drawn > 0
          ? `${formatCount(work.num_samples_drawn)}, of which ${formatCount(work.num_samples_rejected)} rejected`
          : null,
      ],
      ["Searches", searches.length > 1 ? searches.map(({ planner }) => planner).join(", ") : null],
    ]),
  );
}

/** With thin spaces between thousands. */
function formatCount(count: number): string {
  return String(count).replace(/\B(?=(\d{3})+$)/g, "\u202f");
}

function createTrajectoryPart({ trajectory }: PlanDocument): HTMLElement[] {
  if (!trajectory) {
    return [];
  }
  return [
    createPart(
      "Trajectory",
      create("p", "", trajectory.verdict),
      createFacts([
        ["Duration", `${formatNumber(trajectory.duration, 5)} s`],
        ["Samples", `${formatCount(trajectory.num_samples)}, every ${formatTime(trajectory.period)}`],
        ["Corners rounded", `${trajectory.num_blends}, by at most ${formatNumber(trajectory.blend_deviation, 3)}`],
        ["Rounded less", trajectory.num_tightened > 0 ? String(trajectory.num_tightened) : null],
        ["Stops on the way", trajectory.num_stops > 0 ? String(trajectory.num_stops) : null],
        ["Limits of jerk", trajectory.jerk_limits ? "kept" : "none"],
      ]),
    ),
  ];
}

// ----- What was asked for

function createGoals({ stages, start, joint_names: names }: PlanDocument): HTMLElement {
  const several = stages.length > 1;
  const part = createPart(several ? "Stages" : "Goal");
  stages.forEach((stage, i) => {
    const kind = stage.kind === "line" ? "Line" : "Free motion";
    if (several) {
      part.append(create("h3", "", `${i + 1}. ${kind}`));
    }
    part.append(create("p", "", `${capitalise(describeEnd(stage))}.`));
    if (stage.line) {
      const { end, fraction, deviation, angle } = stage.line;
      part.append(
        createFacts([
          ["Line", `${end}, ${formatNumber(100 * fraction, 4)} % of it`],
          ["Off the line", `at most ${formatDistance(deviation)} and ${formatNumber(angle, 3)} rad`],
        ]),
      );
    }
    const goals = stage.goals.map((goal, k) => createGoal(goal, k === stage.goal, stage.goal_reports?.[k], names));
    part.append(goals.length > 1 ? create("ol", "", ...goals.map((goal) => create("li", "", goal))) : create("div", "", ...goals));
  });
  part.append(createFold("Joint values of the start", createValues(names, start)));
  return part;
}

function describeEnd({ status, goal, goals, first_waypoint: first, last_waypoint: last }: Stage): string {
  const parts = [
    goals.length > 1 && typeof goal === "number" ? `goal ${goal + 1} of ${goals.length}` : "",
    typeof first === "number" && typeof last === "number" && last > first ? `waypoints ${first + 1} to ${last + 1}` : "",
  ].filter((part) => part !== "");
  return `${status ?? "not reached"}${parts.length > 0 ? `: ${parts.join(", ")}` : ""}`;
}

function capitalise(text: string): string {
  return text.charAt(0).toUpperCase() + text.slice(1);
}

function createGoal(goal: Goal, isReached: boolean, report: GoalReport | undefined, names: readonly string[]): HTMLElement {
  const title = (what: string): HTMLElement => create("p", isReached ? "reached" : "", `${isReached ? "Reached: " : ""}${what}`);
  const numbers = (values: readonly number[]): string => values.map((value) => formatNumber(value, 4)).join(", ");
  const ends = report ? reportFacts(report, names) : [];
  if (!Array.isArray(goal) && "position" in goal) {
    return create(
      "div",
      "",
      title(`${goal.orientation ? "a pose" : "a position"} of ${goal.frame}`),
      createFacts([
        ["Position", `${numbers(goal.position)} m`],
        ["Orientation", goal.orientation ? `${numbers(goal.orientation)} (x y z w)` : null],
        ["Tolerances", describeTolerances(goal.position_tolerance, goal.orientation_tolerance)],
        ["Free", describeFree(goal.free_translations, goal.free_rotations)],
        ["Regions", goal.regions ? String(goal.regions.length) : null],
        ...ends,
      ]),
    );
  }
  const range = Array.isArray(goal) ? null : goal;
  return create(
    "div",
    "",
    title(range ? "a configuration with tolerances" : "a configuration"),
    createFold("Joint values", createValues(names, Array.isArray(goal) ? goal : goal.configuration)),
    createFacts([["Down by", range && numbers(range.below)], ["Up by", range && numbers(range.above)], ...ends]),
  );
}

function describeTolerances(position: number | null | undefined, orientation: number | null | undefined): string | null {
  const parts = [
    typeof position === "number" ? formatDistance(position) : "",
    typeof orientation === "number" ? `${formatNumber(orientation)} rad` : "",
  ].filter((part) => part !== "");
  return parts.length > 0 ? parts.join(", ") : null;
}

function describeFree(translations: readonly boolean[] | undefined, rotations: readonly boolean[] | undefined): string | null {
  const axes = ["x", "y", "z"];
  const free = [
    ...axes.filter((_, i) => translations?.[i]).map((axis) => `along ${axis}`),
    ...axes.filter((_, i) => rotations?.[i]).map((axis) => `about ${axis}`),
  ];
  return free.length > 0 ? free.join(", ") : null;
}

function reportFacts(report: GoalReport, names: readonly string[]): Fact[] {
  const { nearest, fault } = report;
  const atLimits = nearest?.coordinates_at_limits.map((joint) => names[joint] ?? String(joint + 1)) ?? [];
  return [
    [
      "Configurations",
      `${report.num_configurations} valid, ${report.num_rejected} not valid` +
        (report.num_not_accepted > 0 ? `, ${report.num_not_accepted} not accepted` : ""),
    ],
    ["Restarts", report.num_restarts > 0 ? formatCount(report.num_restarts) : null],
    [
      "Nearest",
      nearest
        ? formatDistance(nearest.position_error) +
          (nearest.orientation_error > 0 ? ` and ${formatNumber(nearest.orientation_error, 3)} rad` : "") +
          " away" +
          (atLimits.length > 0 ? `, with ${atLimits.join(", ")} at limits` : "")
        : null,
    ],
    ["Fault", fault ? describeFault(fault, names) : null],
    ["Clearance", report.is_too_close ? "less than was asked for" : null],
  ];
}

function describeFault(fault: NonNullable<GoalReport["fault"]>, names: readonly string[]): string {
  if ("coordinate" in fault) {
    return `${names[fault.coordinate] ?? `coordinate ${fault.coordinate + 1}`} is beyond its limits`;
  }
  return "frames" in fault
    ? `${fault.frames[0]} touches ${fault.frames[1]}`
    : `${fault.frame} touches ${fault.obstacle}`;
}

function createValues(names: readonly string[], q: Configuration): HTMLElement {
  const rows = names.map((name, i) => [name, formatNumber(q[i] ?? NaN)]);
  return createTable("In radians and metres", ["Joint", "Value"], rows);
}

// ----- How it came about

/** In groups, as their names have them. */
export function createSettings(settings: Record<string, unknown>): HTMLElement {
  // `pose_planning_params/position_tolerance` belongs to a group.
  const groups = new Map<string, [string, string][]>();
  for (const [path, value] of Object.entries(settings)) {
    const cut = path.lastIndexOf("/");
    const group = path.slice(0, Math.max(cut, 0));
    groups.set(group, [...(groups.get(group) ?? []), [path.slice(cut + 1), describeValue(value)]]);
  }
  const tables = [...groups].map(([group, rows]) =>
    createTable(group === "" ? "Of all planners" : group, ["Setting", "Value"], rows),
  );
  return createPart("Settings", createFold(`${Object.keys(settings).length} settings`, ...tables));
}

function describeValue(value: unknown): string {
  if (Array.isArray(value)) {
    const parts = value.map((part) => (Array.isArray(part) ? `[${describeValue(part)}]` : describeValue(part)));
    return parts.join(", ");
  }
  // Counts as they are: 2000000, not 2e+06.
  return typeof value === "number" && !Number.isInteger(value) ? formatNumber(value) : String(value);
}

function createProvenance(document: PlanDocument): HTMLElement {
  const held = Object.entries(document.held_joints).map(([name, value]) => `${name} at ${formatNumber(value)}`);
  const part = createPart(
    document.arguments.length > 0 ? "Run it again" : "Provenance",
    ...(document.arguments.length > 0 ? [createCommand(document.arguments)] : []),
    createFacts([
      ["Version", document.version],
      ["Seed", String(document.seed)],
      ["Robot", document.robot],
      ["Joints held", held.length > 0 ? held.join(", ") : null],
    ]),
  );
  if (document.files.length > 0) {
    part.append(create("h3", "", "Files that were read"), createFiles(document.files));
  }
  return part;
}

/** Each with the hash by which it can be told whether it has changed. */
export function createFiles(files: readonly FileRecord[]): HTMLElement {
  const items = files.map(({ role, name, sha256 }) =>
    create("li", "", `${role}: ${name} `, create("code", "hash", sha256 ? `SHA-256 ${sha256}` : "no hash")),
  );
  return create("ul", "", ...items);
}

/** As one types it: words that a shell would take apart are quoted. */
export function commandLine(words: readonly string[]): string {
  const quoted = words.map((word) => (/^[\w@%+=:,./-]+$/.test(word) ? word : `'${word.replaceAll("'", "'\\''")}'`));
  return ["kavo", ...quoted].join(" ");
}

function createCommand(words: readonly string[]): HTMLElement {
  // Lines do not end within the name of an option.
  const parts = commandLine(words).split(/(--[\w-]+)/);
  const text = create("code", "", ...parts.map((part, i) => (i % 2 === 1 ? create("span", "option", part) : part)));
  const said = create("span", "copied");
  said.setAttribute("role", "status");
  const select = (): void => {
    getSelection()?.selectAllChildren(text);
    said.textContent = "Marked: copy it with the keys of your system.";
  };
  const copy = createButton("Copy the command", "Copy the command", () => {
    // A page that was opened from disk may not be trusted with the clipboard.
    if (!isSecureContext) {
      select();
      return;
    }
    navigator.clipboard.writeText(text.textContent).then(() => {
      said.textContent = "Copied.";
    }, select);
  });
  return create("div", "command", create("pre", "", text), copy, said);
}

/** What is not drawn in full, one line each. */
export function describeThinning({
  robot_model: robot,
  scene,
  searches,
  trajectory,
}: Pick<PlanDocument, "robot_model" | "scene" | "searches" | "trajectory">): string[] {
  const lines: string[] = [];
  const add = (name: string, what: string, drawn: number, all: number): void => {
    if (drawn < all) {
      lines.push(`${name}: ${formatCount(drawn)} of ${formatCount(all)} ${what}`);
    }
  };
  const addShape = (name: string, shape: Shape): void => {
    if ("mesh" in shape) {
      add(name, "triangles", shape.mesh.triangles.length / 3, shape.mesh.num_triangles);
    } else if ("points" in shape) {
      add(name, "points", shape.points.points.length / 3, shape.points.num_points);
    } else if ("octree" in shape) {
      add(name, "cells", shape.octree.cells.length / 4, shape.octree.num_cells);
    }
  };
  const sum = (values: number[]): number => values.reduce((total, value) => total + value, 0);
  for (const { name, visual_meshes, collision_meshes } of robot.frames) {
    const meshes = [...visual_meshes, ...collision_meshes];
    add(name, "triangles", sum(meshes.map((mesh) => mesh.triangles.length / 3)), sum(meshes.map((mesh) => mesh.num_triangles)));
  }
  for (const { name, shape } of [...robot.attachments, ...scene.obstacles]) {
    addShape(name, shape);
  }
  searches.forEach(({ trees }, i) => {
    for (const { root, nodes, num_nodes } of trees) {
      add(`Tree from the ${root}${searches.length > 1 ? ` of search ${i + 1}` : ""}`, "nodes", nodes.length, num_nodes);
    }
  });
  if (trajectory) {
    add("Trajectory", "samples", trajectory.samples.times.length, trajectory.num_samples);
  }
  return lines;
}
