import {
  type BufferGeometry,
  type Camera,
  Color,
  DoubleSide,
  DynamicDrawUsage,
  Group,
  IcosahedronGeometry,
  InstancedMesh,
  type Material,
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

import type { Configuration, Contact, Vec3 } from "../document";
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
  private readonly meshes: Mesh[] = [];
  private readonly attached: { name: string; surfaces: Mesh[] }[] = [];
  private readonly chain = new Group();
  private readonly bones: Lines | undefined;
  private readonly joints: Lines;
  private readonly linkOf: number[];
  private readonly ringMaterial = new MeshBasicMaterial({
    side: DoubleSide,
    depthTest: false,
    transparent: true,
  });
  private readonly contactMaterial = new MeshLambertMaterial();
  private readonly attachedMaterial: MeshLambertMaterial;

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
      spheres.renderOrder = orderOf(material);
      this.spheres.push(spheres);
      this.add(spheres);
    }
    this.touching = new InstancedMesh(ball, this.contactMaterial, numSpheres);
    this.rings = new InstancedMesh(new RingGeometry(1.0, 1.1, 40), this.ringMaterial, numSpheres);
    this.rings.renderOrder = 5;
    this.add(this.touching);
    this.add(this.rings);

    this.frames = model.frames.map(() => new Group());
    for (const frame of this.frames) {
      this.object.add(frame);
    }
    this.attachedMaterial = isGhost ? ghostMaterial() : new MeshLambertMaterial();
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
    this.style = "spheres";
  }

  /** Whether there is anything to show beside the spheres. */
  static hasMeshes(kinematics: Kinematics): boolean {
    return kinematics.model.frames.some(
      (frame) => frame.visual_meshes.length > 0 || frame.collision_meshes.length > 0,
    );
  }

  set style(style: RobotStyle) {
    for (const spheres of this.spheres) {
      spheres.visible = style === "spheres";
    }
    for (const mesh of this.meshes) {
      mesh.visible = style === "meshes";
    }
  }

  set isChainShown(isShown: boolean) {
    this.chain.visible = isShown;
  }

  place(q: Configuration): void {
    this.poses = this.kinematics.frames(q);
    this.centres = this.kinematics.sphereCentres(this.poses);
    const matrix = new Matrix4();
    this.kinematics.spheres.forEach(({ radius }, i) => {
      matrix.makeScale(radius, radius, radius).setPosition(...(this.centres[i]!));
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

  /** Shows these spheres, and what is held, as touching. */
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
    for (const { name, surfaces } of this.attached) {
      const touches = contacts.some(({ frame, other_frame }) => frame === name || other_frame === name);
      for (const surface of surfaces) {
        surface.material = touches ? this.contactMaterial : this.attachedMaterial;
      }
    }
  }

  /** Where a label of this contact belongs, relative to the base. */
  placeOf(contact: Contact): Vec3 {
    const sphere = this.spheresOf(contact)[0];
    const frame = this.kinematics.frameNamed(this.carrierOf(contact.frame));
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
    const colours = theme.links.map((colour) => new Color(colour));
    const colourOf = (frame: number): Color => colours[(this.linkOf[frame] ?? 0) % colours.length]!;
    const ghost = this.kind === "start" ? theme.start : theme.goal;
    if (this.kind === "robot") {
      for (const spheres of this.spheres) {
        this.kinematics.spheres.forEach(({ frame }, i) => {
          spheres.setColorAt(i, colourOf(frame));
        });
        if (spheres.instanceColor) {
          spheres.instanceColor.needsUpdate = true;
        }
      }
    } else {
      for (const { material } of this.spheres) {
        colourGhost(material as MeshLambertMaterial, ghost, theme);
      }
    }
    for (const mesh of this.meshes) {
      const material = mesh.material as MeshLambertMaterial;
      if (this.kind === "robot") {
        material.color.copy(colourOf(Number(mesh.userData.frame)));
      } else {
        colourGhost(material, ghost, theme);
      }
    }
    if (this.kind === "robot") {
      this.attachedMaterial.color.set(theme.attached);
    } else {
      colourGhost(this.attachedMaterial, ghost, theme);
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
    const { frames } = this.kinematics.model;
    if (this.spheres.includes(object as InstancedMesh) && instance !== undefined) {
      return frames[this.kinematics.spheres[instance]?.frame ?? -1]?.name;
    }
    if (this.meshes.includes(object as Mesh)) {
      return frames[Number(object.userData.frame)]?.name;
    }
    return this.attached.find(({ surfaces }) => surfaces.includes(object as Mesh))?.name;
  }

  private add(spheres: InstancedMesh): void {
    spheres.instanceMatrix.setUsage(DynamicDrawUsage);
    spheres.frustumCulled = false;
    this.object.add(spheres);
  }

  private createMeshes(): void {
    this.kinematics.model.frames.forEach((frame, f) => {
      const parts = frame.visual_meshes.length > 0 ? frame.visual_meshes : frame.collision_meshes;
      for (const part of parts) {
        const geometry = meshGeometry(part);
        for (const material of passes(this.kind)) {
          const mesh = new Mesh(geometry, material);
          mesh.userData.frame = f;
          mesh.renderOrder = orderOf(material);
          setPose(mesh, part.pose);
          this.meshes.push(mesh);
          this.frames[f]?.add(mesh);
        }
      }
    });
  }

  private createAttachments(): void {
    for (const attachment of this.kinematics.model.attachments) {
      const shape = createShape(attachment.shape, {
        surface: this.attachedMaterial,
        points: new PointsMaterial({ size: 0.006 }),
      });
      if (shape) {
        setPose(shape, attachment.pose);
        this.frames[this.kinematics.frameNamed(attachment.frame) ?? 0]?.add(shape);
        this.attached.push({ name: attachment.name, surfaces: shape instanceof Mesh ? [shape as Mesh] : [] });
      }
    }
  }

  private carrierOf(name: string): string {
    return this.kinematics.model.attachments.find((attachment) => attachment.name === name)?.frame ?? name;
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

// Where a ghost stands in the same place as the robot, it is behind.
const behind = { polygonOffset: true, polygonOffsetFactor: 2, polygonOffsetUnits: 8 };

function ghostMaterial(): MeshLambertMaterial {
  return new MeshLambertMaterial({ transparent: true, depthWrite: false, ...behind });
}

// A ghost of many parts is seen through as one: first only its depth, then its nearest surface.
function passes(kind: RobotKind): Material[] {
  return kind === "robot"
    ? [new MeshLambertMaterial()]
    : [new MeshLambertMaterial({ colorWrite: false, transparent: true, ...behind }), ghostMaterial()];
}

// Behind obstacles that are seen through.
function orderOf(material: Material): number {
  return !material.transparent ? 0 : material.colorWrite ? 2 : 1;
}

function colourGhost(material: MeshLambertMaterial, colour: string, theme: Theme): void {
  material.color.set(colour);
  material.opacity = theme.ghostOpacity;
}
