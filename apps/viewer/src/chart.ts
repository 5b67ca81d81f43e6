// A chart of values over a place, such as playing time, drawn in SVG at the size that it has on the page.

import { create } from "./dom";

export interface Tick {
  at: number;
  label: string;
}

export interface ChartLine {
  /** In full, and in short as it stands beside the line. */
  name: string;
  label: string;
  /** Which colour and dashes it has: a number from 0. */
  style: number;
  /** Places, growing; as many as there are values. Null: there is none, and the line has a gap. */
  at: readonly number[];
  values: readonly (number | null)[];
  /** What a reader is told of a place. */
  read: (at: number) => string;
}

export interface ChartContent {
  /** Of the vertical axis. */
  low: number;
  high: number;
  ticks: Tick[];
  /** Beyond them values are not allowed: hatched. */
  lowest: number | null;
  highest: number | null;
  /** Places at which something is amiss: hatched, with a name. */
  spans: { from: number; to: number; label: string }[];
  lines: ChartLine[];
}

/** From 0 to its length, from left to right. */
export interface Axis {
  length: number;
  /** At most about so many marks. */
  ticks: (count: number) => Tick[];
  /** The unit. */
  label: string;
  /** Of the reader's place, in words. */
  describe: (at: number) => string;
}

export interface Chart {
  element: HTMLElement;
  draw: (content: ChartContent) => void;
  /** Moves the cursor. */
  moveTo: (at: number) => void;
}

const numStyles = 7;

/** Colour and dashes of a line; these take turns in such a way that each of 49 lines is drawn in its own manner. */
export function lineClass(style: number): string {
  const turn = Math.floor(style / numStyles);
  return `line-${style % numStyles} dashes-${(style + turn) % numStyles}`;
}

const margin = { left: 48, top: 8, bottom: 20 };
// Beside the lines, for their labels.
const leastRight = 48;
const labelIndent = 12;
const letterWidth = 7;
const labelHeight = 13;
const labelMargin = 10;
const pixelsPerTick = 50;

let numCharts = 0;

/**
 * @param name What is drawn, for those who do not see it.
 * @param seek Called with a place that is pressed or dragged to; without it there is no cursor.
 */
export function createChart(name: string, axis: Axis, seek?: (at: number) => void): Chart {
  const svg = createSvg("svg", { class: "chart", role: "img", "aria-label": name });
  const tooltip = create("div", "chart-tooltip");
  tooltip.hidden = true;
  const element = create("div", "chart-frame", svg, tooltip);
  const hatch = `hatch-${++numCharts}`;
  let width = 0;
  let height = 0;
  let right = leastRight;
  // Labels of many lines stand side by side.
  let numLabelColumns = 1;
  let labelWidth = 0;
  let content: ChartContent | undefined;
  let place = 0;
  const cursor = createSvg("line", { class: "chart-cursor" });
  const dots = createSvg("g", { class: "chart-dots" });
  let paths: SVGElement[] = [];
  let pendingHide: ReturnType<typeof setTimeout> | undefined;

  const innerWidth = (): number => Math.max(width - margin.left - right, 1);
  const innerHeight = (): number => Math.max(height - margin.top - margin.bottom, 1);
  const toX = (at: number): number => margin.left + (at / (axis.length || 1)) * innerWidth();
  const toY = (value: number): number =>
    content
      ? margin.top + innerHeight() * (1 - (value - content.low) / (content.high - content.low || 1))
      : margin.top;
  const toPlace = (x: number): number =>
    Math.min(Math.max(((x - margin.left) / innerWidth()) * axis.length, 0), axis.length);

  const showCursor = (): void => {
    const x = toX(place).toFixed(1);
    cursor.setAttribute("x1", x);
    cursor.setAttribute("x2", x);
    content?.lines.forEach((line, i) => {
      const dot = dots.children[i];
      const value = valueAt(line, place);
      dot?.setAttribute("cx", x);
      dot?.setAttribute("cy", value === null ? "-10" : toY(value).toFixed(1));
    });
  };

  const redraw = (): void => {
    if (!content || width === 0) {
      return;
    }
    numLabelColumns = Math.max(Math.ceil(((content.lines.length - 1) * labelHeight) / (innerHeight() - labelMargin)), 1);
    labelWidth = letterWidth * Math.max(...content.lines.map(({ label }) => label.length));
    right = Math.max(labelIndent + numLabelColumns * labelWidth, axis.label === "" ? 0 : leastRight) + labelMargin;
    svg.setAttribute("width", String(width));
    svg.setAttribute("height", String(height));
    cursor.setAttribute("y1", String(margin.top));
    cursor.setAttribute("y2", String(height - margin.bottom));
    const lines = content.lines.map((line) =>
      createSvg("path", { class: `line ${lineClass(line.style)}`, d: pathOf(line, toX, toY) }),
    );
    paths = lines;
    dots.replaceChildren(
      ...content.lines.map((line) => createSvg("circle", { class: `dot ${lineClass(line.style)}`, r: 3 })),
    );
    svg.replaceChildren(
      createHatch(hatch),
      ...drawGrid(content, toY),
      ...drawAxis(),
      ...drawForbidden(content),
      ...lines,
      ...drawLabels(content.lines, toY),
      ...(seek ? [dots, cursor] : []),
    );
    showCursor();
  };

  const drawGrid = ({ ticks }: ChartContent, y: (value: number) => number): SVGElement[] =>
    ticks.flatMap(({ at, label }) => [
      createSvg("line", { class: "grid", x1: margin.left, x2: margin.left + innerWidth(), y1: y(at), y2: y(at) }),
      createText(label, { class: "tick", x: margin.left - 6, y: y(at) + 4, "text-anchor": "end" }),
    ]);

  const drawAxis = (): SVGElement[] => {
    const bottom = height - margin.bottom;
    let end = -Infinity;
    const unit = createText(axis.label, { class: "tick", x: margin.left + innerWidth() + 8, y: bottom + 14 });
    return axis.ticks(Math.max(Math.floor(innerWidth() / pixelsPerTick), 2)).flatMap(({ at, label }) => {
      const x = toX(at);
      const line = createSvg("line", { class: "grid", x1: x, x2: x, y1: margin.top, y2: bottom });
      const half = (letterWidth * label.length) / 2;
      if (x - half < end) {
        return [line];
      }
      end = x + half + letterWidth;
      return [line, createText(label, { class: "tick", x, y: bottom + 14, "text-anchor": "middle" })];
    }).concat(unit);
  };

  const drawForbidden = ({ low, high, lowest, highest, spans }: ChartContent): SVGElement[] => {
    const found: SVGElement[] = [];
    const add = (x: number, y: number, wide: number, tall: number, kind: string): void => {
      const box = { x, y, width: Math.max(wide, 0), height: Math.max(tall, 0) };
      found.push(createSvg("rect", { class: kind, ...box }), createSvg("rect", { fill: `url(#${hatch})`, ...box }));
    };
    const level = (value: number): SVGElement =>
      createSvg("line", { class: "limit", x1: margin.left, x2: margin.left + innerWidth(), y1: toY(value), y2: toY(value) });
    if (highest !== null && highest < high) {
      add(margin.left, margin.top, innerWidth(), toY(highest) - margin.top, "beyond");
      found.push(level(highest));
    }
    if (lowest !== null && lowest > low) {
      add(margin.left, toY(lowest), innerWidth(), height - margin.bottom - toY(lowest), "beyond");
      found.push(level(lowest));
    }
    for (const { from, to, label } of spans) {
      // A contact of one moment has to be seen, too.
      const wide = Math.max(toX(to) - toX(from), 3);
      add(toX(from), margin.top, wide, innerHeight(), "contact-span");
      if (wide > 6 * label.length) {
        found.push(createText(label, { class: "span-label", x: toX(from) + 4, y: margin.top + 11 }));
      }
    }
    return found;
  };

  // Beside the ends of the lines, pushed apart where they would cover each other.
  const drawLabels = (lines: ChartLine[], y: (value: number) => number): SVGElement[] => {
    const named = lines.filter(({ label }) => label !== "");
    const ends = named.flatMap((line) => {
      const last = line.values.filter((value) => value !== null).at(-1);
      return last === undefined ? [] : [{ line, at: y(last), y: y(last) }];
    });
    ends.sort((a, b) => a.at - b.at);
    // Not down to the unit of the axis.
    const bottom = height - margin.bottom - 0.6 * labelMargin;
    spread(ends, margin.top + 0.4 * labelMargin, bottom, labelHeight / numLabelColumns);
    const x = margin.left + innerWidth();
    return ends.flatMap(({ line, at, y: place }, i) => [
      createSvg("path", {
        class: `leader ${lineClass(line.style)}`,
        d: `M${x + 1} ${at.toFixed(1)}L${x + 10} ${place.toFixed(1)}`,
      }),
      createText(line.label, { class: `line-label ${lineClass(line.style)}`, x: x + labelIndent + (i % numLabelColumns) * labelWidth, y: place + 4 }),
    ]);
  };

  const hover = (event: PointerEvent): void => {
    clearTimeout(pendingHide);
    const box = svg.getBoundingClientRect();
    const at = toPlace(event.clientX - box.left);
    if (seek && event.buttons !== 0) {
      seek(at);
    }
    const lines = content?.lines ?? [];
    let nearest = -1;
    let distance = Infinity;
    lines.forEach((line, i) => {
      const value = valueAt(line, at);
      const gap = value === null ? Infinity : Math.abs(toY(value) - (event.clientY - box.top));
      if (gap < distance) {
        [nearest, distance] = [i, gap];
      }
    });
    const line = lines[nearest];
    tooltip.hidden = !line;
    if (!line) {
      return;
    }
    paths.forEach((path, i) => path.classList.toggle("dimmed", i !== nearest && lines.length > 1));
    tooltip.replaceChildren(
      create("strong", lineClass(line.style), line.name),
      create("span", "", line.read(at)),
      create("small", "", axis.describe(at)),
    );
    const left = Math.min(Math.max(event.clientX - box.left - tooltip.offsetWidth / 2, 0), width - tooltip.offsetWidth);
    tooltip.style.left = `${left}px`;
    const above = toY(valueAt(line, at) ?? 0) - tooltip.offsetHeight - 10;
    tooltip.style.top = `${above < 0 ? above + tooltip.offsetHeight + 24 : above}px`;
  };
  const leave = (event: PointerEvent): void => {
    // A finger that is lifted leaves time to read what was under it.
    clearTimeout(pendingHide);
    pendingHide = setTimeout(hide, event.pointerType === "touch" ? 3000 : 0);
  };
  const hide = (): void => {
    tooltip.hidden = true;
    paths.forEach((path) => {
      path.classList.remove("dimmed");
    });
  };

  svg.addEventListener("pointerdown", (event) => {
    if (event.button === 0) {
      svg.setPointerCapture(event.pointerId);
      hover(event);
    }
  });
  svg.addEventListener("pointermove", hover);
  svg.addEventListener("pointerleave", leave);
  svg.addEventListener("pointercancel", leave);
  new ResizeObserver(([entry]) => {
    width = Math.floor(entry?.contentRect.width ?? 0);
    height = Math.floor(entry?.contentRect.height ?? 0);
    redraw();
  }).observe(element);

  return {
    element,
    draw: (next) => {
      content = next;
      redraw();
    },
    moveTo: (next) => {
      place = next;
      showCursor();
    },
  };
}

export function createFigure(title: string, note: HTMLElement, chart: Chart): HTMLElement {
  return create("figure", "plot", create("figcaption", "", create("h2", "", title), note), chart.element);
}

/** The least and the largest value; zeros where there is none. */
export function extremes(values: readonly (number | null)[]): [number, number] {
  let [low, high] = [Infinity, -Infinity];
  for (const value of values) {
    if (value !== null) {
      low = Math.min(low, value);
      high = Math.max(high, value);
    }
  }
  return low <= high ? [low, high] : [0, 0];
}

/** Between the two neighbours, linearly; null where one of them is. */
export function valueAt({ at, values }: Pick<ChartLine, "at" | "values">, place: number): number | null {
  let low = 0;
  let high = at.length - 1;
  while (high - low > 1) {
    const middle = (low + high) >> 1;
    if ((at[middle] ?? 0) <= place) {
      low = middle;
    } else {
      high = middle;
    }
  }
  const [before, after] = [at[low] ?? 0, at[high] ?? 0];
  const [from, to] = [values[low] ?? null, values[high] ?? null];
  const weight = after > before ? Math.min(Math.max((place - before) / (after - before), 0), 1) : 1;
  if (weight === 0 || weight === 1) {
    return weight === 0 ? from : to;
  }
  return from === null || to === null ? null : from + weight * (to - from);
}

/** Moves sorted places apart, so that they are at least a distance from each other, and inside the chart. */
export function spread(places: { y: number }[], top: number, bottom: number, distance: number): void {
  let least = top;
  for (const place of places) {
    place.y = Math.max(place.y, least);
    least = place.y + distance;
  }
  let most = bottom;
  for (const place of [...places].reverse()) {
    place.y = Math.min(place.y, most);
    most = place.y - distance;
  }
}

function pathOf({ at, values }: ChartLine, toX: (place: number) => number, toY: (value: number) => number): string {
  let text = "";
  let isDown = false;
  at.forEach((place, i) => {
    const value = values[i] ?? null;
    if (value !== null) {
      text += `${isDown ? "L" : "M"}${toX(place).toFixed(1)} ${toY(value).toFixed(1)}`;
    }
    isDown = value !== null;
  });
  return text;
}

function createHatch(id: string): SVGElement {
  const pattern = createSvg("pattern", {
    id,
    width: 6,
    height: 6,
    patternUnits: "userSpaceOnUse",
    patternTransform: "rotate(45)",
  });
  pattern.append(createSvg("line", { class: "hatch", x1: 0, y1: 0, x2: 0, y2: 6 }));
  return pattern;
}

export function createSvg(name: string, attributes: Record<string, string | number>): SVGElement {
  const element = document.createElementNS("http://www.w3.org/2000/svg", name);
  for (const [key, value] of Object.entries(attributes)) {
    element.setAttribute(key, String(value));
  }
  return element;
}

export function createText(text: string, attributes: Record<string, string | number>): SVGElement {
  const element = createSvg("text", attributes);
  element.textContent = text;
  return element;
}
