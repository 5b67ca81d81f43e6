import { create, createButton } from "./dom";
import type { Cell } from "./tables";

export interface Column<Row> {
  title: string;
  cell: (row: Row) => Cell;
  /** What rows are sorted by; null goes last. Without it the column does not sort. */
  key?: (row: Row) => number | string | null;
  isText?: boolean;
}

export interface SortableTable<Row> {
  element: HTMLElement;
  setRows: (rows: readonly Row[]) => void;
}

const firstRows = 200;

/** A table that is sorted by a press on the head of a column; its first column heads the rows. Long ones begin short. */
export function createSortableTable<Row>(caption: string, columns: readonly Column<Row>[]): SortableTable<Row> {
  let rows: readonly Row[] = [];
  let sorted: { column: Column<Row>; isDown: boolean } | null = null;
  let showsAll = false;

  const heads = columns.map((column) => {
    const head = create("th", column.isText ? "text" : "");
    head.scope = "col";
    head.append(
      column.key
        ? createButton(column.title, column.title, () => {
            sorted = { column, isDown: sorted?.column === column && !sorted.isDown };
            draw();
          })
        : column.title,
    );
    return head;
  });
  const body = create("tbody");
  const more = createButton("Show all", "", () => {
    showsAll = true;
    draw();
  });
  const draw = (): void => {
    heads.forEach((head, i) => {
      if (sorted && sorted.column === columns[i]) {
        head.setAttribute("aria-sort", sorted.isDown ? "descending" : "ascending");
      } else {
        head.removeAttribute("aria-sort");
      }
    });
    const shown = (sorted ? sortRows(rows, sorted.column, sorted.isDown) : rows).slice(
      0,
      showsAll ? undefined : firstRows,
    );
    body.replaceChildren(
      ...shown.map((row) =>
        create(
          "tr",
          "",
          ...columns.map(({ cell, isText }, i) => {
            const element = create(i === 0 ? "th" : "td", isText ? "text" : "", cell(row));
            if (i === 0) {
              element.scope = "row";
            }
            return element;
          }),
        ),
      ),
    );
    more.hidden = shown.length === rows.length;
    more.textContent = `Show all ${rows.length}`;
  };
  const table = create(
    "table",
    "figures-table",
    create("caption", "", caption),
    create("thead", "", create("tr", "", ...heads)),
    body,
  );
  return {
    element: create("div", "", create("div", "table-frame", table), more),
    setRows: (next) => {
      rows = next;
      draw();
    },
  };
}

/** Equal ones keep their order. */
export function sortRows<Row>(rows: readonly Row[], { key }: Column<Row>, isDown: boolean): Row[] {
  const keyed = rows.map((row) => ({ row, value: key?.(row) ?? null }));
  keyed.sort(({ value: a }, { value: b }) => {
    if (isMissing(a) || isMissing(b)) {
      return Number(isMissing(a)) - Number(isMissing(b));
    }
    const order =
      typeof a === "number" && typeof b === "number"
        ? a - b
        : String(a).localeCompare(String(b), "en", { numeric: true });
    return isDown ? -order : order;
  });
  return keyed.map(({ row }) => row);
}

function isMissing(value: number | string | null): boolean {
  return value === null || Number.isNaN(value);
}
