import type { Configuration, Contact, Goal, Inspection, PlanDocument, PoseGoal } from "../document";
import type { RobotKind } from "./robot_figure";

/** A configuration that stands in the scene for the start or for a goal. */
export interface Ghost {
  kind: Exclude<RobotKind, "robot">;
  label: string;
  configuration: Configuration;
  contacts: Contact[];
}

const mostGhosts = 6;

/** Where the motion begins and ends; without a motion, what was looked at instead. */
export function ghostsOf(document: Pick<PlanDocument, "start" | "stages" | "path" | "inspections">): Ghost[] {
  const last = document.path.at(-1);
  const start: Ghost = { kind: "start", label: "S", configuration: document.start, contacts: [] };
  if (last) {
    return [start, { kind: "goal", label: "G", configuration: last, contacts: [] }];
  }
  start.contacts = document.inspections.find(({ what }) => what === "start")?.contacts ?? [];
  const ghosts = goalConfigurations(document).map(
    ({ what, goal, configuration, contacts }): Ghost => ({
      kind: "goal",
      label: what === "nearest" ? "nearest" : labelOf(document, goal),
      configuration,
      contacts,
    }),
  );
  return [start, ...ghosts.slice(0, mostGhosts - 1)];
}

/** What stands for each goal: what was looked at, else the configuration that was asked for. */
export function goalConfigurations(
  document: Pick<PlanDocument, "stages" | "inspections">,
): (Pick<Inspection, "what" | "configuration" | "contacts"> & { goal: number })[] {
  return goalsOf(document).flatMap((asked, goal) => {
    const inspected = document.inspections.filter(({ what, goal: of }) => of === goal && what !== "start");
    if (inspected.length > 0) {
      return inspected.map(({ what, configuration, contacts }) => ({ what, goal, configuration, contacts }));
    }
    const configuration = configurationOf(asked);
    return configuration ? [{ what: "goal" as const, goal, configuration, contacts: [] }] : [];
  });
}

/** Poses that were asked for and that no configuration stands for. */
export function unreachedPoses(
  document: Pick<PlanDocument, "path" | "stages" | "inspections">,
): { label: string; goal: PoseGoal }[] {
  if (document.path.length > 0) {
    return [];
  }
  const reached = new Set(document.inspections.filter(({ what }) => what === "goal").map(({ goal }) => goal));
  return goalsOf(document).flatMap((goal, i) =>
    isPose(goal) && !reached.has(i) ? [{ label: labelOf(document, i), goal }] : [],
  );
}

function goalsOf(document: Pick<PlanDocument, "stages">): Goal[] {
  return document.stages.flatMap(({ goals }) => goals);
}

function labelOf(document: Pick<PlanDocument, "stages">, goal: number): string {
  return goalsOf(document).length > 1 ? `G${goal + 1}` : "G";
}

function configurationOf(goal: Goal): Configuration | undefined {
  return Array.isArray(goal) ? goal : "configuration" in goal ? goal.configuration : undefined;
}

function isPose(goal: Goal): goal is PoseGoal {
  return !Array.isArray(goal) && "position" in goal;
}

/**
 * What touches what: one text for each obstacle or other frame, with the contact that goes deepest.
 *
 * @param mostFrames that are named in a text
 */
export function describeContacts(contacts: Contact[], mostFrames = 2): { text: string; contact: Contact }[] {
  const groups = new Map<string, Contact[]>();
  for (const contact of contacts) {
    const other = contact.obstacle ?? contact.other_frame ?? "";
    groups.set(other, [...(groups.get(other) ?? []), contact]);
  }
  return [...groups].map(([other, group]) => {
    const frames = [...new Set(group.map(({ frame }) => frame))];
    const subject = frames.slice(0, mostFrames).join(", ") + (frames.length > mostFrames ? " …" : "");
    const deepest = group.reduce((deeper, contact) => (contact.depth > deeper.depth ? contact : deeper));
    return { text: `${subject} ${frames.length > 1 ? "touch" : "touches"} ${other}`, contact: deepest };
  });
}

/** Of a configuration that was looked at; goals are counted where there are several. */
export function titleOf(document: Pick<PlanDocument, "stages">, { what, goal }: Pick<Inspection, "what" | "goal">): string {
  const number = goal === null || goalsOf(document).length < 2 ? "" : ` ${goal + 1}`;
  return { start: "Start", goal: `Goal${number}`, fault: "Fault", nearest: `Nearest to goal${number}` }[what];
}
