// run.mjs FILE.ts [ARGUMENT...]
//
// Bundles a program in TypeScript and runs it in node.
import { spawnSync } from "node:child_process";
import { mkdtempSync, rmSync } from "node:fs";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";
import { build } from "esbuild";

const here = dirname(fileURLToPath(import.meta.url));
const [source, ...args] = process.argv.slice(2);
// Here, so that what is not bundled is found.
const directory = mkdtempSync(join(here, "node_modules", ".kavo-run-"));
try {
  const outfile = join(directory, "program.mjs");
  await build({
    entryPoints: [source],
    outfile,
    bundle: true,
    external: ["playwright-core"],
    platform: "node",
    format: "esm",
    target: "node18",
    logLevel: "warning",
  });
  const { status } = spawnSync(process.execPath, [outfile, ...args], { stdio: "inherit" });
  process.exitCode = status ?? 1;
} finally {
  rmSync(directory, { recursive: true, force: true });
}
