import { PerspectiveCamera, Spherical, Vector3 } from "three";
import { OrbitControls } from "three/examples/jsm/controls/OrbitControls.js";

export type ViewName = "reset" | "front" | "side" | "top";

const fieldOfView = 32;
const margin = 1.06;
const seconds = 0.25;

/** A camera about a centre, z up, moved by mouse and touch, and by steps for buttons and keys. */
export class CameraRig {
  readonly camera = new PerspectiveCamera(fieldOfView, 1, 0.01, 100);
  private readonly controls: OrbitControls;
  private readonly reducedMotion = matchMedia("(prefers-reduced-motion: reduce)");
  private isUntouched = true;
  private numFlights = 0;
  private direction: Vector3;

  /**
   * @param points that are in view after a reset
   * @param home from the centre of the points towards the camera, of length one
   */
  constructor(
    element: HTMLElement,
    private readonly points: Vector3[],
    private readonly centre: Vector3,
    private readonly home: Vector3,
    private readonly onMove: () => void,
  ) {
    this.direction = home;
    this.camera.up.set(0, 0, 1);
    this.controls = new OrbitControls(this.camera, element);
    this.controls.addEventListener("change", onMove);
    this.controls.addEventListener("start", () => {
      this.isUntouched = false;
      ++this.numFlights;
    });
    this.controls.minDistance = 0.05;
  }

  /** Until somebody has moved the camera, everything stays in view when the window changes. */
  resize(width: number, height: number): void {
    this.camera.aspect = width / height;
    this.camera.updateProjectionMatrix();
    this.controls.maxDistance = 8 * this.offset(this.home).length();
    if (this.isUntouched) {
      this.place(this.centre, this.offset(this.direction));
    }
  }

  look(view: ViewName): void {
    this.direction = {
      reset: this.home,
      front: new Vector3(1, 0, 0.08).normalize(),
      side: new Vector3(0, -1, 0.08).normalize(),
      top: new Vector3(0, -0.001, 1).normalize(),
    }[view];
    this.isUntouched = true;
    this.moveTo(this.centre, this.offset(this.direction));
  }

  /** Radians, about the vertical and up. */
  turn(azimuth: number, elevation: number): void {
    const offset = this.camera.position.clone().sub(this.controls.target);
    const spherical = new Spherical().setFromVector3(swapped(offset));
    spherical.theta += azimuth;
    spherical.phi = Math.min(Math.max(spherical.phi - elevation, 0.001), Math.PI - 0.001);
    this.isUntouched = false;
    this.moveTo(this.controls.target.clone(), unswapped(new Vector3().setFromSpherical(spherical)));
  }

  zoom(factor: number): void {
    this.isUntouched = false;
    this.moveTo(
      this.controls.target.clone(),
      this.camera.position.clone().sub(this.controls.target).multiplyScalar(factor),
    );
  }

  // As near as all points allow.
  private offset(direction: Vector3): Vector3 {
    const right = new Vector3().crossVectors(this.camera.up, direction).normalize();
    const up = new Vector3().crossVectors(direction, right);
    const slopeY = Math.tan((fieldOfView * Math.PI) / 360);
    const slopeX = slopeY * this.camera.aspect;
    let distance = 0.2;
    const relative = new Vector3();
    for (const point of this.points) {
      relative.subVectors(point, this.centre);
      const across = Math.abs(relative.dot(right)) / slopeX;
      const above = Math.abs(relative.dot(up)) / slopeY;
      distance = Math.max(distance, relative.dot(direction) + margin * Math.max(across, above));
    }
    return direction.clone().multiplyScalar(distance);
  }

  private moveTo(target: Vector3, offset: Vector3): void {
    if (this.reducedMotion.matches) {
      this.place(target, offset);
      return;
    }
    const fromTarget = this.controls.target.clone();
    const from = new Spherical().setFromVector3(swapped(this.camera.position.clone().sub(fromTarget)));
    const to = new Spherical().setFromVector3(swapped(offset));
    const turn = to.theta - from.theta;
    to.theta -= 2 * Math.PI * Math.round(turn / (2 * Math.PI));
    const begin = performance.now();
    const flight = ++this.numFlights;
    const step = (now: number): void => {
      // The hand and the next button are stronger.
      if (flight !== this.numFlights) {
        return;
      }
      const t = Math.min(Math.max((now - begin) / (1000 * seconds), 0), 1);
      const s = t * t * (3 - 2 * t);
      const between = (a: number, b: number): number => a + s * (b - a);
      const spherical = new Spherical(
        between(from.radius, to.radius),
        between(from.phi, to.phi),
        between(from.theta, to.theta),
      );
      this.place(fromTarget.clone().lerp(target, s), unswapped(new Vector3().setFromSpherical(spherical)));
      if (t < 1) {
        requestAnimationFrame(step);
      }
    };
    requestAnimationFrame(step);
  }

  private place(target: Vector3, offset: Vector3): void {
    const distance = offset.length();
    this.camera.near = distance / 200;
    this.camera.far = distance * 40;
    this.camera.updateProjectionMatrix();
    this.controls.target.copy(target);
    this.camera.position.copy(target).add(offset);
    this.controls.update();
    this.onMove();
  }
}

// Spherical coordinates of three are about y; here z is up.
function swapped(v: Vector3): Vector3 {
  return new Vector3(v.y, v.z, v.x);
}

function unswapped(v: Vector3): Vector3 {
  return new Vector3(v.z, v.x, v.y);
}
