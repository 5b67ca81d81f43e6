import { createSvg, lineClass, type Axis } from "./chart";
import type { Coordinate } from "./document";
import { create } from "./dom";
import { isBeyond, jointUnit, writeJoint, writeNumber, type AngleUnit, type Quantity } from "./joint_values";

export interface JointTable {
  element: HTMLElement;
  write: (time: number, angles: AngleUnit) => void;
}

/**
 * A row for each joint: whether its lines are drawn, how they look, and its values at the time that is shown.
 *
 * @param choose Called with the joints whose lines are to be drawn.
 */
export function createJointTable(
  names: readonly string[],
  coordinates: readonly Coordinate[],
  quantities: readonly Quantity[],
  axis: Axis,
  choose: (joints: number[]) => void,
): JointTable {
  const cells: { cell: HTMLElement; quantity: Quantity; joint: number }[] = [];
  const boxes: HTMLInputElement[] = [];
  const alone: HTMLButtonElement[] = [];
  const limits: HTMLElement[] = [];
  // Units stand in the heads of the columns where all joints have the same.
  const isMixed = new Set(coordinates.map(({ kind }) => kind)).size > 1;

  const report = (): void => {
    const joints = boxes.flatMap((box, joint) => (box.checked ? [joint] : []));
    alone.forEach((button, joint) => {
      button.setAttribute("aria-pressed", String(joints.length === 1 && joints[0] === joint));
    });
    choose(joints);
  };
  // The only one of which lines are drawn; all of them when it was that already.
  const chooseAlone = (joint: number): void => {
    const wasAlone = boxes.every((box, other) => box.checked === (other === joint));
    boxes.forEach((box, other) => {
      box.checked = wasAlone || other === joint;
    });
    report();
  };

  const rows = names.map((name, joint) => {
    const box = create("input");
    box.type = "checkbox";
    box.checked = true;
    box.addEventListener("change", report);
    boxes.push(box);
    const only = create("button", "only", "only");
    only.type = "button";
    only.setAttribute("aria-label", `Only ${name}`);
    only.setAttribute("aria-pressed", "false");
    only.addEventListener("click", () => {
      chooseAlone(joint);
    });
    alone.push(only);
    const head = create("th", "", create("label", "", box, createLineSample(joint), create("span", "", name)), only);
    head.scope = "row";
    const row = create("tr", "", head);
    for (const quantity of quantities) {
      const cell = create("td");
      Object.assign(cell.dataset, { joint: name, quantity: quantity.key });
      cells.push({ cell, quantity, joint });
      row.append(cell);
    }
    const range = create("td", "range");
    limits.push(range);
    row.append(range);
    return row;
  });
  const headOf = (title: string, className = ""): HTMLTableCellElement => {
    const head = create("th", className, title);
    head.scope = "col";
    return head;
  };
  const heads = quantities.map(() => headOf(""));
  const caption = create("caption");
  const table = create(
    "table",
    "joint-table",
    caption,
    create("thead", "", create("tr", "", headOf("Joint"), ...heads, headOf("Limits", "range"))),
    create("tbody", "", ...rows),
  );
  let written: AngleUnit | null = null;
  const titles = { position: "Position", velocity: "Velocity", acceleration: "Acceleration" };

  return {
    element: create("div", "table-frame", table),
    write: (time, angles) => {
      caption.textContent = `Joint values ${axis.describe(time)}`;
      if (angles !== written) {
        written = angles;
        quantities.forEach(({ key, per }, i) => {
          const unit = isMixed ? "" : ` in ${jointUnit(coordinates[0], angles, per).name}`;
          (heads[i] as HTMLElement).textContent = titles[key] + unit;
        });
        limits.forEach((cell, joint) => {
          cell.textContent = describeLimits(coordinates[joint], angles, isMixed);
        });
      }
      for (const { cell, quantity, joint } of cells) {
        const value = quantity.at(joint, time);
        const limit = quantity.limits[joint] ?? { low: null, high: null };
        const beyond = isBeyond(value, limit);
        cell.dataset.value = String(value);
        const unit = jointUnit(coordinates[joint], angles, quantity.per);
        cell.textContent = isMixed ? writeJoint(value, unit) : writeNumber(value, unit);
        cell.classList.toggle("beyond-limit", beyond);
        if (beyond) {
          cell.append(" beyond its limit");
        }
      }
    },
  };
}

export function describeLimits(coordinate: Coordinate | undefined, angles: AngleUnit, withUnit = true): string {
  const unit = jointUnit(coordinate, angles, "");
  const { min = null, max = null } = coordinate ?? {};
  if (min === null && max === null) {
    return "no limits";
  }
  const text = (value: number | null): string => (value === null ? "∞" : writeNumber(value, unit));
  return `${min === null ? "-" : ""}${text(min)} to ${text(max)}${withUnit ? ` ${unit.name}` : ""}`;
}

// A piece of the line of a joint.
function createLineSample(joint: number): SVGElement {
  const svg = createSvg("svg", { class: "line-sample", width: 26, height: 10, "aria-hidden": "true" });
  svg.append(createSvg("path", { class: `line ${lineClass(joint)}`, d: "M0 5H26" }));
  return svg;
}
