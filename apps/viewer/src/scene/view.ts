import {
  DirectionalLight,
  Group,
  HemisphereLight,
  LineBasicMaterial,
  LineSegments,
  type Object3D,
  Raycaster,
  Scene,
  Vector2,
  Vector3,
  WebGLRenderer,
} from "three";

import type { Contact, Inspection, PlanDocument, Shape, Vec3 } from "../document";
import { apply, Kinematics, type Transform, transformOf } from "../kinematics";
import { locate, type Motion } from "../motion";
import type { Playback } from "../playback";
import { formatDistance } from "../text";
import { CameraRig, type ViewName } from "./camera_rig";
import { frame } from "./framing";
import { type Label, Labels } from "./labels";
import { Lines } from "./lines";
import { Obstacles } from "./obstacles";
import { RobotFigure, type RobotStyle } from "./robot_figure";
import { gridGeometry, setPose } from "./shapes";
import { describeContacts, type Ghost, ghostsOf, unreachedPoses } from "./targets";
import { onThemeChange, readTheme } from "./theme";
import { ToolLines } from "./tool_lines";

export type { ViewName } from "./camera_rig";
export type { RobotStyle } from "./robot_figure";

/** What of a document is drawn. */
export type DrawnPlan = Pick<
  PlanDocument,
  "robot_model" | "scene" | "start" | "stages" | "path" | "searches" | "inspections" | "profile"
>;

export type LayerName = "chain" | "ghosts" | "trace" | "raw" | "startTree" | "goalTree" | "axes" | "translucent";

export interface Layer {
  name: LayerName;
  label: string;
  isOn: boolean;
}

/** The robot and its surroundings in three dimensions. */
export interface SceneView {
  readonly element: HTMLElement;
  /** What there is to be switched; nothing where the browser draws no scene. */
  readonly layers: Layer[];
  readonly hasMeshes: boolean;
  /** By index as in the document; the note says what was thinned. */
  readonly obstacles: { name: string; note: string }[];
  setLayer(name: LayerName, isOn: boolean): void;
  setStyle(style: RobotStyle): void;
  look(view: ViewName): void;
  turn(azimuth: number, elevation: number): void;
  zoom(factor: number): void;
  highlight(obstacle: number | null): void;
  /** Puts the robot where something was looked at; null goes back to the motion. */
  show(inspection: Inspection | null): void;
  /** Gives back what the scene holds of the graphics card. Nothing is drawn after it. */
  dispose(): void;
}

export function createSceneView(document: DrawnPlan, motion: Motion, playback: Playback): SceneView {
  const renderer = createRenderer();
  return renderer ? new DrawnScene(renderer, document, motion, playback) : emptyView(document);
}

function createRenderer(): WebGLRenderer | undefined {
  try {
    const renderer = new WebGLRenderer({ antialias: true, alpha: true });
    // Asking for errors makes the browser wait for each shader before it begins with the next one.
    renderer.debug.checkShaderErrors = false;
    return renderer;
  } catch {
    return undefined;
  }
}

function emptyView(document: DrawnPlan): SceneView {
  const element = globalThis.document.createElement("div");
  element.className = "scene scene-missing";
  const text = globalThis.document.createElement("p");
  text.textContent =
    "This browser does not draw the scene: WebGL 2 is missing or switched off. Everything else on this page works.";
  element.append(text);
  const nothing = (): void => undefined;
  return {
    element,
    layers: [],
    hasMeshes: false,
    obstacles: document.scene.obstacles.map(describeObstacle),
    setLayer: nothing,
    setStyle: nothing,
    look: nothing,
    turn: nothing,
    zoom: nothing,
    highlight: nothing,
    show: nothing,
    dispose: nothing,
  };
}

function describeObstacle({ name, shape, padding, enabled }: DrawnPlan["scene"]["obstacles"][number]): {
  name: string;
  note: string;
} {
  const notes = [
    ...(enabled ? [] : ["switched off"]),
    ...(padding > 0 ? [`padding ${formatDistance(padding)}`] : []),
    ...thinned(shape),
  ];
  return { name, note: notes.join(", ") };
}

function thinned(shape: Shape): string[] {
  const text = (shown: number, all: number, what: string): string[] =>
    shown < all ? [`${shown.toLocaleString("en")} of ${all.toLocaleString("en")} ${what} shown`] : [];
  if ("points" in shape) {
    return text(shape.points.points.length / 3, shape.points.num_points, "points");
  }
  if ("octree" in shape) {
    return text(shape.octree.cells.length / 4, shape.octree.num_cells, "cells");
  }
  return "mesh" in shape ? text(shape.mesh.triangles.length / 3, shape.mesh.num_triangles, "triangles") : [];
}

const numFramedConfigurations = 24;
const axisLength = 0.2;
const numGroundCells = 20;

class DrawnScene implements SceneView {
  readonly element = globalThis.document.createElement("div");
  readonly layers: Layer[];
  readonly hasMeshes: boolean;
  readonly obstacles: { name: string; note: string }[];
  private readonly canvas: HTMLCanvasElement;
  private readonly tooltip = globalThis.document.createElement("div");
  private readonly labels = new Labels();
  private readonly scene = new Scene();
  /** All but the ground stands in the frame of the robot's base. */
  private readonly base = new Group();
  private readonly basePose: Transform;
  private readonly kinematics: Kinematics;
  private readonly robot: RobotFigure;
  private readonly ghosts: { ghost: Ghost; figure: RobotFigure }[];
  private readonly ghostGroup = new Group();
  private readonly toolLines: ToolLines;
  private readonly obstacleGroup: Obstacles;
  private readonly axes = new Group();
  private readonly axisLines: Lines[] = [];
  private readonly gridMaterial = new LineBasicMaterial({ transparent: true, opacity: 0.6 });
  private readonly rig: CameraRig;
  private readonly contactsAt = new Map<number, Contact[]>();
  private readonly raycaster = new Raycaster();
  private shown: Inspection | null = null;
  private pointed: number | null = null;
  private chosen: number | null = null;
  private isDrawPending = false;
  private isChanged = true;
  private isHoverPending = false;
  private hasDrawn = false;
  private forgetTheme = (): void => undefined;

  constructor(
    private readonly renderer: WebGLRenderer,
    private readonly document: DrawnPlan,
    private readonly motion: Motion,
    private readonly playback: Playback,
  ) {
    this.kinematics = new Kinematics(document.robot_model);
    this.robot = new RobotFigure(this.kinematics, "robot");
    this.hasMeshes = this.robot.hasMeshes;
    this.ghosts = ghostsOf(document).map((ghost) => ({
      ghost,
      figure: new RobotFigure(this.kinematics, ghost.kind),
    }));
    this.toolLines = new ToolLines(document, motion, this.kinematics);
    this.obstacleGroup = new Obstacles(document.scene.obstacles);
    this.obstacles = document.scene.obstacles.map(describeObstacle);
    this.basePose = transformOf(document.scene.base_pose);
    for (const { sample, contacts } of document.profile?.contacts ?? []) {
      this.contactsAt.set(sample, contacts);
    }
    this.layers = this.availableLayers();

    this.canvas = renderer.domElement;
    this.element.className = "scene";
    this.tooltip.className = "tooltip";
    this.tooltip.hidden = true;
    this.element.append(this.canvas, this.labels.element, this.tooltip);
    this.canvas.setAttribute("role", "img");
    this.canvas.setAttribute("aria-label", "Robot and scene in three dimensions");

    this.fill();
    const framing = frame(this.framedPoints(), this.worldBounds());
    this.rig = new CameraRig(
      this.canvas,
      framing.points,
      framing.centre,
      framing.direction,
      () => {
        this.invalidate();
      },
    );
    this.addLight();
    this.addGround(framing.points, framing.centre);
    for (const { name, isOn } of this.layers) {
      this.setLayer(name, isOn);
    }
    this.applyTheme();
    this.change();
    this.listen();
  }

  setLayer(name: LayerName, isOn: boolean): void {
    const layer = this.layers.find((candidate) => candidate.name === name);
    if (layer) {
      layer.isOn = isOn;
    }
    switch (name) {
      case "chain":
        this.robot.isChainShown = isOn;
        break;
      case "ghosts":
        this.ghostGroup.visible = isOn;
        break;
      case "axes":
        this.axes.visible = isOn;
        break;
      case "translucent":
        this.obstacleGroup.isTranslucent = isOn;
        break;
      case "trace":
      case "raw":
      case "startTree":
      case "goalTree":
        this.toolLines.show(name, isOn);
        break;
    }
    this.change();
  }

  setStyle(style: RobotStyle): void {
    for (const figure of this.figures()) {
      figure.style = style;
    }
    this.invalidate();
  }

  look(view: ViewName): void {
    this.rig.look(view);
  }

  turn(azimuth: number, elevation: number): void {
    this.rig.turn(azimuth, elevation);
  }

  zoom(factor: number): void {
    this.rig.zoom(factor);
  }

  highlight(obstacle: number | null): void {
    this.chosen = obstacle;
    this.change();
  }

  show(inspection: Inspection | null): void {
    this.shown = inspection;
    this.change();
  }

  private figures(): RobotFigure[] {
    return [this.robot, ...this.ghosts.map(({ figure }) => figure)];
  }

  private availableLayers(): Layer[] {
    const { path, searches, scene } = this.document;
    const isFailed = path.length === 0;
    const hasTree = (root: "start" | "goal"): boolean =>
      searches.some(({ trees }) => trees.some((tree) => tree.root === root && tree.nodes.length > 1));
    const layers: (Layer & { exists: boolean })[] = [
      { name: "ghosts", label: isFailed ? "Start and target" : "Start and goal", isOn: true, exists: true },
      { name: "chain", label: "Link chain", isOn: true, exists: true },
      { name: "trace", label: "Tool path", isOn: true, exists: this.motion.duration > 0 },
      {
        name: "raw",
        label: "Raw path",
        isOn: true,
        exists: searches.some(({ raw_path }) => raw_path.length > 1),
      },
      { name: "startTree", label: "Start tree", isOn: isFailed, exists: hasTree("start") },
      { name: "goalTree", label: "Goal tree", isOn: isFailed, exists: hasTree("goal") },
      { name: "translucent", label: "See through obstacles", isOn: false, exists: scene.obstacles.length > 0 },
      { name: "axes", label: "Axes", isOn: true, exists: true },
    ];
    return layers.filter(({ exists }) => exists).map(({ name, label, isOn }) => ({ name, label, isOn }));
  }

  private fill(): void {
    setPose(this.base, this.document.scene.base_pose);
    this.scene.add(this.base);
    for (const { ghost, figure } of this.ghosts) {
      figure.place(ghost.configuration);
      figure.mark(ghost.contacts);
      this.ghostGroup.add(figure.object);
    }
    for (const { goal } of unreachedPoses(this.document)) {
      const triad = this.createTriad(0.6 * axisLength);
      setPose(triad, { position: goal.position, orientation: goal.orientation ?? [0, 0, 0, 1] });
      this.ghostGroup.add(triad);
    }
    this.axes.add(this.createTriad(axisLength));
    this.base.add(this.robot.object, this.ghostGroup, this.toolLines.object, this.obstacleGroup.object, this.axes);
  }

  private createTriad(length: number): Group {
    const origin: Vec3 = [0, 0, 0];
    const ends: Vec3[] = [origin, [length, 0, 0], origin, [0, length, 0], origin, [0, 0, length]];
    const lines = new Lines(ends, { width: 2.5, isOnTop: true, opacity: 0.9 });
    this.axisLines.push(lines);
    return new Group().add(lines.object);
  }

  /** Of the robot along the motion, at the ghosts and where something was looked at, and of raw paths; in the world. */
  private framedPoints(): Vector3[] {
    const numSteps = this.motion.duration > 0 ? numFramedConfigurations : 0;
    const configurations = [
      ...Array.from({ length: numSteps + 1 }, (_, i) =>
        this.motion.configurationAt(numSteps > 0 ? (i / numSteps) * this.motion.duration : 0),
      ),
      ...this.ghosts.map(({ ghost }) => ghost.configuration),
      ...this.document.inspections.map(({ configuration }) => configuration),
    ];
    const endsOf = ([x, y, z]: Vec3, i: number): Vec3[] => {
      const radius = this.kinematics.spheres[i]!.radius;
      return [-radius, radius].flatMap((r): Vec3[] => [[x + r, y, z], [x, y + r, z], [x, y, z + r]]);
    };
    const points = configurations.flatMap((q) => {
      const poses = this.kinematics.frames(q);
      return [...this.kinematics.sphereCentres(poses).flatMap(endsOf), this.kinematics.toolPosition(q)];
    });
    const rawPaths = this.document.searches.flatMap(({ raw_path }) => raw_path);
    return [
      ...points,
      ...rawPaths.map((q) => this.kinematics.toolPosition(q)),
      ...unreachedPoses(this.document).map(({ goal }) => goal.position),
    ].map((point) => this.toWorld(point));
  }

  private worldBounds(): ReturnType<Obstacles["worldBounds"]> {
    this.scene.updateMatrixWorld(true);
    return this.obstacleGroup.worldBounds();
  }

  private toWorld(point: Vec3): Vector3 {
    return new Vector3(...apply(this.basePose, point));
  }

  // Light comes with the viewer, from the left and above and weaker from the right: no side stays dark.
  private addLight(): void {
    for (const [x, intensity] of [[-0.7, 1.5], [1, 0.7]] as const) {
      const lamp = new DirectionalLight("white", intensity);
      lamp.position.set(x, 0.8, 1);
      this.rig.camera.add(lamp, lamp.target);
    }
    this.scene.add(this.rig.camera, new HemisphereLight("white", "#b5bac2", 1.5));
  }

  private addGround(points: Vector3[], centre: Vector3): void {
    const radius = points.reduce((most, point) => Math.max(most, point.distanceTo(centre)), 0.3);
    const lowest = points.reduce((least, point) => Math.min(least, point.z), Infinity);
    const cell = roundUp((4 * radius) / numGroundCells);
    const size = numGroundCells * cell;
    const toBase = this.base.matrixWorld.clone().invert();
    this.obstacleGroup.extend(centre.clone().applyMatrix4(toBase), size);
    if (!this.obstacleGroup.hasGround()) {
      const grid = new LineSegments(gridGeometry(numGroundCells), this.gridMaterial);
      grid.scale.setScalar(size);
      // The floor of the files' world, unless the robot is far from it.
      const isNear = lowest > -0.3 * radius && lowest < 2 * radius;
      grid.position.set(cell * Math.round(centre.x / cell), cell * Math.round(centre.y / cell), isNear ? 0 : lowest);
      this.scene.add(grid);
    }
  }

  private applyTheme(): void {
    const theme = readTheme(globalThis.document.documentElement);
    for (const figure of this.figures()) {
      figure.applyTheme(theme);
    }
    this.toolLines.applyTheme(theme);
    this.obstacleGroup.applyTheme(theme);
    for (const lines of this.axisLines) {
      lines.colour = theme.ink;
    }
    this.gridMaterial.color.set(theme.grid);
    this.invalidate();
  }

  dispose(): void {
    // As if there were always a frame to come.
    this.isDrawPending = true;
    this.forgetTheme();
    this.renderer.dispose();
    this.renderer.forceContextLoss();
  }

  private listen(): void {
    this.playback.onChange(() => {
      this.change();
    });
    this.forgetTheme = onThemeChange(() => {
      this.applyTheme();
    });
    new ResizeObserver(() => {
      const { clientWidth, clientHeight } = this.element;
      if (clientWidth > 0 && clientHeight > 0) {
        this.renderer.setPixelRatio(Math.min(globalThis.devicePixelRatio, 2));
        this.renderer.setSize(clientWidth, clientHeight);
        this.rig.resize(clientWidth, clientHeight);
        // At once: an emptied canvas would flicker.
        this.draw();
      }
    }).observe(this.element);
    const hover = (event: PointerEvent): void => {
      if (event.pointerType === "mouse" && event.buttons !== 0) {
        this.leave();
      } else if (!this.isHoverPending) {
        this.isHoverPending = true;
        requestAnimationFrame(() => {
          this.isHoverPending = false;
          this.hover(event);
        });
      }
    };
    this.canvas.addEventListener("webglcontextrestored", () => {
      this.invalidate();
    });
    this.canvas.addEventListener("pointermove", hover);
    this.canvas.addEventListener("pointerdown", hover);
    this.canvas.addEventListener("pointerleave", () => {
      this.leave();
    });
  }

  private hover(event: PointerEvent): void {
    const bounds = this.canvas.getBoundingClientRect();
    const [x, y] = [event.clientX - bounds.left, event.clientY - bounds.top];
    this.raycaster.setFromCamera(
      new Vector2((2 * x) / bounds.width - 1, 1 - (2 * y) / bounds.height),
      this.rig.camera,
    );
    this.raycaster.params.Points.threshold = 0.012;
    const hit = this.raycaster
      .intersectObjects([this.robot.object, this.obstacleGroup.object])
      .find(({ object }) => isShown(object));
    const obstacle = hit && this.obstacleGroup.indexOf(hit.object);
    const described = obstacle === undefined ? undefined : this.obstacles[obstacle];
    const text = described
      ? [described.name, described.note].filter((part) => part !== "").join(" · ")
      : hit && this.robot.nameOf(hit.object, hit.instanceId);
    if (text === undefined) {
      this.leave();
      return;
    }
    this.tooltip.textContent = text;
    this.tooltip.hidden = false;
    const left = Math.min(x + 14, bounds.width - this.tooltip.offsetWidth - 4);
    const top = y + 18 + this.tooltip.offsetHeight > bounds.height ? y - this.tooltip.offsetHeight - 8 : y + 18;
    this.tooltip.style.transform = `translate(${String(Math.max(left, 4))}px, ${String(top)}px)`;
    this.point(obstacle ?? null);
  }

  private leave(): void {
    this.tooltip.hidden = true;
    this.point(null);
  }

  private point(obstacle: number | null): void {
    if (this.pointed !== obstacle) {
      this.pointed = obstacle;
      this.change();
    }
  }

  private currentContacts(): Contact[] {
    const { profile } = this.document;
    if (this.shown) {
      return this.shown.contacts;
    }
    if (!profile || this.contactsAt.size === 0) {
      return [];
    }
    const { index, fraction } = locate(profile.at, this.motion.toProfile(this.playback.time));
    return this.contactsAt.get(fraction < 0.5 ? index : index + 1) ?? [];
  }

  private change(): void {
    this.isChanged = true;
    this.invalidate();
  }

  /** Brings everything in line with time, layers, what is shown and what is pointed at. */
  private update(): void {
    const contacts = this.currentContacts();
    this.robot.place(this.shown?.configuration ?? this.motion.configurationAt(this.playback.time));
    this.robot.mark(contacts);
    const ghosts = this.ghostGroup.visible ? this.ghosts : [];
    const all = [...contacts, ...ghosts.flatMap(({ ghost }) => ghost.contacts)];
    this.obstacleGroup.mark(new Set(all.flatMap(({ obstacle_index: index }) => (index === null ? [] : [index]))));
    this.obstacleGroup.highlight = this.pointed ?? this.chosen;

    const contactLabels = new Map<string, Label>();
    const describe = (figure: RobotFigure, touching: Contact[]): void => {
      for (const { text, contact } of describeContacts(touching)) {
        contactLabels.set(text, { text, kind: "contact", position: this.toWorld(figure.placeOf(contact)) });
      }
    };
    for (const { ghost, figure } of ghosts) {
      describe(figure, ghost.contacts);
    }
    describe(this.robot, contacts);
    this.labels.set("contacts", [...contactLabels.values()]);
    this.labels.set(
      "ghosts",
      ghosts.map(({ ghost }) => ({
        text: ghost.label,
        kind: ghost.kind,
        position: this.toWorld(this.kinematics.toolPosition(ghost.configuration)),
      })),
    );
    this.labels.set("poses", this.poseLabels());
    this.labels.set("axes", this.axisLabels());
    this.labels.set("chosen", this.chosenLabel());
  }

  private poseLabels(): Label[] {
    const poses = this.ghostGroup.visible ? unreachedPoses(this.document) : [];
    return poses.map(({ label, goal }) => ({ text: label, kind: "goal", position: this.toWorld(goal.position) }));
  }

  private axisLabels(): Label[] {
    const tip = 1.15 * axisLength;
    const tips: [string, Vec3][] = [["x", [tip, 0, 0]], ["y", [0, tip, 0]], ["z", [0, 0, tip]]];
    return this.axes.visible
      ? tips.map(([text, position]) => ({ text, kind: "axis", position: this.toWorld(position) }))
      : [];
  }

  private chosenLabel(): Label[] {
    const described = this.chosen === null ? undefined : this.obstacles[this.chosen];
    const centre = this.chosen === null ? undefined : this.obstacleGroup.centreOf(this.chosen);
    return described && centre
      ? [{ text: described.name, kind: "obstacle", position: centre.applyMatrix4(this.base.matrixWorld) }]
      : [];
  }

  private invalidate(): void {
    if (!this.isDrawPending && this.hasDrawn) {
      this.isDrawPending = true;
      requestAnimationFrame(() => {
        this.draw();
      });
    }
  }

  private draw(): void {
    this.isDrawPending = false;
    if (this.isChanged) {
      this.isChanged = false;
      this.update();
    }
    this.scene.updateMatrixWorld();
    for (const figure of this.figures()) {
      figure.face(this.rig.camera);
    }
    this.renderer.render(this.scene, this.rig.camera);
    this.labels.project(this.rig.camera, this.element.clientWidth, this.element.clientHeight);
    if (!this.hasDrawn) {
      this.hasDrawn = true;
      performance.mark("first-frame");
    }
  }
}

function isShown(object: Object3D): boolean {
  return object.visible && (object.parent === null || isShown(object.parent));
}

// To 1, 2 or 5 times a power of ten.
function roundUp(value: number): number {
  const power = 10 ** Math.floor(Math.log10(value));
  return power * ([1, 2, 5].find((digit) => digit * power >= value) ?? 10);
}
