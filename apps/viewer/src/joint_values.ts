// What is known of joints over playing time, and how their values are written.

import { valueAt } from "./chart";
import type { Coordinate, PlanDocument } from "./document";
import type { Motion } from "./motion";

export type AngleUnit = "rad" | "deg";

export interface Limits {
  /** Null: there is none. */
  low: number | null;
  high: number | null;
}

/** A value of every joint over playing time. */
export interface Quantity {
  key: "position" | "velocity" | "acceleration";
  title: string;
  /** What follows the unit of a position. */
  per: "" | "/s" | "/s²";
  times: readonly number[];
  /** Of each joint. */
  series: readonly (readonly number[])[];
  limits: readonly Limits[];
  at: (joint: number, time: number) => number;
}

/** Positions, and where there is a trajectory velocities and accelerations. */
export function quantitiesOf(
  document: Pick<PlanDocument, "trajectory" | "path" | "joint_names" | "robot_model">,
  motion: Motion,
): Quantity[] {
  const { trajectory, path, joint_names: names } = document;
  const columns = (rows: readonly number[][]): number[][] =>
    names.map((_, joint) => rows.map((row) => row[joint] ?? 0));
  // A path goes straight from waypoint to waypoint.
  const times = trajectory?.samples.times ?? path.map((_, i) => motion.fromProfile(i));
  const position: Quantity = {
    key: "position",
    title: "Positions",
    per: "",
    times,
    series: columns(trajectory?.samples.positions ?? path),
    limits: positionLimits(document.robot_model.coordinates, names.length),
    at: (joint, time) => motion.configurationAt(time)[joint] ?? 0,
  };
  if (!trajectory) {
    return [position];
  }
  const rate = (rows: number[][], limits: number[]): Pick<Quantity, "times" | "series" | "limits" | "at"> => {
    const series = columns(rows);
    return {
      times,
      series,
      limits: names.map((_, i) => ({ low: -(limits[i] ?? Infinity), high: limits[i] ?? Infinity })),
      at: (joint, time) => valueAt({ at: times, values: series[joint] ?? [] }, time) ?? 0,
    };
  };
  const { samples, velocity_limits, acceleration_limits } = trajectory;
  return [
    position,
    { key: "velocity", title: "Velocities", per: "/s", ...rate(samples.velocities, velocity_limits) },
    { key: "acceleration", title: "Accelerations", per: "/s²", ...rate(samples.accelerations, acceleration_limits) },
  ];
}

export function positionLimits(coordinates: readonly Coordinate[], count: number): Limits[] {
  return Array.from({ length: count }, (_, i) => ({
    low: coordinates[i]?.min ?? null,
    high: coordinates[i]?.max ?? null,
  }));
}

/** Not for the last digits of a value at a limit that is made full use of. */
export function isBeyond(value: number, { low, high }: Limits): boolean {
  const slack = 1e-9 * Math.max(Math.abs(low ?? 0), Math.abs(high ?? 0), 1);
  return (low !== null && value < low - slack) || (high !== null && value > high + slack);
}

export interface JointUnit {
  /** Of radians or metres. */
  scale: number;
  decimals: number;
  name: string;
}

export function jointUnit(coordinate: Coordinate | undefined, angles: AngleUnit, per: Quantity["per"]): JointUnit {
  const fewer = per === "/s²" ? 1 : 0;
  if (coordinate?.kind === "prismatic") {
    return { scale: 1000, decimals: 1 - fewer, name: `mm${per}` };
  }
  return angles === "rad"
    ? { scale: 1, decimals: 3 - fewer, name: `rad${per}` }
    : { scale: 180 / Math.PI, decimals: 1 - fewer, name: `°${per}` };
}

export function writeNumber(value: number, { scale, decimals }: JointUnit): string {
  // What is rounded to zero has no sign.
  return (Number((value * scale).toFixed(decimals)) + 0).toFixed(decimals);
}

/** With the unit. */
export function writeJoint(value: number, unit: JointUnit): string {
  return `${writeNumber(value, unit)}${unit.name.startsWith("°") ? "" : " "}${unit.name}`;
}

/** What tells joints apart in little room: names without what all of them begin with, or numbers. */
export function shortNames(names: readonly string[]): string[] {
  const longest = 7;
  const [first = ""] = names;
  let same = 0;
  while (names.length > 1 && same < first.length && names.every((name) => name[same] === first[same])) {
    ++same;
  }
  const short = names.map((name) => name.slice(same));
  const isClear = short.every((name) => name !== "" && name.length <= longest);
  return isClear ? short : names.map((name, i) => (name.length <= longest ? name : String(i + 1)));
}
