import type { Configuration, PlanDocument } from "./document";
import { create } from "./dom";
import { describeLimits } from "./joint_table";
import { goalConfigurations, titleOf } from "./scene/targets";
import { isBeyond, jointUnit, positionLimits, writeJoint } from "./joint_values";

/** The joint values of start and goals where there is no motion, held against the limits. */
export function createConfigurationTable(document: PlanDocument): HTMLElement {
  const { joint_names: names, start } = document;
  const { coordinates } = document.robot_model;
  const limits = positionLimits(coordinates, names.length);
  const columns: { title: string; q: Configuration }[] = [
    { title: "Start", q: start },
    ...goalConfigurations(document).map((goal) => ({ title: titleOf(document, goal), q: goal.configuration })),
  ];
  const heads = ["Joint", ...columns.map(({ title }) => title), "Limits"].map((title) => {
    const head = create("th", "", title);
    head.scope = "col";
    return head;
  });
  const rows = names.map((name, joint) => {
    const head = create("th", "", name);
    head.scope = "row";
    const cells = columns.map(({ q }) => {
      const value = q[joint] ?? 0;
      const beyond = isBeyond(value, limits[joint] ?? { low: null, high: null });
      const text = writeJoint(value, jointUnit(coordinates[joint], "rad", ""));
      return create("td", beyond ? "beyond-limit" : "", beyond ? `${text} beyond its limit` : text);
    });
    return create("tr", "", head, ...cells, create("td", "", describeLimits(coordinates[joint], "rad")));
  });
  return create(
    "div",
    "plots-values",
    create("div", "plots-bar", create("h2", "", "Values")),
    create(
      "div",
      "table-frame",
      create(
        "table",
        "joint-table",
        create("caption", "", "There is no motion to plot. What was asked for:"),
        create("thead", "", create("tr", "", ...heads)),
        create("tbody", "", ...rows),
      ),
    ),
  );
}
