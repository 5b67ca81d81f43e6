import {
  BoxGeometry,
  BufferAttribute,
  BufferGeometry,
  CapsuleGeometry,
  ConeGeometry,
  CylinderGeometry,
  InstancedMesh,
  type Material,
  Matrix4,
  Mesh,
  type Object3D,
  Points,
  type PointsMaterial,
  SphereGeometry,
} from "three";

import type { Mesh as MeshData, Pose, Shape } from "../document";
import { type Transform, transformOf } from "../kinematics";

/** What shapes are drawn with. */
export interface ShapeMaterials {
  surface: Material;
  points: PointsMaterial;
}

export function setTransform(object: Object3D, transform: Transform): void {
  object.matrixAutoUpdate = false;
  object.matrix.fromArray(transform);
  object.matrixWorldNeedsUpdate = true;
}

export function setPose(object: Object3D, pose: Pose): void {
  setTransform(object, transformOf(pose));
}

export function meshGeometry(mesh: MeshData): BufferGeometry {
  const geometry = new BufferGeometry();
  geometry.setAttribute("position", new BufferAttribute(new Float32Array(mesh.vertices), 3));
  geometry.setIndex(new BufferAttribute(new Uint32Array(mesh.triangles), 1));
  // Facets, not waves, whatever vertices the faces share.
  const facets = geometry.toNonIndexed();
  facets.computeVertexNormals();
  return facets;
}

/** Lines of a grid in the x-y plane, one metre square about the origin. */
export function gridGeometry(numCells: number): BufferGeometry {
  const ends: number[] = [];
  for (let i = 0; i <= numCells; ++i) {
    const at = i / numCells - 0.5;
    ends.push(at, -0.5, 0, at, 0.5, 0, -0.5, at, 0, 0.5, at, 0);
  }
  return new BufferGeometry().setAttribute("position", new BufferAttribute(new Float32Array(ends), 3));
}

/** The surface of a solid shape, in its frame; undefined for what has no surface of its own. */
export function surfaceOf(shape: Shape): BufferGeometry | undefined {
  // Round solids of three stand along y.
  if ("sphere" in shape) {
    return new SphereGeometry(shape.sphere.radius, 32, 20).rotateX(Math.PI / 2);
  }
  if ("box" in shape) {
    return new BoxGeometry(...shape.box);
  }
  if ("cylinder" in shape) {
    const { radius, height } = shape.cylinder;
    return new CylinderGeometry(radius, radius, height, 40).rotateX(Math.PI / 2);
  }
  if ("capsule" in shape) {
    return new CapsuleGeometry(shape.capsule.radius, shape.capsule.height, 10, 32).rotateX(Math.PI / 2);
  }
  if ("cone" in shape) {
    return new ConeGeometry(shape.cone.radius, shape.cone.height, 40).rotateX(Math.PI / 2);
  }
  return "mesh" in shape ? meshGeometry(shape.mesh) : undefined;
}

/** A shape in its frame; undefined for a half space, which has no end. */
export function createShape(shape: Shape, materials: ShapeMaterials): Object3D | undefined {
  if ("points" in shape) {
    const geometry = new BufferGeometry();
    geometry.setAttribute("position", new BufferAttribute(new Float32Array(shape.points.points), 3));
    return new Points(geometry, materials.points);
  }
  if ("octree" in shape) {
    return createCells(shape.octree.cells, materials.surface);
  }
  const surface = surfaceOf(shape);
  return surface && new Mesh(surface, materials.surface);
}

function createCells(cells: readonly number[], material: Material): InstancedMesh {
  const count = Math.floor(cells.length / 4);
  const boxes = new InstancedMesh(new BoxGeometry(1, 1, 1), material, count);
  const matrix = new Matrix4();
  for (let i = 0; i < count; ++i) {
    const [x = 0, y = 0, z = 0, size = 0] = cells.slice(4 * i, 4 * i + 4);
    boxes.setMatrixAt(i, matrix.makeScale(size, size, size).setPosition(x, y, z));
  }
  boxes.computeBoundingBox();
  boxes.computeBoundingSphere();
  return boxes;
}
