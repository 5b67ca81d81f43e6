// Pages as the command writes them, in a real browser.
import { spawnSync } from "node:child_process";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { pathToFileURL } from "node:url";
import { type Browser, type Page, chromium } from "playwright-core";

function fromEnvironment(name: string): string {
  const value = process.env[name];
  if (value === undefined || value === "") throw new Error(`${name} is not set`);
  return value;
}

const kavo = fromEnvironment("KAVO_COMMAND");
const sourceDirectory = fromEnvironment("KAVO_SOURCE_DIR");

// Draws without a graphics card, and leaves the network alone.
const chromiumOptions = [
  "--no-sandbox",
  "--disable-quic",
  "--no-first-run",
  "--disable-background-networking",
  "--disable-component-update",
  "--disable-sync",
  "--use-angle=swiftshader",
  "--enable-unsafe-swiftshader",
];

export interface Opened {
  page: Page;
  // What the browser complained of: errors of scripts, refusals by the policy.
  complaints: string[];
}

export class Harness {
  readonly folder = mkdtempSync(join(tmpdir(), "kavo-browser-"));
  #browser: Browser | undefined;

  file(name: string): string {
    return join(this.folder, name);
  }

  // Runs the command at the root of the source tree; its exit status has to be the one expected.
  kavo(args: string[], status = 0): string {
    const run = spawnSync(kavo, args, {
      cwd: sourceDirectory,
      encoding: "utf8",
      env: { ...process.env, XDG_CACHE_HOME: this.folder },
    });
    if (run.status !== status) {
      throw new Error(`kavo ${args.join(" ")} ended with ${String(run.status)}: ${run.stdout}${run.stderr}`);
    }
    return run.stdout;
  }

  async blank(options: { width?: number; height?: number; dark?: boolean } = {}): Promise<Opened> {
    this.#browser ??= await chromium.launch({ executablePath: fromEnvironment("KAVO_CHROMIUM"), args: chromiumOptions });
    const page = await this.#browser.newPage({
      viewport: { width: options.width ?? 1280, height: options.height ?? 900 },
      colorScheme: options.dark === true ? "dark" : "light",
      reducedMotion: "reduce",
    });
    const complaints: string[] = [];
    page.on("console", (message) => {
      if (message.type() === "error") complaints.push(message.text());
    });
    page.on("pageerror", (error) => complaints.push(error.message));
    page.on("request", (request) => {
      if (!/^(file|data|blob):/.test(request.url())) complaints.push(`asks for ${request.url()}`);
    });
    return { page, complaints };
  }

  async open(name: string, options: { width?: number; height?: number; dark?: boolean } = {}): Promise<Opened> {
    const opened = await this.blank(options);
    await opened.page.goto(pathToFileURL(this.file(name)).href);
    return opened;
  }

  async close(): Promise<void> {
    await this.#browser?.close();
    rmSync(this.folder, { recursive: true, force: true });
  }
}
