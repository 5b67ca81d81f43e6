import { Group } from "three";

import type { Configuration, PlanDocument, SearchTree, Vec3 } from "../document";
import type { Kinematics } from "../kinematics";
import type { Motion } from "../motion";
import { dotsAt, Lines, segmentsThrough } from "./lines";
import type { Theme } from "./theme";

const numTraceSegments = 400;
// Between waypoints the tool goes along a curve: so far apart in c-space at most, as long as there are not too many.
const rawStep = 0.08;
const mostRawPoints = 4000;

/** What the tool's position draws into the space: its trace, the path before shortening and the trees of the search. */
export class ToolLines {
  readonly trace = new Group();
  readonly raw = new Group();
  readonly startTree = new Group();
  readonly goalTree = new Group();
  private readonly lines: { lines: Lines; colour: keyof Theme }[] = [];

  constructor(document: Pick<PlanDocument, "path" | "searches">, motion: Motion, kinematics: Kinematics) {
    const position = (q: Configuration): Vec3 => kinematics.toolPosition(q);
    if (motion.duration > 0) {
      const times = Array.from({ length: numTraceSegments + 1 }, (_, i) => (i / numTraceSegments) * motion.duration);
      const ends = segmentsThrough(times.map((time) => position(motion.configurationAt(time))));
      this.add(this.trace, ends, "ink", { width: 3.5 });
      // Where something is before it, it is faint.
      this.add(this.trace, ends, "ink", { width: 2, isOnTop: true, opacity: 0.25 });
      this.add(this.trace, dotsAt(document.path.map(position)), "ink", { width: 9 });
    }
    for (const search of document.searches) {
      const raw = segmentsThrough(refine(search.raw_path).map(position));
      this.add(this.raw, raw, "raw", { width: 2.5, dash: { on: 0.03, off: 0.015 } });
      for (const tree of search.trees) {
        const branches = branchesOf(tree, position);
        if (tree.root === "start") {
          this.add(this.startTree, branches, "start", { width: 1.5 });
        } else {
          this.add(this.goalTree, branches, "goal", { width: 1.5, dash: { on: 0.012, off: 0.008 } });
        }
      }
    }
  }

  applyTheme(theme: Theme): void {
    for (const { lines, colour } of this.lines) {
      lines.colour = theme[colour] as string;
    }
  }

  private add(group: Group, ends: Vec3[], colour: keyof Theme, look: ConstructorParameters<typeof Lines>[1]): void {
    if (ends.length > 0) {
      const lines = new Lines(ends, look);
      group.add(lines.object);
      this.lines.push({ lines, colour });
    }
  }
}

function refine(path: Configuration[]): Configuration[] {
  const refined = path.slice(0, 1);
  for (let i = 1; i < path.length; ++i) {
    const from = path[i - 1]!;
    const to = path[i]!;
    const length = Math.hypot(...to.map((value, j) => value - (from[j] ?? 0)));
    const numSteps = refined.length < mostRawPoints ? Math.min(Math.max(Math.ceil(length / rawStep), 1), 200) : 1;
    for (let k = 1; k <= numSteps; ++k) {
      refined.push(from.map((value, j) => value + (k / numSteps) * ((to[j] ?? 0) - value)));
    }
  }
  return refined;
}

function branchesOf(tree: SearchTree, position: (q: Configuration) => Vec3): Vec3[] {
  const positions = tree.nodes.map(position);
  return tree.parents.flatMap((parent, node) => {
    const [from, to] = [parent === null ? undefined : positions[parent], positions[node]];
    return from && to ? [from, to] : [];
  });
}
