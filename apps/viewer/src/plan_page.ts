import type { PlanDocument } from "./document";
import { create } from "./dom";
import { createMotion } from "./motion";
import { createPanel } from "./panel";
import { Playback } from "./playback";
import { createPlots } from "./plots";
import { createSceneView } from "./scene/view";
import { createCameraButtons, createInspectionChoice, createObstacleList, createSwitches } from "./switches";
import { createTransport, listenToKeys } from "./transport";

/**
 * The page of one plan: scene, controls, plots and panel.
 *
 * @param leave Ends what goes on outside of the page's element.
 */
export function createPlanPage(plan: PlanDocument, leave = new AbortController().signal): HTMLElement {
  const motion = createMotion(plan);
  const playback = new Playback(motion.duration);
  const scene = createSceneView(plan, motion, playback);
  leave.addEventListener("abort", () => {
    playback.playing = false;
    scene.dispose();
  });

  const stage = create("section", "stage", scene.element);
  stage.setAttribute("aria-label", "Scene");
  if (scene.layers.length > 0) {
    stage.append(createCameraButtons(scene));
  }
  if (scene.obstacles.length > 0) {
    stage.append(createObstacleList(scene));
  }
  const main = create("main", "", stage);
  if (motion.duration > 0) {
    main.append(createTransport(motion, playback));
    listenToKeys(playback, leave);
    playFrames(playback);
  }
  const inspections = createInspectionChoice(plan, scene, playback);
  if (inspections) {
    main.append(inspections);
  }
  if (scene.layers.length > 0) {
    main.append(createSwitches(scene));
  }
  main.append(createPlots(plan, motion, playback));
  return create("div", "plan-page", createHeader(plan), main, createPanel(plan));
}

function createHeader(plan: PlanDocument): HTMLElement {
  const passed = plan.check?.passed;
  const verdict = !plan.found
    ? `No path: ${plan.status}`
    : passed === undefined
      ? "Path found, not checked"
      : passed
        ? "Path found, passed the check"
        : "Path found, failed the check";
  const kind = !plan.found || passed === false ? "bad" : passed ? "good" : "open";
  return create("header", "", create("h1", "", `Plan for ${plan.robot}`), create("p", `badge badge-${kind}`, verdict));
}

// The clock runs while the motion is played, and only then.
function playFrames(playback: Playback): void {
  let last: number | undefined;
  const step = (now: number): void => {
    playback.tick(last === undefined ? 0 : (now - last) / 1000);
    last = playback.playing ? now : undefined;
    if (playback.playing) {
      requestAnimationFrame(step);
    } else {
      isRunning = false;
    }
  };
  let isRunning = false;
  playback.onChange(() => {
    if (playback.playing && !isRunning) {
      isRunning = true;
      requestAnimationFrame(step);
    }
  });
}
