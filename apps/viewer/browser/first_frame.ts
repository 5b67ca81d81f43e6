// first_frame.ts
//
// How long a page takes from being asked for to its first picture, drawn without a graphics card, and how large it is: a plan of
// 1000 configurations with a trajectory of 1000 samples and search trees.
import { readFileSync, statSync, writeFileSync } from "node:fs";
import type { Configuration, PlanDocument } from "../src/document";
import { Harness } from "./harness";

const numConfigurations = 1000;
const numPages = 7;

function divided(path: Configuration[]): Configuration[] {
  return Array.from({ length: numConfigurations }, (_, i) => {
    const at = (i / (numConfigurations - 1)) * (path.length - 1);
    const segment = Math.min(Math.floor(at), path.length - 2);
    const [from, to] = [path[segment] ?? [], path[segment + 1] ?? []];
    return from.map((value, k) => value + (at - segment) * ((to[k] ?? value) - value));
  });
}

const harness = new Harness();
try {
  const [json, page] = [harness.file("plan.json"), harness.file("plan.html")];
  harness.kavo([
    "plan", "--robot", "franka", "--scene", "examples/scene.yaml", "--start", "-1.2,0.5,0,-1.9,0,1.5708,0.7854",
    "--goal", "0,0.05,0,-1.815,0,3.436,0.7854", "--planner", "rrt_connect", "--set", "step_size=0.02",
    "--trajectory", harness.file("plan.csv"), "--period", "0.001", "--trees", "2000", "--json", json,
  ]);
  const plan = JSON.parse(readFileSync(json, "utf8")) as PlanDocument;
  plan.path = divided(plan.path);
  writeFileSync(json, JSON.stringify(plan));
  harness.kavo(["view", json, "-o", page]);
  const numSpheres = plan.robot_model.frames.reduce((sum, { spheres }) => sum + spheres.length, 0);
  const numNodes = plan.searches.flatMap(({ trees }) => trees).reduce((sum, { nodes }) => sum + nodes.length, 0);
  console.log(
    `${String(plan.path.length)} configurations, ${String(plan.trajectory?.samples.times.length ?? 0)} samples, ` +
      `${String(numSpheres)} spheres, ${String(numNodes)} nodes: ${(statSync(page).size / 1e6).toFixed(2)} MB`,
  );
  // Of the scripts, which have drawn the scene by then; and of the browser, which shows what the graphics made of it.
  for (const [what, entry] of [
    ["scene drawn", "first-frame"],
    ["first picture", "first-contentful-paint"],
  ] as const) {
    const times: number[] = [];
    for (let i = 0; i < numPages; ++i) {
      const { page: opened } = await harness.open("plan.html");
      await opened.waitForFunction((name) => performance.getEntriesByName(name).length > 0, entry);
      times.push(await opened.evaluate((name) => performance.getEntriesByName(name)[0]?.startTime ?? NaN, entry));
      await opened.close();
    }
    times.sort((x, y) => x - y);
    const [least, middle] = [times[0] ?? NaN, times[numPages >> 1] ?? NaN];
    console.log(
      `${what} after ${least.toFixed(0)} ms at best, ${middle.toFixed(0)} ms in the median of ${String(numPages)}`,
    );
  }
} finally {
  await harness.close();
}
