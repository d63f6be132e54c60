// SPDX-License-Identifier: Apache-2.0
// The page in a real browser, on recordings. Usage: page.mjs ORVA MODULES WORK_FOLDER
import { copyFileSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { browser, expect, Orva, orva, until, work } from "./lib.mjs";

const frame = 2;
const recording = ["street.pcap", "--model", "TS4B", "--calib", "street.calib"];
orva("simulate", "street.pcap", "--model", "TS4B", "--frames", "5");
orva("replay", ...recording, "--frames", String(frame), "--format", "csv", "--out", "csv");
orva("simulate", "far.pcap", "--model", "TS4B", "--frames", "400");
orva("render", ...recording, "--frames", String(frame), "--color", "distance", "--view", "range", "--out", "rendered");

const { context, page, faults, hosts, said, shows } = await browser();
const look = `#frame=${frame}&theme=dark&colour=distance`;
let server = new Orva("view", ...recording, "--http-port", "0");
const address = await server.address();

/** Mean colour, share of coloured pixels and brightness of 16 x 8 blocks of a part of a picture. */
const statistics = (png, part) =>
  page.evaluate(
    async ([data, [left, top, right, bottom]]) => {
      const image = await createImageBitmap(await new Response(Uint8Array.from(atob(data), (c) => c.charCodeAt(0))).blob());
      const [width, height] = [image.width - left - right, image.height - top - bottom];
      const canvas = new OffscreenCanvas(width, height);
      const drawing = canvas.getContext("2d");
      drawing.drawImage(image, -left, -top);
      const { data: pixels } = drawing.getImageData(0, 0, width, height);
      const mean = [0, 0, 0];
      const blocks = new Array(128).fill(0);
      let coloured = 0;
      for (let i = 0; i < width * height; i++) {
        const rgb = [...pixels.subarray(i * 4, i * 4 + 3)];
        if (Math.max(...rgb) - Math.min(...rgb) < 40) continue; // background, grid and text are grey
        coloured++;
        rgb.forEach((value, c) => (mean[c] += value));
        const block = Math.floor(((i % width) * 16) / width) + 16 * Math.floor((Math.floor(i / width) * 8) / height);
        blocks[block] += rgb[2] - rgb[0]; // near is yellow, far is blue
      }
      return { mean: mean.map((sum) => sum / coloured), share: coloured / (width * height), blocks };
    },
    [png.toString("base64"), part],
  );

const picture = async (selector) => statistics(await page.locator(selector).screenshot(), [0, 0, 0, 0]);
const cloud = () => picture("#cloud");

function correlation(a, b) {
  const mean = (list) => list.reduce((sum, value) => sum + value, 0) / list.length;
  const [ma, mb] = [mean(a), mean(b)];
  const product = (p, q, mp, mq) => p.reduce((sum, value, i) => sum + (value - mp) * (q[i] - mq), 0);
  return product(a, b, ma, mb) / Math.sqrt(product(a, a, ma, ma) * product(b, b, mb, mb));
}

async function draws() {
  await page.goto(address + look);
  await shows(frame);
  expect((await said("points")) === "24576", "a whole TS4B frame is shown");
  // The margins are those of the rendered picture; the page's image has none.
  const rendered = await statistics(readFileSync(join(work, "rendered/frame_0002_range.png")), [76, 104, 152, 56]);
  const shown = await picture("#range-image");
  const alike = correlation(rendered.blocks, shown.blocks);
  console.log(`range image and orva render: correlation ${alike.toFixed(3)}, coloured ${rendered.share.toFixed(2)} and ${shown.share.toFixed(2)}`);
  expect(alike > 0.9, "the range image looks like the rendered one");
  expect(Math.abs(rendered.share - shown.share) < 0.1, "as much of it is coloured");
  const { mean, share } = await cloud();
  const apart = Math.max(...mean.map((value, c) => Math.abs(value - rendered.mean[c])));
  console.log(`cloud: ${(share * 100).toFixed(1)} % coloured, mean colour off by ${apart.toFixed(0)}`);
  expect(share > 0.02 && apart < 70, "the cloud is drawn in the same colours");
}

async function picks() {
  const rows = readFileSync(join(work, "csv/frame_0002.csv"), "utf8").trim().split("\n").slice(1).map((row) => row.split(",").map(Number));
  const picked = () =>
    page.evaluate(() => {
      const list = document.getElementById("values");
      return [list.dataset.index, ...["x", "y", "z", "intensity", "line"].map((name) => list.querySelector(`[data-field=${name}]`)?.dataset.exact)].map(Number);
    });
  for (const [x, y] of [[520, 420], [560, 330], [470, 360]]) {
    await page.mouse.click(x, y);
    // The page's own, rounded values give way to the server's. The digits of the CSV are those of the float.
    const { index } = await until(async () => {
      const [index, ...values] = await picked();
      return rows[index]?.slice(0, 5).every((value, i) => (i < 3 ? Math.fround(value) : value) === values[i]) && { index };
    }, "the coordinates of the CSV");
    await until(() => page.url().includes(`pick=${index}`), "the point in the address");
    expect(!(await page.locator("#image-cursor").isHidden()), "the range image marks it");
    await page.keyboard.press("Escape");
  }
  await page.locator("#range-image").hover({ position: { x: 600, y: 100 } });
  expect((await page.locator(".mark-hovered").count()) === 1, "hovering the range image marks the cloud");
  await page.keyboard.press("m");
  await page.locator("#range-image").click({ position: { x: 600, y: 100 } });
  await page.locator("#range-image").click({ position: { x: 700, y: 110 } });
  expect(/^\d+\.\d{3} m$/.test(await page.locator(".length").textContent()), "a length is measured");
  await page.keyboard.press("Escape");
}

async function worksByKeyboard() {
  const nameless = await page.evaluate(() =>
    [...document.querySelectorAll("button, input, select, canvas[role]")]
      .filter((e) => !(e.ariaLabel || e.getAttribute("aria-label") || e.textContent.trim() || e.labels?.[0]?.textContent.trim()))
      .map((e) => e.id),
  );
  expect(nameless.length === 0, `every control has a name: ${nameless}`);
  await page.keyboard.press("Home");
  await shows(0);
  await page.keyboard.press("ArrowRight");
  await shows(1);
  await page.locator("#seek").focus();
  await page.keyboard.press("ArrowRight");
  await shows(2);
  await page.locator("#cloud").focus();
  await page.keyboard.press("?");
  expect(await page.locator("#help-dialog").isVisible(), "? lists the keys");
  await page.keyboard.press("Escape");
  await page.keyboard.press("3");
  expect((await page.locator("[data-colour=height]").getAttribute("aria-checked")) === "true", "3 colours by height");
  for (let i = 0; i < 60 && !(await page.evaluate(() => document.activeElement?.id === "play")); i++) await page.keyboard.press("Tab");
  await page.keyboard.press("Enter");
  await until(async () => Number(await said("frame")) !== 2, "playing");
  await page.keyboard.press("Enter");
  for (const theme of ["dark", "light"]) {
    if ((await said("theme")) !== theme) await page.locator("#theme").click();
    const worst = await page.evaluate(() => {
      const style = getComputedStyle(document.documentElement);
      const light = (name) => {
        const hex = style.getPropertyValue(name).trim().slice(1);
        const [r, g, b] = [0, 2, 4].map((at) => parseInt(hex.slice(at, at + 2), 16) / 255).map((v) => (v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4));
        return 0.2126 * r + 0.7152 * g + 0.0722 * b;
      };
      const pairs = ["ink", "faded", "warn", "error", "good"].flatMap((text) => ["surface", "raised"].map((on) => [`--${text}`, `--${on}`]));
      return Math.min(...[...pairs, ["--on-accent", "--accent"]].map((pair) => {
        const [a, b] = pair.map(light).sort((p, q) => q - p);
        return (a + 0.05) / (b + 0.05);
      }));
    });
    console.log(`${theme}: least contrast of text ${worst.toFixed(2)}`);
    expect(worst >= 4.5, `texts stand out in the ${theme} theme`);
  }
}

/** Fingers on the cloud: each a list of places, from press to release. */
async function touches(...fingers) {
  const session = await context.newCDPSession(page);
  const send = (type, step) =>
    session.send("Input.dispatchTouchEvent", { type, touchPoints: step === null ? [] : fingers.map((path, id) => ({ x: path[step][0], y: path[step][1], id })) });
  await send("touchStart", 0);
  for (let step = 1; step < fingers[0].length; step++) await send("touchMove", step);
  await send("touchEnd", null);
  await session.detach();
}

async function takesFingers() {
  const camera = () => page.url().match(/camera=([^&]*)/)?.[1].split(/[^-.\d]+/).map(Number);
  const moved = async (from) => until(() => String(camera()) !== String(from) && camera(), "another camera");
  const reach = ([x, y, z, tx, ty, tz]) => Math.hypot(x - tx, y - ty, z - tz);
  await page.keyboard.press("b");
  const above = await until(() => Math.round(camera()?.[2]) === 70 && camera(), "the view from above");
  await touches([[400, 300], [430, 320], [480, 340]]);
  const turned = await moved(above);
  expect(Math.abs(reach(turned) - reach(above)) < 1, "a finger orbits");
  await touches([[380, 300], [340, 300], [300, 300]], [[420, 300], [460, 300], [500, 300]]);
  const near = await moved(turned);
  expect(reach(near) < 0.8 * reach(turned), "two fingers apart come closer");
  await page.keyboard.press("v");
  await touches([[520, 420]]);
  await until(() => page.url().includes("pick="), "a tap to pick a point");
  await page.keyboard.press("Escape");
}

/** Milliseconds that a picture takes, here and now. */
const imageTime = () =>
  page.evaluate(async () => {
    const start = performance.now();
    for (let i = 0; i < 10; i++) {
      document.dispatchEvent(new KeyboardEvent("keydown", { key: "a" })); // turns a little: all is drawn anew
      await new Promise((done) => requestAnimationFrame(done));
    }
    return (performance.now() - start) / 10;
  });

async function drawsWhatIsAskedFor() {
  const before = await cloud();
  await page.keyboard.press("o");
  const within = await until(async () => { const now = await cloud(); return now.share > before.share + 0.0005 && now; }, "the field of view");
  const [download] = await Promise.all([page.waitForEvent("download"), page.keyboard.press("c")]);
  expect(/^orva-frame-\d+\.png$/.test(download.suggestedFilename()), "a screenshot has the frame's number");
  const saved = await statistics(readFileSync(await download.path()), [0, 0, 0, 0]);
  expect(correlation(saved.blocks, within.blocks) > 0.95, "it shows the cloud");
  const image = await imageTime();
  console.log(`${(1000 / image).toFixed(1)} images/s of 24,576 points by the software renderer`);
  expect(image < 200, "it turns at 5 images/s at least");
  await page.keyboard.press("o");
  await page.keyboard.press("v");
}

async function keepsItsView() {
  await page.keyboard.press("b");
  await until(() => page.url().includes("camera=19.90,0.00,70.00"), "the camera in the address");
  const link = page.url();
  const before = await cloud();
  await page.goto("about:blank");
  await page.goto(link);
  await until(() => said("frame"), "the frame of the link");
  const alike = correlation(before.blocks, (await cloud()).blocks);
  console.log(`the view of a link: correlation ${alike.toFixed(3)}`);
  expect(alike > 0.95, "a link shows the same view");
}

async function survivesRestart() {
  expect(faults.length === 0, `the console is empty: ${faults}`);
  await server.end();
  await until(async () => (await said("connection")) === "lost", "the loss being noticed");
  expect((await page.locator("#notice").textContent()).includes("Reconnecting"), "the page says so");
  await page.keyboard.press("ArrowRight"); // there is nothing to step through
  server = new Orva("view", ...recording, "--http-port", new URL(address).port);
  await server.address();
  await until(async () => (await said("connection")) === "open", "the connection");
  await page.evaluate(() => (location.hash = location.hash.replace(/frame=\d+/, "frame=99")));
  await shows(4); // the last: the frame end at the end of the recording opens no further one
  await server.end();
}

const seeks = (...recording) => async function seeksAtOnce() {
  server = new Orva("view", ...recording, "--http-port", "0");
  await page.goto(await server.address());
  await until(() => said("frame"), "the first frame");
  const times = await page.evaluate(async () => {
    const [root, seek, place] = [document.documentElement, document.getElementById("seek"), document.getElementById("place")];
    const drawing = document.getElementById("cloud").getContext("webgl2");
    const list = [];
    for (let i = 0; i < 40; i++) {
      const wanted = String((i * 167 + 53) % 400);
      await new Promise((done) => setTimeout(done, 100)); // the picture before is out of the way
      const came = new Promise((done) => new MutationObserver((_, self) => root.dataset.frame === wanted && done(self.disconnect())).observe(root, { attributes: true }));
      const start = performance.now();
      seek.value = wanted;
      seek.dispatchEvent(new Event("input"));
      await came;
      await new Promise((done) => requestAnimationFrame(done)); // after the page's own, which draws
      drawing.readPixels(0, 0, 1, 1, drawing.RGBA, drawing.UNSIGNED_BYTE, new Uint8Array(4)); // waits until it is drawn
      list.push(performance.now() - start);
      if (!place.textContent.startsWith(`Frame ${wanted} of 0–399`) || seek.value !== wanted) throw new Error(`${wanted}: ${place.textContent}`);
    }
    return list.sort((a, b) => a - b);
  });
  const image = await imageTime();
  const [median, most, longest] = [times[20], times[37], times[39]];
  console.log(`${recording[2]}, any of 400 frames: median ${median.toFixed(0)} ms, 95 % ${most.toFixed(0)} ms, longest ${longest.toFixed(0)} ms; a picture takes ${image.toFixed(0)} ms`);
  expect(median <= 100, "a frame is drawn within 100 ms");
  expect(most <= Math.max(120, 3 * image) && longest <= Math.max(300, 6 * image), "nearly always, and never long after"); // the server's part: stream.mjs
  await server.end();
}

async function saysWhatIsWrong() {
  copyFileSync(join(work, "street.pcap"), join(work, "bare.pcap"));
  await page.setViewportSize({ width: 390, height: 844 });
  for (const [title, ...wrong] of [
    ["Wrong model", "long.pcap", "--model", "TS4B"],
    ["Uncalibrated", "bare.pcap", "--model", "TS4B"],
    ["No points", ...recording, "--distance", "900", "999"],
  ]) {
    server = new Orva("view", ...wrong, "--http-port", "0");
    await page.goto(await server.address());
    await until(async () => (await page.locator("#notice strong").textContent()) === title, title);
    const wide = await page.evaluate(() => [...document.querySelectorAll("body > *")].filter((e) => e.scrollWidth > e.clientWidth).map((e) => e.tagName));
    expect(wide.length === 0, `all fits a telephone: ${wide}`);
    await server.end();
  }
}

async function plotsARecordingsImu() {
  orva("simulate", "imu.pcap", "--model", "TS6", "--frames", "20");
  server = new Orva("view", "imu.pcap", "--model", "TS6", "--calib", "imu.calib", "--http-port", "0");
  await page.goto(`${await server.address()}#plots=1&playing=1`);
  await until(async () => Number(await said("frame")) > 10, "playing");
  for (const plot of ["#plot-turn", "#plot-push"]) {
    await until(async () => (await picture(`${plot} canvas`)).share > 0.002, `curves in ${plot}`);
  }
  await server.end();
}

try {
  for (const step of [draws, picks, takesFingers, drawsWhatIsAskedFor, worksByKeyboard, keepsItsView, survivesRestart, seeks("far.pcap", "--model", "TS4B", "--calib", "far.calib"), seeks("long.pcap", "--model", "NV2"), plotsARecordingsImu, saysWhatIsWrong]) {
    await step();
    console.log(`ok ${step.name}`);
  }
  const own = new Set([...hosts].map((host) => host.split(":")[0]));
  const unexpected = faults.filter((text) => !text.includes("WebSocket connection to")); // tries to reach a server that is gone
  expect(unexpected.length === 0, `the console is empty: ${unexpected}`);
  expect([...own].join() === "127.0.0.1", `nothing is asked of another host: ${[...hosts]}`);
} finally {
  await context.close();
  await server.end();
}
