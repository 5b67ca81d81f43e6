import { createChart, createFigure, extremes, type ChartContent, type ChartLine, type Axis } from "./chart";
import type { PlanDocument } from "./document";
import { create, createButton, createGroup } from "./dom";
import { createJointTable } from "./joint_table";
import { jointUnit, quantitiesOf, shortNames, writeJoint, type AngleUnit, type Limits, type Quantity } from "./joint_values";
import type { Motion } from "./motion";
import { formatNumber } from "./text";
import { linearTicks } from "./ticks";

/** Charts, what can be read from them at the time that is shown, and what brings them there. */
export interface PlotPart {
  figures: HTMLElement[];
  values: HTMLElement;
  show: (time: number) => void;
}

/** Of all joints. */
export function createJointPlots(
  document: PlanDocument,
  motion: Motion,
  axis: Axis,
  seek: (time: number) => void,
): PlotPart {
  const names = document.joint_names;
  const labels = shortNames(names);
  const { coordinates } = document.robot_model;
  let joints = [...names.keys()];
  let angles: AngleUnit = "rad";
  let time = 0;

  const quantities = quantitiesOf(document, motion);
  const charts = quantities.map((quantity) => {
    const chart = createChart(`${quantity.title} of the joints`, axis, seek);
    const note = create("span", "chart-note");
    return { quantity, chart, note, figure: createFigure(quantity.title, note, chart) };
  });
  const table = createJointTable(names, coordinates, quantities, axis, (chosen) => {
    joints = chosen;
    draw();
  });

  const lineOf = (quantity: Quantity, joint: number, toChart: (value: number) => number): ChartLine => {
    const unit = jointUnit(coordinates[joint], angles, quantity.per);
    return {
      name: names[joint] ?? "",
      label: labels[joint] ?? "",
      style: joint,
      at: quantity.times,
      values: (quantity.series[joint] ?? []).map(toChart),
      read: (time) => writeJoint(quantity.at(joint, time), unit),
    };
  };
  const draw = (): void => {
    const [only] = joints;
    for (const { quantity, chart, note } of charts) {
      if (joints.length === 1 && only !== undefined) {
        const unit = jointUnit(coordinates[only], angles, quantity.per);
        const line = lineOf(quantity, only, (value) => value * unit.scale);
        chart.draw(drawOne(line, quantity.limits[only] ?? { low: null, high: null }, unit.scale));
        note.textContent = `${names[only] ?? ""} in ${unit.name}`;
      } else {
        const lines = joints.map((joint) => {
          const scale = scaleOf(quantity.limits[joint], quantity.series[joint] ?? []);
          return lineOf(quantity, joint, (value) => (value - scale.middle) / scale.half);
        });
        chart.draw(drawMany(lines));
        note.textContent = "each within its limits";
      }
    }
    table.write(time, angles);
  };

  const choices = (["rad", "deg"] as const).map((unit) => {
    const button = createButton(unit, unit, () => {
      angles = unit;
      choices.forEach((other) => {
        other.setAttribute("aria-pressed", String(other === button));
      });
      draw();
    });
    button.setAttribute("aria-pressed", String(unit === angles));
    return button;
  });
  const bar = create("div", "plots-bar", create("h2", "", "Values"));
  if (coordinates.some(({ kind }) => kind === "revolute")) {
    bar.append(createGroup("Unit of angles", "choice", ...choices));
  }
  draw();
  return {
    figures: charts.map(({ figure }) => figure),
    values: create("div", "joint-values", bar, table.element),
    show: (at) => {
      time = at;
      charts.forEach(({ chart }) => {
        chart.moveTo(at);
      });
      table.write(at, angles);
    },
  };
}

function isLimited(limits: Limits | undefined): limits is { low: number; high: number } {
  const { low, high } = limits ?? { low: null, high: null };
  return low !== null && high !== null && high > low;
}

// What goes from -1 to 1: all between the limits; at least a whole turn where there are none.
function scaleOf(limits: Limits | undefined, values: readonly number[]): { middle: number; half: number } {
  if (isLimited(limits)) {
    return { middle: (limits.low + limits.high) / 2, half: (limits.high - limits.low) / 2 };
  }
  const [low, high] = extremes(values);
  return { middle: (low + high) / 2, half: Math.max((high - low) / 2, Math.PI) };
}

function drawMany(lines: ChartLine[]): ChartContent {
  const [low, high] = extremes(lines.flatMap((line) => extremes(line.values)));
  const reach = Math.max(1, -low, high) * 1.12;
  const ticks = [
    { at: -1, label: "min" },
    { at: 0, label: "middle" },
    { at: 1, label: "max" },
  ];
  return { low: -reach, high: reach, ticks, lowest: -1, highest: 1, spans: [], lines };
}

function drawOne(line: ChartLine, limits: Limits, scale: number): ChartContent {
  const lowest = limits.low === null ? null : limits.low * scale;
  const highest = limits.high === null ? null : limits.high * scale;
  const [low, high] = extremes([...line.values, lowest, highest]);
  const room = Math.max(0.06 * (high - low), 1e-3);
  const ticks = linearTicks(low, high, 5).map((at) => ({ at, label: formatNumber(at) }));
  return { low: low - room, high: high + room, ticks, lowest, highest, spans: [], lines: [line] };
}
