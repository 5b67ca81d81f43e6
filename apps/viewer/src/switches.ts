import type { Inspection, PlanDocument } from "./document";
import { create, createButton, createGroup, createIcon, type IconName } from "./dom";
import type { Playback } from "./playback";
import { describeContacts, titleOf } from "./scene/targets";
import type { RobotStyle, SceneView, ViewName } from "./scene/view";
import { formatNumber } from "./text";

/** What is shown in the scene, each with the look of its lines; so this is the legend too. */
export function createSwitches(scene: SceneView): HTMLElement {
  const group = createGroup("Show in the scene", "switches");
  if (scene.hasMeshes) {
    group.append(createStyleSwitch(scene));
  }
  for (const { name, label, isOn } of scene.layers) {
    const box = create("input");
    box.type = "checkbox";
    box.checked = isOn;
    box.addEventListener("change", () => {
      scene.setLayer(name, box.checked);
    });
    const swatch = create("span", `swatch swatch-${name}`);
    swatch.setAttribute("aria-hidden", "true");
    group.append(create("label", "switch", box, swatch, label));
  }
  return group;
}

function createStyleSwitch(scene: SceneView): HTMLElement {
  const styles: [RobotStyle, string][] = [["spheres", "Spheres"], ["meshes", "Meshes"]];
  const choices = styles.map(([style, label]): Choice => ({ label, choose: () => { scene.setStyle(style); } }));
  return createChoice("Robot", choices).element;
}

interface Choice {
  label: string;
  choose: () => void;
}

// Buttons of which one is pressed.
function createChoice(
  name: string,
  choices: Choice[],
  chosen = 0,
): { element: HTMLElement; press: (chosen: number) => void } {
  const press = (index: number): void => {
    buttons.forEach((button, i) => {
      button.setAttribute("aria-pressed", String(i === index));
    });
  };
  const buttons = choices.map(({ label, choose }, i) =>
    createButton(label, label, () => {
      press(i);
      choose();
    }),
  );
  press(chosen);
  return { element: createGroup(name, "choice", ...buttons), press };
}

const step = Math.PI / 12;

export function createCameraButtons(scene: SceneView): HTMLElement {
  const view = (name: ViewName, label: string): HTMLButtonElement =>
    createButton(label, label, () => {
      scene.look(name);
    });
  const icon = (name: string, iconName: IconName, act: () => void): HTMLButtonElement =>
    createButton(name, createIcon(iconName), act);
  return createGroup(
    "Camera",
    "camera",
    icon("Reset view", "home", () => { scene.look("reset"); }),
    view("front", "Front"),
    view("side", "Side"),
    view("top", "Top"),
    icon("Turn left", "left", () => { scene.turn(-step, 0); }),
    icon("Turn right", "right", () => { scene.turn(step, 0); }),
    icon("Turn up", "up", () => { scene.turn(0, step); }),
    icon("Turn down", "down", () => { scene.turn(0, -step); }),
    icon("Nearer", "plus", () => { scene.zoom(0.8); }),
    icon("Farther", "minus", () => { scene.zoom(1.25); }),
  );
}

/** The names of all obstacles; the one that has the focus is marked in the scene, a click keeps it marked. */
export function createObstacleList(scene: SceneView): HTMLElement {
  let kept: number | null = null;
  const buttons: HTMLButtonElement[] = [];
  const list = create("ul");
  scene.obstacles.forEach(({ name, note }, index) => {
    const button = createButton(name, name, () => {
      kept = kept === index ? null : index;
      buttons.forEach((other, i) => {
        other.setAttribute("aria-pressed", String(kept === i));
      });
      scene.highlight(kept ?? index);
    });
    button.setAttribute("aria-pressed", "false");
    if (note !== "") {
      button.append(create("small", "", note));
    }
    for (const [enter, leave] of [["focus", "blur"], ["pointerenter", "pointerleave"]] as const) {
      button.addEventListener(enter, () => {
        scene.highlight(index);
      });
      button.addEventListener(leave, () => {
        scene.highlight(kept);
      });
    }
    buttons.push(button);
    list.append(create("li", "", button));
  });
  const count = scene.obstacles.length;
  return create("details", "obstacles", create("summary", "", `Obstacles (${String(count)})`), list);
}

/** Where the robot can be put beside its motion: configurations that were looked at, and what was found there. */
export function createInspectionChoice(
  document: Pick<PlanDocument, "inspections" | "joint_names" | "path" | "stages">,
  scene: SceneView,
  playback: Playback,
): HTMLElement | undefined {
  const hasMotion = document.path.length > 0;
  const inspections = document.inspections.filter(({ what }) => !hasMotion || what === "fault");
  if (inspections.length === 0) {
    return undefined;
  }
  const findings = create("p", "findings");
  findings.setAttribute("role", "status");
  const show = (inspection: Inspection | null): void => {
    playback.playing = false;
    scene.show(inspection);
    findings.textContent = inspection ? describe(inspection, document.joint_names) : "";
  };
  const places = [...(hasMotion ? [null] : []), ...inspections];
  // Where a line is blocked says more than one of the many configurations that a goal was tried in.
  const fault = places.find((place) => place?.what === "fault" && isAmiss(place)) ?? places.find(isAmiss);
  const first = hasMotion || !fault ? 0 : places.indexOf(fault);
  const { element, press } = createChoice(
    "Robot at",
    places.map((place) => ({ label: place ? labelOf(document, place) : "Motion", choose: () => { show(place); } })),
    first,
  );
  show(places[first] ?? null);
  if (hasMotion) {
    // Who plays or moves the time wants to see the motion.
    playback.onChange(() => {
      press(0);
      scene.show(null);
      findings.textContent = "";
    });
  }
  return create("div", "inspections", create("span", "", "Robot at"), element, findings);
}

function isAmiss(inspection: Inspection | null): boolean {
  return inspection !== null && inspection.contacts.length + inspection.limits.length > 0;
}

function labelOf(document: Pick<PlanDocument, "stages">, inspection: Inspection): string {
  return titleOf(document, inspection) + (isAmiss(inspection) && inspection.what !== "fault" ? ", not valid" : "");
}

function describe(inspection: Inspection, jointNames: string[]): string {
  const limits = inspection.limits.map(({ coordinate, value, lower, upper }) => {
    const name = jointNames[coordinate] ?? `coordinate ${String(coordinate + 1)}`;
    return `${name} is at ${formatNumber(value, 4)}, beyond its limits ${formatNumber(lower, 4)} to ${formatNumber(upper, 4)}`;
  });
  const texts = [...describeContacts(inspection.contacts, Infinity).map(({ text }) => text), ...limits];
  return texts.length > 0 ? `${texts.join("; ")}.` : "Nothing touches, and all joints are inside their limits.";
}
