import { createBenchPage } from "./bench_page";
import type { BenchDocument, PlanDocument } from "./document";
import { create } from "./dom";
import { createPlanPage } from "./plan_page";

// Another version of the program may have written it.
interface AnyDocument {
  format?: unknown;
  format_version?: unknown;
}

function createPage(text: string): HTMLElement {
  const parsed = JSON.parse(text) as AnyDocument;
  if (parsed.format_version !== 1) {
    throw new Error(`It shows documents of format version 1, not of ${String(parsed.format_version)}.`);
  }
  if (parsed.format === "kavo/plan") {
    return createPlanPage(parsed as PlanDocument);
  }
  if (parsed.format === "kavo/bench") {
    return createBenchPage(parsed as BenchDocument);
  }
  throw new Error(`It does not know documents of format '${String(parsed.format)}'.`);
}

function show(): void {
  try {
    document.body.append(createPage(document.getElementById("document")?.textContent ?? ""));
  } catch (error) {
    const text = error instanceof Error ? error.message : String(error);
    document.body.append(create("p", "failure", `This page cannot be shown. ${text}`));
    throw error;
  }
}

show();
