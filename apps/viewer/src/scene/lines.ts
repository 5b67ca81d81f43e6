import { LineMaterial } from "three/examples/jsm/lines/LineMaterial.js";
import { LineSegments2 } from "three/examples/jsm/lines/LineSegments2.js";
import { LineSegmentsGeometry } from "three/examples/jsm/lines/LineSegmentsGeometry.js";

import type { Vec3 } from "../document";

export interface LineLook {
  /** Pixels. */
  width: number;
  /** Metres; none where the line is whole. */
  dash?: { on: number; off: number };
  /** Seen through everything before it. */
  isOnTop?: boolean;
  opacity?: number;
}

/** Lines as wide on every screen, between any pairs of points. */
export class Lines {
  readonly object: LineSegments2;
  private readonly geometry = new LineSegmentsGeometry();
  private readonly material: LineMaterial;

  /** @param ends of one segment after the other */
  constructor(ends: readonly Vec3[], look: LineLook) {
    this.material = new LineMaterial({
      linewidth: look.width,
      dashed: look.dash !== undefined,
      dashSize: look.dash?.on ?? 1,
      gapSize: look.dash?.off ?? 0,
      // Also where nothing shines through: one shader serves all that have no gaps.
      transparent: true,
      opacity: look.opacity ?? 1,
      depthTest: look.isOnTop !== true,
      depthWrite: look.isOnTop !== true,
    });
    this.geometry.setPositions(ends.flat());
    this.object = new LineSegments2(this.geometry, this.material);
    this.object.renderOrder = look.isOnTop ? 4 : 0;
    if (look.dash) {
      this.object.computeLineDistances();
    }
    // Nothing is hovered on a line.
    this.object.raycast = () => undefined;
  }

  set colour(value: string) {
    this.material.color.set(value);
  }

  /** As many segments as before. */
  move(ends: readonly Vec3[]): void {
    const start = this.geometry.getAttribute("instanceStart");
    const end = this.geometry.getAttribute("instanceEnd");
    for (let i = 0; i < start.count; ++i) {
      start.setXYZ(i, ...(ends[2 * i]!));
      end.setXYZ(i, ...(ends[2 * i + 1]!));
    }
    if ("data" in start) {
      start.data.needsUpdate = true;
    }
    this.object.frustumCulled = false;
  }
}

// So short that the round ends of the line are all that is seen.
const dotLength = 1e-5;

/** Round dots at points, as ends of segments. */
export function dotsAt(points: readonly Vec3[]): Vec3[] {
  return points.flatMap(([x, y, z]): Vec3[] => [[x, y, z - dotLength], [x, y, z + dotLength]]);
}

/** The ends of the segments of one line through all points. */
export function segmentsThrough(points: readonly Vec3[]): Vec3[] {
  return points.slice(1).flatMap((point, i) => [points[i]!, point]);
}
