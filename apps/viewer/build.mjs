// build.mjs <out.cpp> [<out.d>]
//
// Bundles the page of a plan and writes it as a C++ source: one HTML text in three pieces, between which the program puts the
// title and the document. Without arguments it writes dist/page.html with the two places marked, to look at. Equal inputs
// give equal bytes. <out.d> gets what the source was made from, in the words of make.
import { createHash } from "node:crypto";
import { existsSync, mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { dirname, join, relative, resolve } from "node:path";
import { fileURLToPath } from "node:url";
import { build } from "esbuild";

const here = dirname(fileURLToPath(import.meta.url));

async function bundle() {
  const result = await build({
    absWorkingDir: here,
    entryPoints: ["src/main.ts", "src/style.css"],
    outdir: "dist",
    bundle: true,
    minify: true,
    charset: "ascii",
    format: "iife",
    target: ["es2022"],
    legalComments: "none",
    metafile: true,
    write: false,
    logLevel: "warning",
  });
  const text = (extension) => result.outputFiles.find((file) => file.path.endsWith(extension)).text.trim();
  return { script: text(".js"), style: text(".css"), inputs: Object.keys(result.metafile.inputs).sort() };
}

// The licences of the packages that are in the bundle, which have to go with it.
function licences(inputs) {
  const packages = new Set();
  for (const input of inputs) {
    const found = /^(?:.*\/)?node_modules\/((?:@[^/]+\/)?[^/]+)\//.exec(input);
    if (found) packages.add(found[1]);
  }
  return [...packages].sort().map((name) => {
    const directory = join(here, "node_modules", name);
    const { version } = JSON.parse(readFileSync(join(directory, "package.json"), "utf8"));
    const text = readFileSync(join(directory, "LICENSE"), "utf8").trim();
    if (text.includes("*/")) throw new Error(`the licence of ${name} would end its comment`);
    return `/*! ${name} ${version}\n${text}\n*/\n`;
  });
}

// What stands between <script> or <style> and its end has to be what the browser hashes.
function checked(element, text) {
  const bad = new RegExp(`</${element}|<!--|\r`, "i").exec(text);
  if (bad) throw new Error(`the bundle contains ${JSON.stringify(bad[0])}, which ends or changes a <${element}>`);
  return text;
}

const hash = (text) => `'sha256-${createHash("sha256").update(text).digest("base64")}'`;

// The page in three pieces.
function page(script, style) {
  const policy = [
    "default-src 'none'",
    `script-src ${hash(script)}`,
    `style-src ${hash(style)}`,
    "img-src data: blob:",
    "base-uri 'none'",
    "form-action 'none'",
  ].join("; ");
  return [
    `<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="${policy}">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<link rel="icon" href="data:,">
<title>`,
    `</title>
<style>${style}</style>
</head>
<body>
<noscript>This page draws a plan with JavaScript, which is switched off here.</noscript>
<script type="application/json" id="document">`,
    `</script>
<script>${script}</script>
</body>
</html>
`,
  ];
}

// A C++ string literal of the bytes of a text, in lines.
function literal(text) {
  const escapes = new Map([
    [0x0a, "\\n"],
    [0x22, '\\"'],
    // No trigraphs.
    [0x3f, "\\?"],
    [0x5c, "\\\\"],
  ]);
  const lines = [];
  let line = "";
  for (const byte of Buffer.from(text, "utf8")) {
    const plain = byte >= 0x20 && byte < 0x7f;
    line += escapes.get(byte) ?? (plain ? String.fromCharCode(byte) : `\\${byte.toString(8).padStart(3, "0")}`);
    if (byte === 0x0a || line.length >= 2000) {
      lines.push(`"${line}"`);
      line = "";
    }
  }
  lines.push(`"${line}"`);
  return lines.join("\n");
}

function source(pieces) {
  const names = ["kBeforeTitle", "kBeforeDocument", "kAfterDocument"];
  const constants = pieces.map((piece, i) => `constexpr char ${names[i]}[] =\n${literal(piece)};\n`);
  return `// Written by apps/viewer/build.mjs.
#include "apps/kavo/page_template.h"

#include <cstddef>

#pragma GCC diagnostic ignored "-Woverlength-strings"

namespace kavo::command {

namespace {

${constants.join("\n")}
template <std::size_t kSize>
constexpr std::string_view Text(const char (&text)[kSize]) {
  return {text, kSize - 1};
}

constexpr PageTemplate kTemplate = {${names.map((name) => `Text(${name})`).join(", ")}};

}  // namespace

const PageTemplate* FindPageTemplate() { return &kTemplate; }

}  // namespace kavo::command
`;
}

function write(name, text) {
  mkdirSync(dirname(resolve(name)), { recursive: true });
  writeFileSync(name, text);
}

const [out, depfile] = process.argv.slice(2);
const { script, style, inputs } = await bundle();
const pieces = page(checked("script", licences(inputs).join("") + script), checked("style", style));
if (out === undefined) {
  const name = join(here, "dist", "page.html");
  write(name, pieces[0] + "TITLE" + pieces[1] + "DOCUMENT" + pieces[2]);
  console.log(`${relative(process.cwd(), name)}: ${pieces.join("").length} bytes`);
} else {
  write(out, source(pieces));
}
if (depfile !== undefined) {
  const made = [...inputs, "build.mjs", "package-lock.json"].map((name) => join(here, name)).filter((name) => existsSync(name));
  const escaped = [out, ...made].map((name) => name.replaceAll(" ", "\\ "));
  write(depfile, `${escaped[0]}: \\\n  ${escaped.slice(1).join(" \\\n  ")}\n`);
}
