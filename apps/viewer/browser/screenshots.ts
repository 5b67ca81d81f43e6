// screenshots.ts <directory>
//
// Makes the pictures of the page that the documentation shows.
import { join } from "node:path";
import { Harness } from "./harness";

const [directory = "."] = process.argv.slice(2);
const harness = new Harness();
const start = ["--start", "-1.2,0.5,0,-1.9,0,1.5708,0.7854"];
const shelf = ["plan", "--robot", "franka", "--scene", "examples/scene.yaml", ...start];

interface Picture {
  name: string;
  args: string[];
  status?: number;
  width: number;
  height: number;
  dark?: boolean;
  // Of the way through the motion, in presses of a key that goes a hundredth of it.
  presses?: number;
}

const pictures: Picture[] = [
  {
    name: "plan",
    args: [...shelf, "--goal", "0,0.05,0,-1.815,0,3.436,0.7854", "--trajectory", harness.file("plan.csv")],
    width: 1440,
    height: 900,
    presses: 62,
  },
  {
    name: "failed",
    args: [...shelf, "--goal", "0,0.5,0,-1.815,0,3.436,0.7854"],
    status: 1,
    width: 1440,
    height: 900,
    dark: true,
  },
];

try {
  for (const { name, args, status = 0, presses = 0, ...look } of pictures) {
    harness.kavo([...args, "--html", harness.file(`${name}.html`)], status);
    const { page, complaints } = await harness.open(`${name}.html`, look);
    if (complaints.length > 0) throw new Error(complaints.join("\n"));
    await page.locator("canvas").first().waitFor();
    for (let i = 0; i < presses; ++i) await page.keyboard.press("ArrowRight");
    await page.waitForTimeout(1000);
    const file = join(directory, `${name}.png`);
    await page.screenshot({ path: file });
    console.log(file);
  }
} finally {
  await harness.close();
}
