import type { Configuration, Frame, Pose, RobotModel, Vec3 } from "./document";

/** A rigid motion as a 4 x 4 matrix, column by column, in doubles. */
export type Transform = Float64Array;

export function transformOf(pose: Pose): Transform {
  const [px, py, pz] = pose.position;
  const [qx, qy, qz, qw] = pose.orientation;
  const scale = 2 / (qx * qx + qy * qy + qz * qz + qw * qw);
  const [sx, sy, sz] = [scale * qx, scale * qy, scale * qz];
  return Float64Array.of(
    1 - sy * qy - sz * qz, sx * qy + sz * qw, sx * qz - sy * qw, 0,
    sx * qy - sz * qw, 1 - sx * qx - sz * qz, sy * qz + sx * qw, 0,
    sx * qz + sy * qw, sy * qz - sx * qw, 1 - sx * qx - sy * qy, 0,
    px, py, pz, 1,
  );
}

export function multiply(a: Transform, b: Transform): Transform {
  const product = new Float64Array(16);
  for (let column = 0; column < 4; ++column) {
    for (let row = 0; row < 4; ++row) {
      let sum = 0;
      for (let k = 0; k < 4; ++k) {
        sum += (a[4 * k + row]!) * (b[4 * column + k]!);
      }
      product[4 * column + row] = sum;
    }
  }
  return product;
}

export function apply(transform: Transform, point: Readonly<Vec3>): Vec3 {
  const coordinate = (row: number): number =>
    (transform[row]!) * point[0] +
    (transform[4 + row]!) * point[1] +
    (transform[8 + row]!) * point[2] +
    (transform[12 + row]!);
  return [coordinate(0), coordinate(1), coordinate(2)];
}

export function positionOf(transform: Transform): Vec3 {
  return [transform[12]!, transform[13]!, transform[14]!];
}

function turn(axis: Vec3, angle: number): Transform {
  const length = Math.hypot(...axis) || 1;
  const s = Math.sin(angle / 2) / length;
  return transformOf({
    position: [0, 0, 0],
    orientation: [s * axis[0], s * axis[1], s * axis[2], Math.cos(angle / 2)],
  });
}

function slide(axis: Vec3, distance: number): Transform {
  return transformOf({
    position: [distance * axis[0], distance * axis[1], distance * axis[2]],
    orientation: [0, 0, 0, 1],
  });
}

/** One sphere of the robot's collision model. */
export interface Sphere {
  /** Of the model's frames. */
  frame: number;
  /** Of the frame's spheres. */
  index: number;
  centre: Vec3;
  /** With the frame's padding: what is held against obstacles. */
  radius: number;
}

/** Where the frames of a robot are, relative to its base. */
export class Kinematics {
  readonly tip: number;
  readonly spheres: Sphere[];
  private readonly origins: Transform[];

  constructor(readonly model: RobotModel) {
    this.origins = model.frames.map((frame) => transformOf(frame.origin));
    this.tip = this.frameNamed(model.tip_frame) ?? model.frames.length - 1;
    this.spheres = model.frames.flatMap((frame, f) =>
      frame.spheres.map(([x = 0, y = 0, z = 0, radius = 0], index) => ({
        frame: f,
        index,
        centre: [x, y, z] satisfies Vec3,
        radius: radius + frame.padding,
      })),
    );
  }

  frameNamed(name: string): number | undefined {
    const index = this.model.frames.findIndex((frame) => frame.name === name);
    return index < 0 ? undefined : index;
  }

  /** The poses of all frames, in the order of the model. */
  frames(q: Configuration): Transform[] {
    const poses: Transform[] = [];
    this.model.frames.forEach((frame, f) => {
      const local = this.local(frame, this.origins[f]!, q);
      const parent = frame.parent === null ? undefined : poses[frame.parent];
      poses.push(parent ? multiply(parent, local) : local);
    });
    return poses;
  }

  /** Of the tip frame. */
  toolPosition(q: Configuration): Vec3 {
    const chain: Transform[] = [];
    for (let f: number | null = this.tip; f !== null && f >= 0; f = this.model.frames[f]?.parent ?? null) {
      const frame = this.model.frames[f];
      if (frame) {
        chain.push(this.local(frame, this.origins[f]!, q));
      }
    }
    return chain.reduce<Vec3>((point, local) => apply(local, point), [0, 0, 0]);
  }

  sphereCentres(poses: Transform[]): Vec3[] {
    return this.spheres.map((sphere) => apply(poses[sphere.frame]!, sphere.centre));
  }

  private local(frame: Frame, origin: Transform, q: Configuration): Transform {
    if (frame.motion === "fixed") {
      return origin;
    }
    const coordinate = frame.coordinate === null ? 0 : (q[frame.coordinate] ?? 0);
    const value = frame.multiplier * coordinate + frame.offset;
    return multiply(origin, frame.motion === "revolute" ? turn(frame.axis, value) : slide(frame.axis, value));
  }
}
