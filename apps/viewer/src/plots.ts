// The strip of plots under the scene: joints inside their limits, and how far the robot is from touching anything.

import type { Axis } from "./chart";
import { createClearancePlot } from "./clearance_plot";
import { createConfigurationTable } from "./configuration_table";
import type { PlanDocument } from "./document";
import { create } from "./dom";
import { createJointPlots } from "./joint_plots";
import { describePlace, type Motion } from "./motion";
import type { Playback } from "./playback";
import { formatNumber } from "./text";
import { linearTicks } from "./ticks";

/** Charts, and the values at the time that is shown. Without a motion: the values of what was asked for. */
export function createPlots(document: PlanDocument, motion: Motion, playback: Playback): HTMLElement {
  const element = create("section", "plots");
  element.setAttribute("aria-label", "Plots");
  if (motion.duration <= 0) {
    element.append(createConfigurationTable(document));
    return element;
  }
  const axis = playingAxis(motion);
  const seek = (time: number): void => {
    playback.playing = false;
    playback.time = time;
  };
  const parts = [createJointPlots(document, motion, axis, seek)];
  const clearance = document.profile && createClearancePlot(document.profile, document.check, motion, axis, seek);
  if (clearance) {
    parts.push(clearance);
  }
  element.append(
    create("div", "plots-charts", ...parts.flatMap(({ figures }) => figures)),
    create("div", "plots-values", ...parts.map(({ values }) => values)),
  );
  const show = (): void => {
    parts.forEach((part) => {
      part.show(playback.time);
    });
  };
  playback.onChange(show);
  show();
  return element;
}

// Of playing time, which all charts share.
function playingAxis(motion: Motion): Axis {
  const { duration } = motion;
  if (motion.unit === "seconds") {
    return {
      length: duration,
      label: "s",
      ticks: (count) => linearTicks(0, duration, count).map((at) => ({ at, label: formatNumber(at) })),
      describe: (time) => `at ${time.toFixed(3)} s`,
    };
  }
  const last = Math.round(motion.toProfile(duration));
  return {
    length: duration,
    label: "waypoint",
    // Counted from one, as the program does.
    ticks: (count) =>
      linearTicks(0, last, count)
        .filter((at) => Number.isInteger(at))
        .map((at) => ({ at: motion.fromProfile(at), label: String(at + 1) })),
    describe: (time) => `on ${describePlace(motion, time)}`,
  };
}
