// test.mjs [browser]
//
// Bundles the tests in src, or those in browser, and runs them in node.
import { spawnSync } from "node:child_process";
import { mkdtempSync, readdirSync, rmSync } from "node:fs";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";
import { build } from "esbuild";

const here = dirname(fileURLToPath(import.meta.url));
const root = join(here, process.argv[2] ?? "src");
const sources = readdirSync(root, { recursive: true })
  .filter((name) => name.endsWith(".test.ts"))
  .map((name) => join(root, name));
if (sources.length === 0) {
  console.error(`no *.test.ts in ${root}`);
  process.exit(1);
}
// Here, so that what is not bundled is found.
const directory = mkdtempSync(join(here, "node_modules", ".kavo-tests-"));
try {
  await build({
    entryPoints: sources,
    outdir: directory,
    outbase: root,
    outExtension: { ".js": ".mjs" },
    bundle: true,
    external: ["playwright-core"],
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
