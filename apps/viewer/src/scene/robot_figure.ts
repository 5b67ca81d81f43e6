import {
  type BufferGeometry,
  type Camera,
  Color,
  DoubleSide,
  DynamicDrawUsage,
  Group,
  IcosahedronGeometry,
  InstancedBufferAttribute,
  InstancedMesh,
  Matrix4,
  Mesh,
  MeshBasicMaterial,
  MeshLambertMaterial,
  type Object3D,
  PointsMaterial,
  Quaternion,
  RingGeometry,
  Vector3,
} from "three";
import { mergeVertices } from "three/examples/jsm/utils/BufferGeometryUtils.js";

import type { Attachment, Configuration, Contact, Pose, Vec3 } from "../document";
import { type Kinematics, positionOf, type Transform } from "../kinematics";
import { dotsAt, Lines } from "./lines";
import { createShape, meshGeometry, setPose, setTransform } from "./shapes";
import type { Theme } from "./theme";

export type RobotStyle = "spheres" | "meshes";

/** Solid in the colours of its links, or see-through in one colour. */
export type RobotKind = "robot" | "start" | "goal";

/** The robot in one configuration: its spheres or meshes, the chain of its frames, what it holds and what touches. */
export class RobotFigure {
  readonly object = new Group();
  /** Where the spheres and the origins of the frames are, relative to the base. */
  centres: Vec3[] = [];
  poses: Transform[] = [];
  private contacts: Contact[] = [];
  private readonly spheres: InstancedMesh[] = [];
  private readonly touching: InstancedMesh;
  private readonly rings: InstancedMesh;
  private readonly frames: Group[];
  /** Meshes of links and shapes of what is held, with the frames that they stand for. */
  private readonly surfaces: { frame: number; object: Object3D; material: MeshLambertMaterial }[] = [];
  private readonly chain = new Group();
  private readonly bones: Lines | undefined;
  private readonly joints: Lines;
  private readonly linkOf: number[];
  private currentStyle: RobotStyle = "spheres";
  private configuration: Configuration = [];
  private readonly ringMaterial = new MeshBasicMaterial({
    side: DoubleSide,
    depthTest: false,
    transparent: true,
  });
  private readonly contactMaterial = solidMaterial();

  constructor(
    private readonly kinematics: Kinematics,
    readonly kind: RobotKind,
  ) {
    const { model } = kinematics;
    const isGhost = kind !== "robot";
    const numSpheres = kinematics.spheres.length;
    this.linkOf = linkIndices(kinematics);
    // Robots of many spheres have small ones, and ghosts are looked at less.
    const ball = ballGeometry(isGhost || numSpheres > 150 ? 2 : 4);
    for (const material of passes(kind)) {
      const spheres = new InstancedMesh(ball, material, numSpheres);
      this.spheres.push(spheres);
      this.add(spheres, orderOf(material));
    }
    this.touching = new InstancedMesh(ball, this.contactMaterial, numSpheres);
    this.rings = new InstancedMesh(new RingGeometry(1.0, 1.1, 40), this.ringMaterial, numSpheres);
    this.add(this.touching, orderOf(this.contactMaterial));
    this.add(this.rings, 5);
    for (const marks of [this.touching, this.rings]) {
      // What is pointed at is the sphere beneath.
      marks.raycast = () => undefined;
    }

    this.frames = model.frames.map(() => new Group());
    for (const frame of this.frames) {
      this.object.add(frame);
    }
    this.createMeshes();
    this.createAttachments();

    const bones = model.frames.flatMap((frame) => (frame.parent === null ? [] : [[0, 0, 0], [0, 0, 0]]));
    this.joints = new Lines(dotsAt(model.frames.map(() => [0, 0, 0])), { width: 7, isOnTop: true });
    this.chain.add(this.joints.object);
    if (bones.length > 0) {
      this.bones = new Lines(bones as Vec3[], { width: 2, isOnTop: true, opacity: 0.75 });
      this.chain.add(this.bones.object);
    }
    this.object.add(this.chain);
    this.chain.visible = !isGhost;
  }

  /** Whether there is anything to show beside the spheres. */
  get hasMeshes(): boolean {
    return this.surfaces.length > 0;
  }

  /** Links without a mesh are spheres in either style. */
  set style(style: RobotStyle) {
    this.currentStyle = style;
    for (const { object } of this.surfaces) {
      object.visible = style === "meshes";
    }
    this.place(this.configuration);
  }

  set isChainShown(isShown: boolean) {
    this.chain.visible = isShown;
  }

  place(q: Configuration): void {
    this.configuration = q;
    this.poses = this.kinematics.frames(q);
    this.centres = this.kinematics.sphereCentres(this.poses);
    const matrix = new Matrix4();
    const replaced = new Set(this.currentStyle === "meshes" ? this.surfaces.map(({ frame }) => frame) : []);
    this.kinematics.spheres.forEach(({ frame, radius }, i) => {
      const size = replaced.has(frame) ? 0 : radius;
      matrix.makeScale(size, size, size).setPosition(...this.centres[i]!);
      for (const spheres of this.spheres) {
        spheres.setMatrixAt(i, matrix);
      }
    });
    for (const spheres of this.spheres) {
      spheres.instanceMatrix.needsUpdate = true;
      spheres.boundingSphere = null;
    }
    this.frames.forEach((frame, f) => {
      setTransform(frame, this.poses[f]!);
    });
    const origins = this.poses.map(positionOf);
    this.joints.move(dotsAt(origins));
    this.bones?.move(
      this.kinematics.model.frames.flatMap((frame, f) =>
        frame.parent === null ? [] : [origins[frame.parent]!, origins[f]!],
      ),
    );
    this.mark(this.contacts);
  }

  /** Shows these spheres as touching. */
  mark(contacts: Contact[]): void {
    this.contacts = contacts;
    const touching = new Set(contacts.flatMap((contact) => this.spheresOf(contact)));
    const matrix = new Matrix4();
    let count = 0;
    for (const i of touching) {
      const radius = 1.02 * (this.kinematics.spheres[i]?.radius ?? 0);
      this.touching.setMatrixAt(
        count++,
        matrix.makeScale(radius, radius, radius).setPosition(...(this.centres[i]!)),
      );
    }
    for (const marks of [this.touching, this.rings]) {
      marks.count = count;
      marks.visible = count > 0;
    }
    this.touching.instanceMatrix.needsUpdate = true;
    this.touching.boundingSphere = null;
  }

  /** Where a label of this contact belongs, relative to the base. */
  placeOf(contact: Contact): Vec3 {
    const sphere = this.spheresOf(contact)[0];
    const frame = this.kinematics.frameNamed(contact.frame);
    return (
      (sphere === undefined ? undefined : this.centres[sphere]) ??
      positionOf(this.poses[frame ?? this.kinematics.tip]!)
    );
  }

  /** Turns the rings about what touches towards the viewer; before each drawing. */
  face(camera: Camera): void {
    const turned = camera.quaternion.clone().premultiply(this.object.getWorldQuaternion(new Quaternion()).invert());
    const [matrix, position, scale] = [new Matrix4(), new Vector3(), new Vector3()];
    for (let i = 0; i < this.rings.count; ++i) {
      this.touching.getMatrixAt(i, matrix);
      position.setFromMatrixPosition(matrix);
      scale.setFromMatrixScale(matrix);
      this.rings.setMatrixAt(i, matrix.compose(position, turned, scale));
    }
    this.rings.instanceMatrix.needsUpdate = true;
  }

  applyTheme(theme: Theme): void {
    const held = new Set(this.kinematics.model.attachments.map((attachment) => this.frameOf(attachment)));
    const colourOf = (frame: number): string =>
      held.has(frame) ? theme.attached : theme.links[this.linkOf[frame]! % theme.links.length]!;
    const ghost = this.kind === "start" ? theme.start : theme.goal;
    for (const spheres of this.spheres) {
      if (this.kind === "robot") {
        this.kinematics.spheres.forEach(({ frame }, i) => {
          spheres.setColorAt(i, new Color(colourOf(frame)));
        });
        if (spheres.instanceColor) {
          spheres.instanceColor.needsUpdate = true;
        }
      } else {
        colourGhost(spheres.material as MeshLambertMaterial, ghost, theme);
      }
    }
    for (const { frame, material } of this.surfaces) {
      if (this.kind === "robot") {
        material.color.set(colourOf(frame));
      } else {
        colourGhost(material, ghost, theme);
      }
    }
    this.contactMaterial.color.set(theme.contact);
    this.contactMaterial.emissive.set(theme.contact).multiplyScalar(0.35);
    this.ringMaterial.color.set(theme.ink);
    this.joints.colour = theme.ink;
    if (this.bones) {
      this.bones.colour = theme.ink;
    }
  }

  /** The name of what a ray has hit, if it is part of this robot. */
  nameOf(object: Object3D, instance: number | undefined): string | undefined {
    const frame = this.spheres.includes(object as InstancedMesh)
      ? this.kinematics.spheres[instance ?? -1]?.frame
      : this.surfaces.find((surface) => surface.object === object)?.frame;
    return this.kinematics.model.frames[frame ?? -1]?.name;
  }

  private add(spheres: InstancedMesh, order: number): void {
    // Colours for all of them, whether they differ or not: the same shader again.
    spheres.instanceColor = new InstancedBufferAttribute(new Float32Array(3 * spheres.count).fill(1), 3);
    spheres.instanceMatrix.setUsage(DynamicDrawUsage);
    spheres.renderOrder = order;
    spheres.frustumCulled = false;
    this.object.add(spheres);
  }

  private createMeshes(): void {
    this.kinematics.model.frames.forEach((frame, f) => {
      const parts = frame.visual_meshes.length > 0 ? frame.visual_meshes : frame.collision_meshes;
      for (const part of parts) {
        const geometry = meshGeometry(part);
        for (const material of passes(this.kind)) {
          this.addSurface(f, f, part.pose, new Mesh(geometry, material), material);
        }
      }
    });
  }

  private createAttachments(): void {
    for (const attachment of this.kinematics.model.attachments) {
      const carrier = this.kinematics.frameNamed(attachment.frame) ?? 0;
      for (const material of passes(this.kind)) {
        const points = new PointsMaterial({ size: 0.006 });
        const shape = createShape(attachment.shape, { surface: material, points });
        if (shape) {
          this.addSurface(this.frameOf(attachment), carrier, attachment.pose, shape, material);
        }
      }
    }
  }

  private addSurface(frame: number, carrier: number, pose: Pose, object: Object3D, material: MeshLambertMaterial): void {
    object.renderOrder = orderOf(material);
    object.visible = false;
    setPose(object, pose);
    this.surfaces.push({ frame, object, material });
    this.frames[carrier]?.add(object);
  }

  // What is held has a frame of its own name for its spheres.
  private frameOf(attachment: Attachment): number {
    return this.kinematics.frameNamed(attachment.name) ?? this.kinematics.frameNamed(attachment.frame) ?? 0;
  }

  private spheresOf(contact: Contact): number[] {
    const index = (frame: string | null, sphere: number | null): number =>
      this.kinematics.spheres.findIndex(
        (candidate) =>
          candidate.index === sphere && this.kinematics.model.frames[candidate.frame]?.name === frame,
      );
    return [index(contact.frame, contact.sphere), index(contact.other_frame, contact.other_sphere)].filter(
      (i) => i >= 0,
    );
  }
}

// Of radius one; faces of the same size everywhere, 20 (detail + 1)^2 of them, make it round with the fewest.
function ballGeometry(detail: number): BufferGeometry {
  const ball = new IcosahedronGeometry(1, detail);
  ball.deleteAttribute("uv");
  return mergeVertices(ball);
}

// Frames that show something are numbered, so that neighbours get different colours.
function linkIndices(kinematics: Kinematics): number[] {
  let count = 0;
  return kinematics.model.frames.map((frame) =>
    frame.spheres.length + frame.visual_meshes.length + frame.collision_meshes.length > 0 ? count++ : 0,
  );
}

// Nothing shines through, and yet it counts as transparent, as ghosts do: one shader serves both.
function solidMaterial(): MeshLambertMaterial {
  return new MeshLambertMaterial({ transparent: true });
}

// Where a ghost stands in the same place as the robot, it is behind.
const behind = { polygonOffset: true, polygonOffsetFactor: 2, polygonOffsetUnits: 8 };

function ghostMaterial(): MeshLambertMaterial {
  return new MeshLambertMaterial({ transparent: true, depthWrite: false, ...behind });
}

// A ghost of many parts is seen through as one: first only its depth, then its nearest surface.
function passes(kind: RobotKind): MeshLambertMaterial[] {
  return kind === "robot"
    ? [solidMaterial()]
    : [new MeshLambertMaterial({ colorWrite: false, transparent: true, ...behind }), ghostMaterial()];
}

// What is solid first, ghosts next, behind obstacles that are seen through.
function orderOf(material: MeshLambertMaterial): number {
  return !material.colorWrite ? 1 : material.depthWrite ? -1 : 2;
}

function colourGhost(material: MeshLambertMaterial, colour: string, theme: Theme): void {
  material.color.set(colour);
  material.opacity = theme.ghostOpacity;
}
