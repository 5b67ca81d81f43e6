import { type Camera, Vector3 } from "three";

export interface Label {
  text: string;
  /** Names the look in style.css. */
  kind: "start" | "goal" | "contact" | "obstacle" | "axis";
  /** In the world of the scene. */
  position: Vector3;
}

/** Texts that stay over points of the scene. */
export class Labels {
  readonly element = document.createElement("div");
  private readonly shown = new Map<string, { label: Label; element: HTMLElement }[]>();

  constructor() {
    this.element.className = "labels";
    // Everything that they say is in the panel and in the lists too.
    this.element.setAttribute("aria-hidden", "true");
  }

  /** Replaces what was shown in this group. */
  set(group: string, labels: Label[]): void {
    const before = this.shown.get(group) ?? [];
    before.slice(labels.length).forEach(({ element }) => {
      element.remove();
    });
    this.shown.set(
      group,
      labels.map((label, i) => {
        const element = before[i]?.element ?? this.element.appendChild(document.createElement("span"));
        element.className = `label label-${label.kind}`;
        if (element.textContent !== label.text) {
          element.textContent = label.text;
        }
        return { label, element };
      }),
    );
  }

  /** Moves all texts to where their points are seen; those that would lie on each other step aside. */
  project(camera: Camera, width: number, height: number): void {
    const placed: { x: number; y: number; width: number; height: number }[] = [];
    for (const { label, element } of [...this.shown.values()].flat()) {
      const seen = label.position.clone().project(camera);
      const isVisible = seen.z < 1 && Math.abs(seen.x) < 1.1 && Math.abs(seen.y) < 1.1;
      element.hidden = !isVisible;
      if (!isVisible) {
        continue;
      }
      const box = { width: element.offsetWidth, height: element.offsetHeight };
      const x = clamp(((seen.x + 1) / 2) * width - box.width / 2, 4, width - box.width - 4);
      let y = clamp(((1 - seen.y) / 2) * height - box.height - distanceOf(label), 4, height - box.height - 4);
      for (const other of placed) {
        const overlaps = x < other.x + other.width && other.x < x + box.width && Math.abs(y - other.y) < box.height;
        if (overlaps && label.kind !== "axis") {
          y = other.y + other.height + 2;
        }
      }
      placed.push({ x, y, ...box });
      element.style.transform = `translate(${x.toFixed(1)}px, ${y.toFixed(1)}px)`;
    }
  }
}

// Pixels above the point: what touches stays in sight.
function distanceOf(label: Label): number {
  return label.kind === "axis" ? -8 : label.kind === "contact" ? 34 : 10;
}

function clamp(value: number, low: number, high: number): number {
  return Math.min(Math.max(value, low), Math.max(low, high));
}
