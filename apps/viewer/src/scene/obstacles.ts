import {
  Box3,
  Color,
  DoubleSide,
  EdgesGeometry,
  Group,
  LineBasicMaterial,
  LineSegments,
  type Material,
  Mesh,
  MeshBasicMaterial,
  MeshLambertMaterial,
  type Object3D,
  PlaneGeometry,
  Points,
  PointsMaterial,
  Vector3,
} from "three";

import type { Obstacle, Shape } from "../document";
import { createShape, gridGeometry, setPose, type ShapeMaterials } from "./shapes";
import type { Theme } from "./theme";

type State = "plain" | "disabled" | "touched" | "highlighted";

const states: readonly State[] = ["plain", "disabled", "touched", "highlighted"];

interface Materials extends ShapeMaterials {
  surface: MeshLambertMaterial;
  plane: MeshBasicMaterial;
  edges: LineBasicMaterial;
  grid: LineBasicMaterial;
}

interface Item {
  obstacle: Obstacle;
  object: Group;
  /** Each with the kind of material that it takes. */
  parts: { object: Object3D & { material: Material | Material[] }; kind: keyof Materials }[];
  /** A half space. */
  isEndless: boolean;
}

// Meshes of more triangles than this show their shape by shading alone.
const mostTrianglesWithEdges = 4000;
const crease = 25;
const numGridCells = 20;

/** The obstacles of a scene, each in one of a few looks. */
export class Obstacles {
  readonly object = new Group();
  private readonly items: Item[];
  private readonly materials: Record<State, Materials>;
  private touched = new Set<number>();
  private highlighted: number | null = null;
  private translucent = false;

  constructor(obstacles: Obstacle[]) {
    this.materials = Object.fromEntries(states.map((state) => [state, createMaterials()])) as Record<State, Materials>;
    this.items = obstacles.map((obstacle) => this.createItem(obstacle));
    for (const { object } of this.items) {
      this.object.add(object);
    }
    this.update();
  }

  /** Boxes around what ends somewhere; after the matrices of the scene were brought up to date. */
  worldBounds(): Box3[] {
    return this.items.flatMap(({ object, isEndless }) => (isEndless ? [] : [new Box3().setFromObject(object)]));
  }

  /** In the frame that the obstacles are given in. */
  centreOf(index: number): Vector3 | undefined {
    const item = this.items[index];
    const part = item?.parts[0]?.object;
    if (!item || !part) {
      return undefined;
    }
    const box = new Box3().setFromObject(part);
    const toParent = this.object.matrixWorld.clone().invert();
    return (item.isEndless ? part.getWorldPosition(new Vector3()) : box.getCenter(new Vector3())).applyMatrix4(toParent);
  }

  /** Whether a half space serves as the ground; after the matrices of the scene were brought up to date. */
  hasGround(): boolean {
    return this.items.some(({ object, isEndless }) => isEndless && object.matrixWorld.elements[10] > 0.9);
  }

  /** Half spaces have no end; they are drawn as far as the scene goes, about the point of them nearest to its centre. */
  extend(centre: Vector3, size: number): void {
    for (const { object, parts, isEndless } of this.items) {
      if (isEndless) {
        const local = centre.clone().applyMatrix4(object.matrix.clone().invert());
        for (const part of parts) {
          part.object.position.set(local.x, local.y, 0);
          part.object.scale.setScalar(size);
        }
      }
    }
  }

  set isTranslucent(value: boolean) {
    this.translucent = value;
    this.update();
  }

  set highlight(index: number | null) {
    this.highlighted = index;
    this.update();
  }

  mark(touched: Set<number>): void {
    this.touched = touched;
    this.update();
  }

  /** Which obstacle something that a ray has hit belongs to. */
  indexOf(object: Object3D): number | undefined {
    const index = this.items.findIndex((item) => item.parts.some((part) => part.object === object));
    return index < 0 ? undefined : index;
  }

  applyTheme(theme: Theme): void {
    // What touches is red; what it touches is a little.
    const touched = `#${new Color(theme.obstacle).lerp(new Color(theme.contact), 0.4).getHexString()}`;
    const looks: Record<State, { surface: string; edges: string; grid: string }> = {
      plain: { surface: theme.obstacle, edges: theme.obstacleEdge, grid: theme.grid },
      disabled: { surface: theme.obstacle, edges: theme.obstacleEdge, grid: theme.grid },
      touched: { surface: touched, edges: theme.contact, grid: theme.contact },
      highlighted: { surface: theme.highlight, edges: theme.ink, grid: theme.highlight },
    };
    for (const state of states) {
      const { surface, points, edges, plane, grid } = this.materials[state];
      surface.color.set(looks[state].surface);
      // It fills much of the picture: where the pointer is on it, its grid says so.
      plane.color.set(state === "touched" ? touched : theme.ground);
      points.color.set(state === "highlighted" ? theme.highlight : looks[state].edges);
      edges.color.set(looks[state].edges);
      grid.color.set(looks[state].grid);
    }
  }

  private stateOf(index: number): State {
    if (this.highlighted === index) {
      return "highlighted";
    }
    if (this.touched.has(index)) {
      return "touched";
    }
    return this.items[index]?.obstacle.enabled === false ? "disabled" : "plain";
  }

  private update(): void {
    for (const state of states) {
      const opacity = state === "disabled" ? 0.12 : state === "touched" ? 0.5 : this.translucent ? 0.28 : 1;
      const { surface, plane } = this.materials[state];
      const changes = surface.transparent !== opacity < 1;
      surface.opacity = opacity;
      surface.transparent = opacity < 1;
      surface.depthWrite = opacity === 1;
      surface.needsUpdate ||= changes;
      plane.opacity = 0.9 * opacity;
    }
    this.items.forEach(({ parts }, index) => {
      const materials = this.materials[this.stateOf(index)];
      for (const { object, kind } of parts) {
        object.material = materials[kind];
        object.renderOrder = kind === "surface" && materials.surface.transparent ? 3 : 0;
      }
    });
  }

  private createItem(obstacle: Obstacle): Item {
    const materials = this.materials.plain;
    const object = new Group();
    setPose(object, obstacle.pose);
    const shape = createShape(obstacle.shape, materials);
    if (!shape) {
      const [plane, grid] = createHalfSpace(materials);
      object.add(plane, grid);
      return { obstacle, object, parts: [{ object: plane, kind: "plane" }, { object: grid, kind: "grid" }], isEndless: true };
    }
    const parts: Item["parts"] = [];
    object.add(shape);
    if (shape instanceof Points) {
      parts.push({ object: shape, kind: "points" });
      materialOfPoints(obstacle.shape, this.materials);
    } else if (shape instanceof Mesh) {
      parts.push({ object: shape, kind: "surface" });
      if (hasEdges(obstacle.shape)) {
        const edges = new LineSegments(new EdgesGeometry(shape.geometry, crease), materials.edges);
        edges.raycast = () => undefined;
        object.add(edges);
        parts.push({ object: edges, kind: "edges" });
      }
    }
    return { obstacle, object, parts, isEndless: false };
  }
}

// Each combination of properties is a shader of its own, and shaders are most of the time until the first picture.
function createMaterials(): Materials {
  return {
    surface: new MeshLambertMaterial({
      // Meshes from files may be inside out.
      side: DoubleSide,
      forceSinglePass: true,
      polygonOffset: true,
      polygonOffsetFactor: 1,
      polygonOffsetUnits: 1,
    }),
    // Not seen from below.
    plane: new MeshBasicMaterial({ transparent: true, depthWrite: false }),
    edges: new LineBasicMaterial({ transparent: true }),
    grid: new LineBasicMaterial({ transparent: true }),
    points: new PointsMaterial({ size: 0.006 }),
  };
}

// Points that would hardly be seen are drawn a little larger than they are.
function materialOfPoints(shape: Shape, materials: Record<State, Materials>): void {
  if ("points" in shape) {
    for (const state of states) {
      const { points } = materials[state];
      points.size = Math.max(points.size, Math.min(2 * shape.points.radius, 0.03));
    }
  }
}

function hasEdges(shape: Shape): boolean {
  return "mesh" in shape ? shape.mesh.triangles.length / 3 <= mostTrianglesWithEdges : !("octree" in shape);
}

// Of edge length one; `extend` makes it larger.
function createHalfSpace(materials: Materials): [Mesh, LineSegments] {
  const plane = new Mesh(new PlaneGeometry(1, 1), materials.plane);
  const grid = new LineSegments(gridGeometry(numGridCells), materials.grid);
  grid.raycast = () => undefined;
  return [plane, grid];
}
