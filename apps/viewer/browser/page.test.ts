import assert from "node:assert/strict";
import { readFileSync, writeFileSync } from "node:fs";
import { after, test } from "node:test";
import type { Page } from "playwright-core";
import type { BenchDocument, PlanDocument } from "../src/document";
import { Harness } from "./harness";

const harness = new Harness();
after(() => harness.close());

const intoShelf = [
  "plan", "--robot", "franka", "--scene", "examples/scene.yaml", "--start", "-1.2,0.5,0,-1.9,0,1.5708,0.7854",
];
const goal = ["--goal", "0,0.05,0,-1.815,0,3.436,0.7854"];

function planned(name: string, args: string[], status = 0): PlanDocument {
  harness.kavo([...args, "--html", harness.file(`${name}.html`), "--json", harness.file(`${name}.json`)], status);
  return JSON.parse(readFileSync(harness.file(`${name}.json`), "utf8")) as PlanDocument;
}

// The colours of a picture of the scene: how many there are, of every fourth point in each direction.
async function coloursOf(page: Page): Promise<number> {
  const picture = await page.locator("canvas").first().screenshot();
  const { page: plain } = await harness.blank();
  const count = await plain.evaluate(async (data) => {
    const image = new Image();
    image.src = `data:image/png;base64,${data}`;
    await image.decode();
    const canvas = document.createElement("canvas");
    [canvas.width, canvas.height] = [image.width / 4, image.height / 4];
    const context = canvas.getContext("2d");
    context?.drawImage(image, 0, 0, canvas.width, canvas.height);
    const bytes = context?.getImageData(0, 0, canvas.width, canvas.height).data ?? [];
    const colours = new Set<number>();
    for (let i = 0; i < bytes.length; i += 4) {
      colours.add(((bytes[i] ?? 0) << 16) | ((bytes[i + 1] ?? 0) << 8) | (bytes[i + 2] ?? 0));
    }
    return colours.size;
  }, picture.toString("base64"));
  await plain.close();
  return count;
}

async function shownPositions(page: Page, names: string[]): Promise<number[]> {
  return Promise.all(
    names.map(async (name) =>
      Number(await page.locator(`[data-joint="${name}"][data-quantity="position"]`).getAttribute("data-value")),
    ),
  );
}

// Every control as those see it who do not see the page: its role and its name.
async function controlsOf(page: Page): Promise<{ role: string; name: string }[]> {
  const session = await page.context().newCDPSession(page);
  const { nodes } = await session.send("Accessibility.getFullAXTree");
  const roles = new Set(["button", "slider", "checkbox", "combobox", "link", "DisclosureTriangle", "radio", "textbox"]);
  return nodes
    .filter((node) => !node.ignored && roles.has(String(node.role?.value)))
    .map((node) => ({ role: String(node.role?.value), name: String(node.name?.value ?? "").trim() }));
}

test("a plan is drawn, and played by the keyboard alone to the very configuration that it ends in", async () => {
  const plan = planned("found", [...intoShelf, ...goal, "--trajectory", harness.file("found.csv")]);
  const { page, complaints } = await harness.open("found.html");
  await page.getByText("A path was found").waitFor();
  assert.ok((await coloursOf(page)) > 500);

  assert.deepEqual(await shownPositions(page, plan.joint_names), plan.path[0]);
  await page.keyboard.press("End");
  assert.deepEqual(await shownPositions(page, plan.joint_names), plan.path.at(-1));
  await page.keyboard.press("ArrowLeft");
  assert.notDeepEqual(await shownPositions(page, plan.joint_names), plan.path.at(-1));
  await page.keyboard.press("Home");
  await page.keyboard.press(" ");
  await page.getByRole("button", { name: "Pause" }).waitFor();
  const first = page.locator('[data-joint="joint1"][data-quantity="position"]');
  await first.and(page.locator(':not([data-value="-1.2"])')).waitFor();
  await page.keyboard.press(" ");
  await page.getByRole("button", { name: "Play" }).waitFor();
  const paused = await first.getAttribute("data-value");
  await page.waitForTimeout(200);
  assert.equal(await first.getAttribute("data-value"), paused);

  const nameless = (await controlsOf(page)).filter(({ name }) => name === "");
  assert.deepEqual(nameless, []);
  const names = (await controlsOf(page)).map(({ role, name }) => `${role}: ${name}`);
  for (const name of ["button: Play", "slider: Time", "button: Loop", "button: Reset view"]) {
    assert.ok(names.includes(name), `${name} is not among ${names.join(", ")}`);
  }
  assert.deepEqual(complaints, []);
});

test("search trees and the meshes of links are drawn when they are asked for", async () => {
  const own = "examples/own_robot";
  const plan = planned("layers", [
    "plan", "--robot", `${own}/arm.urdf`, "--srdf", `${own}/arm.srdf`, "--group", "arm", "--scene", `${own}/scene.yaml`,
    "--request", `${own}/request.yaml`, "--planner", "rrt_connect",
  ]);
  assert.ok(plan.searches.flatMap(({ trees }) => trees).every(({ nodes }) => nodes.length > 10));
  const { page, complaints } = await harness.open("layers.html");
  const picture = async (): Promise<string> => {
    await page.waitForTimeout(500);
    return (await page.locator("canvas").first().screenshot()).toString("base64");
  };
  const pictures = [await picture()];
  assert.equal(await picture(), pictures[0]);
  for (const control of [page.getByLabel("Start tree"), page.getByLabel("Goal tree"), page.getByRole("button", { name: "Meshes" })]) {
    await control.click();
    pictures.push(await picture());
  }
  assert.equal(new Set(pictures).size, 4);
  assert.deepEqual(complaints, []);
});

test("a plan that fails says and marks what is in the way", async () => {
  const plan = planned("failed", [...intoShelf, "--goal", "0,0.5,0,-1.815,0,3.436,0.7854"], 1);
  const obstacle = plan.inspections.flatMap(({ contacts }) => contacts)[0]?.obstacle ?? "";
  assert.notEqual(obstacle, "");
  const { page, complaints } = await harness.open("failed.html");
  await page.locator(".label-contact", { hasText: obstacle }).first().waitFor();
  await page.getByLabel("Result").getByText(obstacle).first().waitFor();
  await page.getByText(/No path/).first().waitFor();
  assert.ok((await coloursOf(page)) > 500);
  assert.deepEqual(complaints, []);
});

test("names from files are shown as they are, and do nothing", async () => {
  const names = ["<script>alert(1)</script>", "</script><img src=x onerror=alert(2)>"];
  const objects = names.map((id, i) => ({
    id,
    primitives: [{ type: "box", dimensions: [0.1, 0.1, 0.1] }],
    primitive_poses: [{ position: [0.6, i - 0.5, 0.3], orientation: [0, 0, 0, 1] }],
  }));
  // JSON is YAML.
  const scene = harness.file("hostile.yaml");
  writeFileSync(scene, JSON.stringify({ name: "hostile", world: { collision_objects: objects } }));
  planned("hostile", ["plan", "--robot", "franka", "--scene", scene, "--start", "default", ...goal]);
  const { page, complaints } = await harness.open("hostile.html");
  const dialogs: string[] = [];
  page.on("dialog", (dialog) => {
    dialogs.push(dialog.message());
    void dialog.dismiss();
  });
  await page.getByText("Obstacles (2)").click();
  for (const name of names) {
    await page.getByRole("button", { name }).waitFor();
  }
  assert.deepEqual([dialogs, complaints, await page.locator("img").count()], [[], [], 0]);
});

test("nothing is cut off at the width of a phone and of a wide screen", async () => {
  planned("wide", [...intoShelf, ...goal]);
  for (const [width, height, dark] of [[390, 800, true], [1600, 900, false]] as const) {
    const { page, complaints } = await harness.open("wide.html", { width, height, dark });
    const scene = await page.locator("canvas").first().boundingBox();
    assert.ok(scene !== null && scene.height > 0.35 * height && scene.width > 0.5 * width, JSON.stringify(scene));
    assert.ok((await coloursOf(page)) > 500);
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), width);
    for (const button of await page.getByRole("button").all()) {
      const box = await button.boundingBox();
      const size = `${(await button.textContent()) ?? ""} at ${JSON.stringify(box)}, ${String(width)} wide`;
      assert.ok(box === null || (box.x >= 0 && box.x + box.width <= width), size);
    }
    assert.deepEqual(complaints, []);
  }
});

test("a benchmark opens each of its plans and comes back", async () => {
  const own = "examples/own_robot";
  harness.kavo([
    "bench", "--robot", `${own}/arm.urdf`, "--srdf", `${own}/arm.srdf`, "--group", "arm", "--problems", own,
    "--compare", "bi_rrt,rrt_connect", "--keep-plans", "--json", harness.file("bench.json"),
  ]);
  harness.kavo(["view", harness.file("bench.json"), "-o", harness.file("bench.html")]);
  const bench = JSON.parse(readFileSync(harness.file("bench.json"), "utf8")) as BenchDocument;
  const { page, complaints } = await harness.open("bench.html");
  await page.getByRole("columnheader", { name: "rrt_connect" }).first().waitFor();
  await page.locator('[data-run="0"]').click();
  await page.locator("canvas").first().waitFor();
  await page.keyboard.press("End");
  assert.deepEqual(await shownPositions(page, bench.joint_names), bench.runs[0]?.path?.at(-1));
  await page.goBack();
  await page.locator('[data-run="1"]').waitFor();
  assert.deepEqual(complaints, []);
});
