// The page of a benchmark: how each family of problems went, planners side by side, and every run.

import {
  cumulate,
  familiesOf,
  groupRuns,
  hasValidEnds,
  isBad,
  isUnproven,
  measure,
  quantile,
  secondsOf,
  type Figures,
  type RunGroup,
  type Summary,
} from "./bench_statistics";
import { createChart, createFigure, extremes, type Axis, type ChartLine } from "./chart";
import type { BenchDocument, BenchProblem, BenchRun } from "./document";
import { create } from "./dom";
import { createSortableTable, type Column } from "./sortable_table";
import { createFacts, createPart } from "./tables";
import { createFiles, createSettings } from "./panel";
import { formatDistance, formatNumber, formatTime } from "./text";
import { linearTicks, logTicks } from "./ticks";

interface GroupRow extends RunGroup {
  figures: Figures;
  /** Of the first planner in the same family; null in its own row. */
  first: Figures | null;
}

interface ProblemRow {
  problem: BenchProblem;
  runs: { index: number; run: BenchRun }[];
}

/** @param linkOf Where a run can be looked at; null where its plan was not kept. */
export function createReport(document: BenchDocument, linkOf: (run: number) => string | null): HTMLElement {
  const families = familiesOf(document);
  const severalPlanners = document.planners.length > 1;
  const groups: GroupRow[] = groupRuns(document)
    .filter(({ runs }) => runs.length > 0)
    .map((group) => ({ ...group, figures: measure(group), first: null }));
  for (const group of groups) {
    const first = groups.find(({ family }) => family === group.family);
    group.first = first && first !== group ? first.figures : null;
  }

  const outcomes = createSortableTable<GroupRow>(
    `Times are of search and shortening together${severalPlanners ? "; × is times the first planner's" : ""}`,
    outcomeColumns(severalPlanners),
  );
  const times = createSortableTable<GroupRow>("Times", timeColumns(severalPlanners));
  const paths = createSortableTable<GroupRow>(
    severalPlanners ? "Medians of what all planners solved" : "Medians of what was solved",
    pathColumns(severalPlanners),
  );
  const charts = create("div", "report-charts");
  const problems = createSortableTable<ProblemRow>("Problems and their runs", problemColumns(document, linkOf));

  const choice = create("select", "", new Option("All families", ""), ...families.map((name) => new Option(name, name)));
  const onlyTrouble = create("input");
  onlyTrouble.type = "checkbox";
  const trouble = create("label", "switch", onlyTrouble, "only problems that were not solved, or not proven");
  const count = create("output", "chart-note");

  const rows = problemRows(document);
  const showProblems = (): void => {
    const family = choice.selectedIndex > 0 ? choice.value : null;
    const shown = rows
      .filter(({ problem }) => family === null || problem.family === family)
      .filter(({ runs }) => !onlyTrouble.checked || runs.some(({ run }) => !run.found || isUnproven(run) || isBad(run)));
    problems.setRows(shown);
    count.textContent = `${shown.length} of ${rows.length} problems`;
  };
  const show = (): void => {
    const family = choice.selectedIndex > 0 ? choice.value : null;
    const shown = family === null ? groups : groups.filter((group) => group.family === family);
    outcomes.setRows(shown);
    times.setRows(shown);
    paths.setRows(shown);
    // All of them first: the families are details of it.
    const names = [...new Set(shown.map((group) => group.family))].sort((a, b) => Number(a !== null) - Number(b !== null));
    charts.replaceChildren(
      ...names.flatMap((name) => createFamilyCharts(shown.filter((group) => group.family === name))),
    );
    showProblems();
  };
  choice.addEventListener("change", show);
  onlyTrouble.addEventListener("change", showProblems);
  show();

  const hasScenes = document.runs.some((_, run) => linkOf(run) !== null);
  const hints = hasScenes ? [] : [create("p", "chart-note", "With --keep-plans, each run can be looked at in its scene.")];
  const main = create(
    "main",
    "",
    create("div", "report-bar", create("label", "switch", "Family", choice)),
    createPart("Outcomes", outcomes.element),
    createPart("Distributions", charts),
    createPart("Times and paths", times.element, paths.element),
    createPart("Problems", ...hints, create("div", "report-bar", trouble, count), problems.element),
    createScope(document),
    createSettings(document.settings),
    createProvenance(document),
  );
  return create("div", "report-page", createHeader(document), main);
}

function createHeader(document: BenchDocument): HTMLElement {
  const { robot, runs, num_wanted: wanted, planners, problems, version } = document;
  const header = create(
    "header",
    "",
    create("h1", "", `Benchmark of ${robot}`),
    create("p", "chart-note", `${problems.length} problems, ${runs.length} runs, ${planners.join(" and ")}; version ${version}`),
  );
  if (runs.length !== wanted) {
    header.append(
      create("p", "badge badge-bad", `Stopped after ${runs.length} of ${wanted} runs: the figures are of these`),
    );
  }
  return header;
}

// ----- Tables of groups

const dash = "-";

function cellOf(value: number, format: (value: number) => string, first: number | null): string | Node {
  if (Number.isNaN(value)) {
    return dash;
  }
  const text = format(value);
  if (first === null || !(first > 0)) {
    return text;
  }
  const ratio = create("small", "ratio", `× ${formatNumber(value / first, 3)}`);
  ratio.title = "times the first planner's";
  const both = document.createDocumentFragment();
  both.append(text, " ", ratio);
  return both;
}

const formatValue = (value: number): string => formatNumber(value, 4);

function nameColumns(severalPlanners: boolean): Column<GroupRow>[] {
  const family: Column<GroupRow> = {
    title: "Family",
    cell: ({ family: name }) => name ?? "all",
    key: ({ family: name }) => name,
    isText: true,
  };
  const planner: Column<GroupRow> = {
    title: "Planner",
    cell: ({ planner: name }) => name,
    key: ({ planner: name }) => name,
    isText: true,
  };
  return severalPlanners ? [family, planner] : [family];
}

function figureColumn(
  title: string,
  value: (figures: Figures) => number,
  format: (value: number) => string = formatValue,
  withRatio = true,
): Column<GroupRow> {
  return {
    title,
    cell: ({ figures, first }) => cellOf(value(figures), format, withRatio && first ? value(first) : null),
    key: ({ figures }) => value(figures),
  };
}

function outcomeColumns(severalPlanners: boolean): Column<GroupRow>[] {
  const counted = (title: string, value: (figures: Figures) => number): Column<GroupRow> =>
    figureColumn(title, value, String, false);
  return [
    ...nameColumns(severalPlanners),
    counted("Problems", ({ numProblems }) => numProblems),
    counted("Runs", ({ numRuns }) => numRuns),
    counted("Invalid", ({ numInvalid }) => numInvalid),
    counted("Solved", ({ numSolved }) => numSolved),
    figureColumn("Share", ({ share }) => share, (share) => `${formatNumber(100 * share, 3)} %`, false),
    counted("Bad", ({ numBad }) => numBad),
    counted("Unproven", ({ numUnproven }) => numUnproven),
    figureColumn("Median", ({ both }) => both.median, formatTime),
    figureColumn("Mean", ({ both }) => both.mean, formatTime),
    figureColumn("95 %", ({ both }) => both.high, formatTime),
    figureColumn("Longest", ({ both }) => both.longest, formatTime),
    figureColumn("Length", ({ length }) => length.median),
    { title: "Failures", cell: ({ figures }) => describeFailures(figures), isText: true },
  ];
}

function describeFailures({ failures }: Figures): string {
  return failures.size === 0 ? dash : [...failures].map(([status, count]) => `${status}: ${count}`).join(", ");
}

function timeColumns(severalPlanners: boolean): Column<GroupRow>[] {
  const parts: [string, (figures: Figures) => Summary][] = [
    ["Search", ({ search }) => search],
    ["Shortening", ({ shortening }) => shortening],
    ["Both", ({ both }) => both],
  ];
  return [
    ...nameColumns(severalPlanners),
    ...parts.flatMap(([title, part]) => [
      figureColumn(`${title} median`, (figures) => part(figures).median, formatTime),
      figureColumn(`${title} mean`, (figures) => part(figures).mean, formatTime),
      figureColumn(`${title} 95 %`, (figures) => part(figures).high, formatTime),
    ]),
  ];
}

function pathColumns(severalPlanners: boolean): Column<GroupRow>[] {
  return [
    ...nameColumns(severalPlanners),
    figureColumn("Raw waypoints", ({ rawWaypoints }) => rawWaypoints.median),
    figureColumn("Waypoints", ({ waypoints }) => waypoints.median),
    figureColumn("Raw length", ({ rawLength }) => rawLength.median),
    figureColumn("Length", ({ length }) => length.median),
    figureColumn("Mean length", ({ length }) => length.mean),
    figureColumn("Nodes", ({ nodes }) => nodes.median),
    figureColumn("Motions", ({ motions }) => motions.median),
    figureColumn("Placements", ({ placements }) => placements.median),
  ];
}

// ----- Distributions

function createFamilyCharts(groups: readonly RunGroup[]): HTMLElement[] {
  const family = groups[0]?.family ?? "all families";
  const times = groups.map(({ runs }) => runs.filter((run) => run.found).map(secondsOf));
  const lengths = groups.map(({ solved }) => solved.map(({ length }) => length ?? NaN));
  const figures: HTMLElement[] = [];
  if (times.some((values) => values.length > 0)) {
    const counts = groups.map(({ runs }) => runs.filter(hasValidEnds).length);
    figures.push(createShareChart(family, "solved within a time", groups, times, counts, timeAxis(times.flat()), formatTime));
  }
  if (lengths.some((values) => values.length > 0)) {
    const counts = lengths.map((values) => values.length);
    figures.push(
      createShareChart(family, "of the solved, by length", groups, lengths, counts, lengthAxis(lengths.flat()), formatValue),
    );
  }
  return figures;
}

// An axis of values, and where on it they are.
interface ValueAxis extends Axis {
  place: (value: number) => number;
}

// Logarithmic: a decade has the length 1.
function timeAxis(values: readonly number[]): ValueAxis {
  const [low, high] = extremes(values);
  const from = Math.log10(Math.max(low, 1e-9)) - 0.1;
  const length = Math.log10(Math.max(high, 1e-9)) + 0.1 - from;
  return {
    length,
    label: "",
    place: (value) => Math.log10(Math.max(value, 1e-9)) - from,
    ticks: () =>
      logTicks(10 ** from, 10 ** (from + length)).map((at) => ({ at: Math.log10(at) - from, label: formatTime(at) })),
    describe: (at) => `within ${formatTime(10 ** (from + at))}`,
  };
}

function lengthAxis(values: readonly number[]): ValueAxis {
  const [low, high] = extremes(values);
  const room = Math.max(0.03 * (high - low), 1e-3);
  const from = low - room;
  return {
    length: high - low + 2 * room,
    label: "",
    place: (value) => value - from,
    ticks: (count) => linearTicks(from, high + room, count).map((at) => ({ at: at - from, label: formatNumber(at) })),
    describe: (at) => `no longer than ${formatValue(from + at)}`,
  };
}

function createShareChart(
  family: string,
  title: string,
  groups: readonly RunGroup[],
  values: readonly (readonly number[])[],
  counts: readonly number[],
  axis: ValueAxis,
  format: (value: number) => string,
): HTMLElement {
  const lines = groups.map(({ planner }, i): ChartLine => {
    const places = (values[i] ?? []).map(axis.place);
    const { at, share } = cumulate(places, counts[i] ?? 0, 0, axis.length);
    const sorted = [...places].sort((a, b) => a - b);
    return {
      name: planner,
      label: groups.length > 1 ? planner : "",
      style: i,
      at,
      values: share,
      read: (place) => {
        const reached = sorted.filter((value) => value <= place).length;
        return `${reached} of ${counts[i] ?? 0}, ${formatNumber((100 * reached) / (counts[i] ?? 0), 3)} %`;
      },
    };
  });
  const medians = groups.map(({ planner }, i) => `${planner} median ${format(quantile(values[i] ?? [], 0.5))}`);
  const chart = createChart(`Share of ${family} ${title}: ${medians.join(", ")}`, axis);
  const ticks = [0, 0.25, 0.5, 0.75, 1].map((at) => ({ at, label: `${100 * at} %` }));
  chart.draw({ low: -0.02, high: 1.04, ticks, lowest: null, highest: null, spans: [], lines });
  return createFigure(family, create("span", "chart-note", title), chart);
}

// ----- Problems

function problemRows({ problems, runs }: BenchDocument): ProblemRow[] {
  const rows = problems.map((problem): ProblemRow => ({ problem, runs: [] }));
  runs.forEach((run, index) => rows[run.problem]?.runs.push({ index, run }));
  return rows.filter((row) => row.runs.length > 0);
}

function problemColumns(
  { planners }: BenchDocument,
  linkOf: (run: number) => string | null,
): Column<ProblemRow>[] {
  const own = ({ runs }: ProblemRow, planner: string): ProblemRow["runs"] => runs.filter(({ run }) => run.planner === planner);
  const timeOf = (row: ProblemRow, planner: string): number => quantile(own(row, planner).map(({ run }) => secondsOf(run)), 0.5);
  const lengthOf = (row: ProblemRow, planner: string): number =>
    quantile(own(row, planner).flatMap(({ run }) => run.length ?? []), 0.5);
  const prefix = (planner: string): string => (planners.length > 1 ? `${planner}, ` : "");
  return [
    { title: "Problem", cell: ({ problem }) => problem.name, key: ({ problem }) => problem.name, isText: true },
    { title: "Family", cell: ({ problem }) => problem.family, key: ({ problem }) => problem.family, isText: true },
    ...planners.flatMap((planner): Column<ProblemRow>[] => [
      {
        title: `${prefix(planner)}median time`,
        cell: (row) => cellOf(timeOf(row, planner), formatTime, null),
        key: (row) => timeOf(row, planner),
      },
      {
        title: `${prefix(planner)}length`,
        cell: (row) => cellOf(lengthOf(row, planner), formatValue, null),
        key: (row) => lengthOf(row, planner),
      },
      {
        title: `${prefix(planner)}runs`,
        cell: (row) => createRuns(row, own(row, planner), linkOf),
        // Those with the most trouble first.
        key: (row) => own(row, planner).filter(({ run }) => run.found && !isUnproven(run) && !isBad(run)).length,
        isText: true,
      },
    ]),
  ];
}

function createRuns(
  { problem }: ProblemRow,
  runs: ProblemRow["runs"],
  linkOf: (run: number) => string | null,
): HTMLElement {
  return create("span", "runs", ...runs.map(({ index, run }) => createRun(problem, index, run, linkOf(index))));
}

function createRun(problem: BenchProblem, index: number, run: BenchRun, link: string | null): HTMLElement {
  const state = !run.found ? "failed" : isBad(run) ? "touching" : isUnproven(run) ? "unproven" : "solved";
  const mark = { failed: "✕", touching: "✕", unproven: "?", solved: "✓" }[state];
  const what = { failed: run.status, touching: "touches", unproven: "unproven", solved: "" }[state];
  const text = [mark, what, formatTime(secondsOf(run))].filter((part) => part !== "").join(" ");
  const chip = link === null ? create("span", `run run-${state}`, text) : createLink(`run run-${state}`, text, link);
  const details = [
    run.found ? `solved, ${run.proof ?? "not looked at"}` : run.status,
    run.found ? `length ${formatValue(run.length ?? NaN)}` : run.fault,
    `seed ${run.seed}`,
  ].filter((part) => part !== "");
  chip.title = `${details.join("; ")}${link === null ? "" : ". Open its scene"}`;
  chip.setAttribute(
    "aria-label",
    `${problem.family} ${problem.name}, ${run.planner}, run ${run.repeat + 1}: ${details.join(", ")}, ${formatTime(secondsOf(run))}`,
  );
  chip.dataset.run = String(index);
  return chip;
}

function createLink(className: string, text: string, href: string): HTMLAnchorElement {
  const link = create("a", className, text);
  link.href = href;
  return link;
}

// ----- What the figures hold for

function createScope({ problems, runs }: BenchDocument): HTMLElement {
  const lines: string[] = [];
  const ignored = new Map<string, Set<number>>();
  for (const run of runs) {
    for (const name of run.ignored) {
      ignored.set(name, (ignored.get(name) ?? new Set()).add(run.problem));
    }
  }
  for (const [name, which] of ignored) {
    lines.push(`Ignored in ${which.size} of ${problems.length} problems: ${name}.`);
  }
  const [first] = runs;
  if (first && first.uncovered_links.length > 0) {
    lines.push(`For the covered links only, not ${first.uncovered_links.join(", ")}.`);
  }
  if (first) {
    const pairs = first.self_collision_pairs;
    lines.push(`Self-collision: ${pairs > 0 ? `${pairs} pairs of frames looked at` : "not looked at"}.`);
  }
  const bad = runs.filter((run) => isBad(run) && run.planner !== "bi_rrt");
  if (bad.length > 0) {
    const edges: [string, string][] = [
      ["connection", "on the connection of the two trees, longer than a step and not checked"],
      ["short", "on a segment shorter than a step, not checked"],
      ["between", "on a checked segment, between two of the points that were checked"],
    ];
    const counts = edges.map(([edge, where]) => `${bad.filter((run) => run.first_bad_edge === edge).length} ${where}`);
    const depths = bad.map(({ depth }) => depth ?? NaN);
    lines.push(
      `${bad.length} found paths of sampled segments are bad. The first bad configuration lies ${counts.join("; ")}.`,
      `The deepest contact of such a path: median ${formatDistance(quantile(depths, 0.5))}, at most ${formatDistance(quantile(depths, 1))}.`,
    );
  }
  return createPart("What this holds for", create("ul", "", ...lines.map((line) => create("li", "", line))));
}

function createProvenance({ files, version, robot }: BenchDocument): HTMLElement {
  return createPart(
    "Provenance",
    createFacts([
      ["Version", version],
      ["Robot", robot],
    ]),
    createFiles(files),
  );
}
