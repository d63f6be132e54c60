// SPDX-License-Identifier: Apache-2.0
// What the tests of the page share: the tool as a child process, a browser, and the page's own words.
import { spawn, spawnSync } from "node:child_process";
import { mkdtempSync } from "node:fs";
import { createRequire } from "node:module";
import { join } from "node:path";

export const [tool, modules, work] = process.argv.slice(2);
export const require = createRequire(join(modules, "package.json"));

export function expect(condition, what) {
  if (!condition) throw new Error(`not so: ${what}`);
}

/** Waits until `read` gives something, at most so many seconds. */
export async function until(read, what, seconds = 60) {
  const end = Date.now() + seconds * 1000;
  for (;;) {
    const value = await read();
    if (value) return value;
    if (Date.now() > end) throw new Error(`in vain waited for: ${what}`);
    await new Promise((done) => setTimeout(done, 20));
  }
}

export function orva(...args) {
  const run = spawnSync(tool, args, { encoding: "utf8", cwd: work });
  if (run.status !== 0) throw new Error(`orva ${args.join(" ")}: ${run.stderr}`);
}

/** orva in the background. */
export class Orva {
  constructor(...args) {
    this.errors = "";
    this.child = spawn(tool, args, { cwd: work, stdio: ["ignore", "ignore", "pipe"] });
    this.child.stderr.setEncoding("utf8").on("data", (text) => (this.errors += text));
    this.ended = new Promise((done) => this.child.on("exit", (code) => done(code)));
  }
  /** The address of the page, when it is served. */
  async address() {
    const read = () => this.errors.match(/the page is at (\S+)/)?.[1];
    return until(() => read() ?? (this.child.exitCode !== null && Promise.reject(new Error(this.errors))), "an address");
  }
  async end() {
    this.child.kill("SIGTERM");
    return this.ended;
  }
}

export async function browser() {
  const { chromium } = require("playwright-core");
  const context = await chromium.launchPersistentContext(mkdtempSync(join(work, "profile-")), {
    executablePath: "/usr/bin/chromium",
    headless: true,
    viewport: { width: 1280, height: 800 },
    colorScheme: "dark",
    args: [
      "--no-sandbox", "--use-angle=swiftshader", "--enable-unsafe-swiftshader", "--disable-background-networking",
      "--no-first-run", "--disable-component-update", "--disable-sync", "--disable-quic",
    ],
  });
  const page = context.pages()[0] ?? (await context.newPage());
  const faults = [];
  const hosts = new Set();
  page.on("console", (message) => ["error", "warning"].includes(message.type()) && faults.push(message.text()));
  page.on("pageerror", (error) => faults.push(error.message));
  page.on("request", (request) => /^https?:/.test(request.url()) && hosts.add(new URL(request.url()).host));
  page.on("websocket", (socket) => hosts.add(new URL(socket.url()).host));
  const said = (name) => page.evaluate((key) => document.documentElement.dataset[key], name);
  const shows = (frame) => until(async () => (await said("frame")) === String(frame), `frame ${frame}`);
  return { context, page, faults, hosts, said, shows };
}
