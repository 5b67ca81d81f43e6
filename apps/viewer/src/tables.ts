// Facts as lists and tables that a screen reader can tell.

import { create } from "./dom";

export type Cell = string | Node;

/** A name and what it is. */
export type Fact = readonly [string, Cell | null];

/** Without those that are null. */
export function createFacts(facts: readonly Fact[]): HTMLElement {
  return create(
    "dl",
    "facts",
    ...facts.flatMap(([name, value]) =>
      value === null ? [] : [create("dt", "", name), create("dd", "", value)],
    ),
  );
}

/** The first cell of each row is its head. */
export function createTable(caption: string, titles: readonly string[], rows: readonly (readonly Cell[])[]): HTMLElement {
  const heads = titles.map((title) => {
    const head = create("th", "", title);
    head.scope = "col";
    return head;
  });
  const body = rows.map(([first = "", ...rest]) => {
    const head = create("th", "", first);
    head.scope = "row";
    return create("tr", "", head, ...rest.map((cell) => create("td", "", cell)));
  });
  const table = create(
    "table",
    "facts-table",
    create("caption", "", caption),
    create("thead", "", create("tr", "", ...heads)),
    create("tbody", "", ...body),
  );
  return create("div", "table-frame", table);
}

/** A heading with what follows it. */
export function createPart(title: string, ...children: (Node | string)[]): HTMLElement {
  const heading = create("h2", "", title);
  const part = create("section", "part", heading, ...children);
  part.setAttribute("aria-label", title);
  return part;
}

/** What is seen when it is asked for. */
export function createFold(title: string, ...children: Node[]): HTMLElement {
  return create("details", "fold", create("summary", "", title), ...children);
}
