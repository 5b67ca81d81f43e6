import { Group } from "three";

import type { Configuration, PlanDocument, SearchTree, Vec3 } from "../document";
import type { Kinematics } from "../kinematics";
import type { Motion } from "../motion";
import { dotsAt, type LineLook, Lines, segmentsThrough } from "./lines";
import type { Theme } from "./theme";

const numTraceSegments = 400;
const finestStep = 0.08;
const mostSteps = 5000;
// Of a path of more waypoints the dots would be another line.
const mostDots = 60;

export type ToolLineName = "trace" | "raw" | "startTree" | "goalTree";

/** What the tool's position draws into the space: its trace, the path before shortening and the trees of the search. */
export class ToolLines {
  readonly object = new Group();
  private readonly groups: Record<ToolLineName, Group>;
  private readonly lines: { lines: Lines; colour: "ink" | "raw" | "start" | "goal" }[] = [];
  private theme: Theme | undefined;

  constructor(
    private readonly document: Pick<PlanDocument, "path" | "searches">,
    motion: Motion,
    private readonly kinematics: Kinematics,
  ) {
    this.groups = { trace: new Group(), raw: new Group(), startTree: new Group(), goalTree: new Group() };
    for (const group of Object.values(this.groups)) {
      this.object.add(group);
    }
    if (motion.duration > 0) {
      const times = Array.from({ length: numTraceSegments + 1 }, (_, i) => (i / numTraceSegments) * motion.duration);
      const ends = segmentsThrough(this.positionsAt(times.map((time) => motion.configurationAt(time))));
      this.add("trace", ends, "ink", { width: 3.5 });
      // Where something is before it, it is faint.
      this.add("trace", ends, "ink", { width: 2, isOnTop: true, opacity: 0.25 });
      if (document.path.length <= mostDots) {
        this.add("trace", dotsAt(this.positionsAt(document.path)), "ink", { width: 9 });
      }
    }
    for (const search of document.searches) {
      const raw = segmentsThrough(this.positionsAt(refine(search.raw_path, lengthOfPath(search.raw_path))));
      this.add("raw", raw, "raw", { width: 2.5, dash: { on: 0.03, off: 0.015 } });
    }
  }

  /** Trees, which have many nodes, are made when somebody wants to see them. */
  show(name: ToolLineName, isOn: boolean): void {
    this.groups[name].visible = isOn;
    if (isOn && this.groups[name].children.length === 0 && (name === "startTree" || name === "goalTree")) {
      this.addTrees(name);
    }
  }

  applyTheme(theme: Theme): void {
    this.theme = theme;
    for (const { lines, colour } of this.lines) {
      lines.colour = theme[colour];
    }
  }

  private addTrees(name: "startTree" | "goalTree"): void {
    const [colour, look] = {
      startTree: ["start", { width: 1.5 }] as const,
      goalTree: ["goal", { width: 1.5, dash: { on: 0.012, off: 0.008 } }] as const,
    }[name];
    for (const tree of this.document.searches.flatMap(({ trees }) => trees)) {
      if (tree.root === colour) {
        const edges = edgesOf(tree);
        const length = edges.reduce((sum, edge) => sum + lengthOfPath(edge), 0);
        const branches = edges.flatMap((edge) => segmentsThrough(this.positionsAt(refine(edge, length))));
        this.add(name, branches, colour, look);
      }
    }
  }

  private positionsAt(configurations: Configuration[]): Vec3[] {
    return configurations.map((q) => this.kinematics.toolPosition(q));
  }

  private add(name: ToolLineName, ends: Vec3[], colour: "ink" | "raw" | "start" | "goal", look: LineLook): void {
    if (ends.length > 0) {
      const lines = new Lines(ends, look);
      this.groups[name].add(lines.object);
      this.lines.push({ lines, colour });
      if (this.theme) {
        lines.colour = this.theme[colour];
      }
    }
  }
}

function lengthOf(from: Configuration, to: Configuration): number {
  return Math.hypot(...to.map((value, j) => value - from[j]!));
}

// The configurations, and more between them, no farther apart in c-space than the curve of the tool needs to be seen, or
// than there is room for.
function refine(path: Configuration[], length: number): Configuration[] {
  const step = Math.max(finestStep, length / mostSteps);
  return path.flatMap((to, i) => {
    const from = path[i - 1];
    if (!from) {
      return [to];
    }
    const numSteps = Math.max(Math.ceil(lengthOf(from, to) / step), 1);
    return Array.from({ length: numSteps }, (_, k) =>
      from.map((value, j) => value + ((k + 1) / numSteps) * (to[j]! - value)),
    );
  });
}

function lengthOfPath(path: Configuration[]): number {
  return path.slice(1).reduce((sum, to, i) => sum + lengthOf(path[i]!, to), 0);
}

// From parent to child, for each node but the root.
function edgesOf(tree: SearchTree): [Configuration, Configuration][] {
  return tree.parents.flatMap((parent, node): [Configuration, Configuration][] => {
    const [from, to] = [parent === null ? undefined : tree.nodes[parent], tree.nodes[node]];
    return from && to ? [[from, to]] : [];
  });
}
