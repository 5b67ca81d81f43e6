import { createChart, createFigure, extremes, valueAt, type ChartLine, type Axis } from "./chart";
import type { Check, Contact, Profile } from "./document";
import { create, createButton } from "./dom";
import type { PlotPart } from "./joint_plots";
import type { Motion } from "./motion";
import { describeContacts } from "./scene/targets";
import { formatDistance, formatNumber } from "./text";
import { linearTicks } from "./ticks";

/** Consecutive samples at which something touches. */
export interface ContactSpan {
  /** Playing times. */
  from: number;
  to: number;
  /** Where it goes deepest, and how deep. */
  worst: number;
  depth: number;
  /** `gripper touches shelf`. */
  label: string;
}

/**
 * How far what moves of the robot is from obstacles and from itself along the motion, what touches, and what the check
 * said. None where there is nothing to be near to.
 */
export function createClearancePlot(
  profile: Profile,
  check: Check | null,
  motion: Motion,
  axis: Axis,
  seek: (time: number) => void,
): PlotPart | null {
  const times = profile.at.map((at) => motion.fromProfile(at));
  const spans = contactSpans(profile, times);
  const lineOf = (
    name: string,
    label: string,
    style: number,
    values: Profile["clearance"],
    pairs: Profile["nearest"],
  ): ChartLine => ({
    name,
    label,
    style,
    at: times,
    values: values.map((value) => (value === null ? null : value * 1e3)),
    read: (time) => {
      const value = valueAt({ at: times, values }, time);
      const pair = pairs[nearestIndex(times, time)];
      return value === null ? "nothing near" : formatDistance(value) + (pair ? `, ${pair[0]} to ${pair[1]}` : "");
    },
  });
  const lines = [
    lineOf("Clearance to obstacles", "scene", 0, profile.clearance, profile.nearest),
    lineOf("Clearance to itself", "itself", 1, profile.self_clearance, profile.self_nearest),
  ].filter(({ values }) => values.some((value) => value !== null));
  if (lines.length === 0) {
    return null;
  }

  const readings = lines.map((line) => {
    const value = create("output", "reading");
    return { line, value };
  });
  const chart = createChart("Clearance along the motion", axis, seek);
  const [low, high] = extremes(lines.flatMap(({ values }) => extremes(values)));
  const top = Math.max(high, 1) * 1.06;
  const bottom = Math.min(low * 1.1, 0) - 0.04 * (top - Math.min(low, 0));
  chart.draw({
    low: bottom,
    high: top,
    ticks: linearTicks(bottom, top, 4).map((at) => ({ at, label: formatNumber(at) })),
    lowest: 0,
    highest: null,
    spans,
    lines,
  });

  const figure = createFigure("Clearance of moving links in mm", createVerdict(check), chart);
  if (spans.length > 0) {
    figure.append(createContactList(spans, axis, seek));
  }
  return {
    figures: [figure],
    values: create(
      "dl",
      "readings",
      ...readings.flatMap(({ line, value }) => [create("dt", "", line.name), create("dd", "", value)]),
    ),
    show: (time) => {
      chart.moveTo(time);
      for (const { line, value } of readings) {
        value.textContent = line.read(time);
        const metres = valueAt(line, time);
        value.dataset.quantity = line.label === "itself" ? "self_clearance" : "clearance";
        value.dataset.value = metres === null ? "" : String(metres / 1e3);
      }
    },
  };
}

function createVerdict(check: Check | null): HTMLElement {
  return check
    ? create("span", `badge badge-${check.passed ? "good" : "bad"}`, check.verdict)
    : create("span", "badge badge-open", "not checked");
}

function createContactList(
  spans: readonly ContactSpan[],
  axis: Axis,
  seek: (time: number) => void,
): HTMLElement {
  const items = spans.map(({ worst, label, depth }) => {
    const text = `${label}; deepest, ${formatDistance(depth)}, ${axis.describe(worst)}`;
    const button = createButton(text, text, () => {
      seek(worst);
    });
    return create("li", "", button);
  });
  const list = create("ul", "contact-list", ...items);
  list.setAttribute("aria-label", "Contacts");
  return list;
}

function nearestIndex(times: readonly number[], time: number): number {
  let best = 0;
  times.forEach((at, i) => {
    if (Math.abs(at - time) < Math.abs((times[best] ?? 0) - time)) {
      best = i;
    }
  });
  return best;
}

/** @param times Of the samples. */
export function contactSpans({ contacts }: Pick<Profile, "contacts">, times: readonly number[]): ContactSpan[] {
  const spans: { first: number; last: number; worst: number; depth: number; touching: Contact[] }[] = [];
  for (const { sample, contacts: touching } of contacts) {
    const depth = Math.max(...touching.map((contact) => contact.depth));
    let span = spans.at(-1);
    if (span?.last !== sample - 1) {
      span = { first: sample, last: sample, worst: sample, depth, touching: [] };
      spans.push(span);
    }
    span.last = sample;
    span.touching.push(...touching);
    if (depth > span.depth) {
      span.depth = depth;
      span.worst = sample;
    }
  }
  const timeOf = (sample: number): number => times[sample] ?? 0;
  return spans.map(({ first, last, worst, depth, touching }) => ({
    from: timeOf(first),
    to: timeOf(last),
    worst: timeOf(worst),
    depth,
    label: describeContacts(touching)
      .map(({ text }) => text)
      .join(", "),
  }));
}
