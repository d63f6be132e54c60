// SPDX-License-Identifier: Apache-2.0
// Makes one HTML file of the page and writes it, compressed, as a C++ source.
// Usage: node build.mjs FOLDER_WITH_NODE_MODULES OUTPUT.cpp
import { createHash } from "node:crypto";
import { readFileSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";
import { gzipSync } from "node:zlib";

const [modules, output] = process.argv.slice(2);
const source = join(dirname(fileURLToPath(import.meta.url)), "src");
const require = createRequire(join(modules, "package.json"));
const esbuild = require("esbuild");

const { outputFiles, metafile } = await esbuild.build({
  entryPoints: [join(source, "main.ts")],
  bundle: true,
  minify: true,
  charset: "utf8",
  format: "iife",
  target: "es2020",
  legalComments: "inline",
  nodePaths: [join(modules, "node_modules")],
  outdir: "unused",
  write: false,
  metafile: true,
  logLevel: "warning",
});
const built = (ending) => outputFiles.find((file) => file.path.endsWith(ending)).text;
// Inside an HTML file only this would end the script early.
const script = built(".js").replaceAll("</script", "<\\/script");
const style = built(".css");

// Who passes the page on passes on the licenses of what is in it.
const packages = [...new Set(Object.keys(metafile.inputs).flatMap((path) => path.match(/node_modules\/((@[^/]+\/)?[^/]+)/)?.[1] ?? []))].sort();
const licenses = packages.map((name) => `${name}\n\n${readFileSync(join(modules, "node_modules", name, "LICENSE"), "utf8")}`);
const notes = `<!--\n${licenses.join("\n").replaceAll("--", "- -")}-->\n`;

const html = readFileSync(join(source, "index.html"), "utf8")
  .replace("<html", () => `${notes}<html`)
  .replace("/*style*/", () => style)
  .replace("/*script*/", () => script);

// Nothing but this script runs, and nothing is fetched but the stream.
const hash = createHash("sha256").update(script).digest("base64");
const policy = [
  "default-src 'none'",
  `script-src 'sha256-${hash}'`,
  "style-src 'unsafe-inline'",
  "img-src 'self' blob: data:",
  "connect-src 'self'",
  "base-uri 'none'",
  "form-action 'none'",
  "frame-ancestors 'none'",
].join("; ");

const bytes = gzipSync(html, { level: 9 });
const lines = [];
for (let start = 0; start < bytes.length; start += 64) {
  const octal = Array.from(bytes.subarray(start, start + 64), (byte) => "\\" + byte.toString(8).padStart(3, "0"));
  lines.push(`    "${octal.join("")}"`);
}
writeFileSync(
  output,
  `// Made by viewer/build.mjs.
#include "view/page_bundle.h"

namespace orva::view {
namespace {

constexpr char kPage[] =
${lines.join("\n")};

}  // namespace

Page BundledPage() {
  return {{kPage, sizeof kPage - 1}, ${JSON.stringify(policy)}};
}

}  // namespace orva::view
`,
);
console.log(`the page: ${html.length} bytes, ${bytes.length} compressed, with code from ${packages.join(" ")}`);
