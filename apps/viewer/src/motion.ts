import type { Configuration, PlanDocument, Trajectory } from "./document";

/** What is played: a configuration for each time from 0 to `duration`. */
export interface Motion {
  /** Of playing at speed 1. */
  readonly duration: number;
  /** Seconds of a trajectory, or a path at a pace of the page's own choice. */
  readonly unit: "seconds" | "path";
  configurationAt(time: number): Configuration;
  /** From playing time to the unit of the profile, and back. */
  toProfile(time: number): number;
  fromProfile(at: number): number;
}

/** The trajectory where there is one, else the path, else the start at rest. */
export function createMotion(
  document: Pick<PlanDocument, "start" | "path" | "trajectory" | "profile">,
): Motion {
  const { trajectory, path, start, profile } = document;
  if (trajectory && trajectory.samples.times.length > 0) {
    return trajectoryMotion(trajectory, profile?.unit ?? "seconds");
  }
  return pathMotion(path.length > 0 ? path : [start]);
}

/** Where on a path the motion is at a time, as the program says it. */
export function describePlace(motion: Motion, time: number): string {
  const last = Math.round(motion.toProfile(motion.duration));
  const at = motion.toProfile(time);
  const segment = Math.min(Math.floor(at), last - 1);
  return `segment ${segment + 1} of ${last} at ${(100 * (at - segment)).toFixed(0)} %`;
}

/** The last index whose value is not above `x`, and how far `x` is on the way to the next one, from 0 to 1. */
export function locate(values: readonly number[], x: number): { index: number; fraction: number } {
  let low = 0;
  let high = Math.max(values.length - 2, 0);
  while (low < high) {
    const middle = Math.ceil((low + high) / 2);
    if ((values[middle] ?? Infinity) <= x) {
      low = middle;
    } else {
      high = middle - 1;
    }
  }
  const below = values[low] ?? 0;
  const width = (values[low + 1] ?? below) - below;
  // Steps of no width, as between equal waypoints, are over as soon as they begin.
  const fraction = width > 0 ? (x - below) / width : x < below ? 0 : 1;
  return { index: low, fraction: Math.min(Math.max(fraction, 0), 1) };
}

// The value at a place in a table of growing numbers: 2.25 is a quarter of the way from the third to the fourth.
function valueAt(values: readonly number[], place: number): number {
  const index = Math.min(Math.max(Math.floor(place), 0), values.length - 1);
  const below = values[index] ?? 0;
  return below + (place - index) * ((values[index + 1] ?? below) - below);
}

function placeOf(values: readonly number[], value: number): number {
  const { index, fraction } = locate(values, value);
  return values.length < 2 ? 0 : index + fraction;
}

const secondsPerUnit = 1;
const shortestPlay = 4;
const longestPlay = 12;

function pathMotion(path: readonly Configuration[]): Motion {
  const reached = [0];
  for (let i = 1; i < path.length; ++i) {
    const from = path[i - 1]!;
    const step = (path[i]!).map((value, j) => value - (from[j] ?? 0));
    reached.push((reached[i - 1]!) + secondsPerUnit * Math.hypot(...step));
  }
  const length = reached.at(-1) ?? 0;
  const duration = length > 0 ? Math.min(Math.max(length, shortestPlay), longestPlay) : 0;
  const times = reached.map((value) => (length > 0 ? (value / length) * duration : 0));
  return {
    duration,
    unit: "path",
    configurationAt(time) {
      const { index, fraction } = locate(times, time);
      const from = path[index]!;
      const to = path[index + 1];
      if (!to || fraction === 0) {
        return [...from];
      }
      return from.map((value, j) => (fraction === 1 ? (to[j] ?? 0) : value + fraction * ((to[j] ?? 0) - value)));
    },
    toProfile: (time) => placeOf(times, time),
    fromProfile: (at) => valueAt(times, at),
  };
}

function trajectoryMotion(trajectory: Trajectory, unit: "seconds" | "waypoints"): Motion {
  const { times, positions, velocities } = trajectory.samples;
  const last = times.at(-1) ?? 0;
  return {
    duration: last,
    unit: "seconds",
    configurationAt(time) {
      const { index, fraction } = locate(times, time);
      const from = positions[index]!;
      const to = positions[index + 1];
      if (!to || fraction === 0 || fraction === 1) {
        return [...(to && fraction === 1 ? to : from)];
      }
      const width = (times[index + 1]!) - (times[index]!);
      const [s, r] = [fraction, 1 - fraction];
      return from.map((value, j) => {
        const startSlope = width * (velocities[index]?.[j] ?? 0);
        const endSlope = width * (velocities[index + 1]?.[j] ?? 0);
        return (
          (1 + 2 * s) * r * r * value +
          s * r * r * startSlope +
          s * s * (3 - 2 * s) * (to[j] ?? 0) -
          s * s * r * endSlope
        );
      });
    },
    toProfile: (time) => (unit === "seconds" ? time : placeOf(trajectory.waypoint_times, time)),
    fromProfile: (at) => (unit === "seconds" ? at : valueAt(trajectory.waypoint_times, at)),
  };
}
