import { Box3, Ray, Vector3 } from "three";

/** What the camera looks at, and from where. All in one frame, whose z is up. */
export interface Framing {
  /** All of them are to be in view. */
  points: Vector3[];
  centre: Vector3;
  /** From the centre towards the camera, of length one. */
  direction: Vector3;
}

const numAzimuths = 16;
const elevations = [0.42, 0.8];
// From the right of what is before the robot, where nothing speaks against it.
const preferredAzimuth = -0.9;
// How many points have to be hidden before the camera goes once round for them.
const weightOfPreference = 0.12;

/**
 * Frames all points, and obstacles near by unless they are much larger than what the points take, like a far wall.
 * Of some directions it takes the one from which the fewest points are hidden behind obstacles.
 */
export function frame(points: Vector3[], obstacles: Box3[]): Framing {
  const core = new Box3().setFromPoints(points);
  const size = Math.max(core.getSize(new Vector3()).length(), 0.2);
  const near = core.clone().expandByScalar(0.25 * size);
  const seen = obstacles.filter(
    (box) => near.intersectsBox(box) && box.getSize(new Vector3()).length() < 1.6 * size,
  );
  const framed = [...points, ...seen.flatMap(cornersOf)];
  return {
    points: framed,
    centre: new Box3().setFromPoints(framed).getCenter(new Vector3()),
    direction: clearestDirection(points, obstacles, 2 * size),
  };
}

function cornersOf({ min, max }: Box3): Vector3[] {
  return [0, 1, 2, 3, 4, 5, 6, 7].map(
    (i) => new Vector3(i & 1 ? max.x : min.x, i & 2 ? max.y : min.y, i & 4 ? max.z : min.z),
  );
}

function clearestDirection(points: Vector3[], obstacles: Box3[], distance: number): Vector3 {
  const step = Math.max(1, Math.floor(points.length / 60));
  const samples = points.filter((_, i) => i % step === 0);
  let best = new Vector3();
  let lowestCost = Infinity;
  for (let i = 0; i < numAzimuths; ++i) {
    const turn = (i / numAzimuths) * 2 * Math.PI;
    for (const elevation of elevations) {
      const level = Math.cos(elevation);
      const azimuth = preferredAzimuth + turn;
      const direction = new Vector3(Math.cos(azimuth) * level, Math.sin(azimuth) * level, Math.sin(elevation));
      const numHidden = samples.filter((point) => isHidden(point, direction, distance, obstacles)).length;
      const preference = (1 - Math.cos(turn)) / 2 + (elevation - elevations[0]!);
      const cost = numHidden / samples.length + weightOfPreference * preference;
      if (cost < lowestCost) {
        [best, lowestCost] = [direction, cost];
      }
    }
  }
  return best;
}

function isHidden(point: Vector3, direction: Vector3, distance: number, obstacles: Box3[]): boolean {
  const ray = new Ray(point, direction);
  const hit = new Vector3();
  return obstacles.some(
    (box) =>
      !box.containsPoint(point) && ray.intersectBox(box, hit) !== null && hit.distanceTo(point) < distance,
  );
}
