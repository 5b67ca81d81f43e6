// Bundles the unit tests and runs them in node.
import { spawnSync } from "node:child_process";
import { mkdtempSync, readdirSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";
import { build } from "esbuild";

const here = dirname(fileURLToPath(import.meta.url));
const sources = readdirSync(join(here, "src"), { recursive: true })
  .filter((name) => name.endsWith(".test.ts"))
  .map((name) => join(here, "src", name));
if (sources.length === 0) {
  console.error("no *.test.ts in src");
  process.exit(1);
}
const directory = mkdtempSync(join(tmpdir(), "kavo-viewer-"));
try {
  await build({
    entryPoints: sources,
    outdir: directory,
    outbase: join(here, "src"),
    outExtension: { ".js": ".mjs" },
    bundle: true,
    platform: "node",
    format: "esm",
    target: "node18",
    sourcemap: "inline",
    logLevel: "warning",
  });
  const bundles = readdirSync(directory, { recursive: true })
    .filter((name) => name.endsWith(".test.mjs"))
    .map((name) => join(directory, name));
  const { status } = spawnSync(process.execPath, ["--enable-source-maps", "--test", ...bundles], { stdio: "inherit" });
  process.exitCode = status ?? 1;
} finally {
  rmSync(directory, { recursive: true, force: true });
}
