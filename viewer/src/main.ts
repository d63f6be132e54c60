// SPDX-License-Identifier: Apache-2.0
// Ties the parts of the page together: what the server says and what the person does changes the state, and the
// state is drawn.
import "./style.css";
import { readAddress, writeAddress } from "./address";
import { fitRange } from "./colours";
import { Connection, type ConnectionState } from "./connection";
import { clock, metres } from "./format";
import { fillHelp, listen, type Shortcut } from "./keys";
import { drawLegend } from "./legend";
import { noticeFor, showNotice } from "./notices";
import { connectPanel, find, showFacts, showPanel, showRange } from "./panel";
import { Player } from "./player";
import { Plots } from "./plots";
import type { Frame, Hello, PointReply, ServerText, Status } from "./protocol";
import { RangeImage } from "./range_image";
import { Readout } from "./readout";
import { Scene } from "./scene";
import { colourModes, Store, type Theme, type Triple } from "./state";

const store = new Store(readAddress(location.hash));
const page = document.documentElement;
const stage = find<HTMLCanvasElement>("cloud");
const scene = makeScene();
const rangeImage = new RangeImage(find("range-image"), find("image-cursor"));
const readout = new Readout(find("readout"), find("values"));
const plots = new Plots(find);
const player = new Player(store, (frame) => connection.send({ type: "show", frame }));

let hello: Hello | null = null;
let status: Status | null = null;
let frame: Frame | null = null;
let connectionState: ConnectionState = "connecting";
let retry = 0;
let newest = 0; // number of the live frame that came last, shown or not
let frozen = false; // it came into a frozen picture
let excused = 0; // frames that were not wanted then: the server counts them as dropped
let hovered: number | null = null;
let fitted: [number, number] = [0, 1];
let fittedFor = ""; // colour mode and recording that `fitted` belongs to
const drawTimes: number[] = [];

const live = () => hello?.mode === "live";
const origin = (): Triple => (hello?.mounting ? (hello.mounting.slice(0, 3) as Triple) : [0, 0, 0]);
const darkWish = matchMedia("(prefers-color-scheme: dark)");
const isLight = () => store.state.theme === "light" || (store.state.theme === "auto" && !darkWish.matches);
const range = () => store.state.range ?? fitted;

function makeScene(): Scene {
  try {
    return new Scene(stage, find("labels"));
  } catch (error) {
    const text = "This browser offers no WebGL. Switch its hardware acceleration on, or open the page in another one.";
    showNotice(find("notice"), { kind: "error", title: "Nothing can be drawn", text, blocking: true });
    throw error;
  }
}

// --- what the server says

const connection = new Connection({
  state(state, wait) {
    connectionState = state;
    retry = wait;
    if (state === "lost") player.stop();
    const chip = find("connection");
    chip.textContent = { connecting: "connecting", open: live() ? "live" : "connected", lost: "reconnecting" }[state];
    chip.className = `chip ${state === "open" ? "good" : state === "lost" ? "error" : ""}`;
    page.dataset.connection = state;
    showSituation();
  },
  text: take,
  frame(next) {
    // The next one is asked for when this one is drawn: a page that is slow, or hidden, is spared what it cannot show.
    if (live()) {
      if (frozen && store.state.playing) excused += next.number - newest - 1;
      frozen = !store.state.playing;
      newest = next.number;
      if (frozen) return;
      requestAnimationFrame(() => connection.send({ type: "ready" }));
    } else {
      player.arrived(next.number);
    }
    frame = next;
    showFrame();
  },
});

function take(message: ServerText): void {
  switch (message.type) {
    case "hello":
      begin(message);
      break;
    case "status":
      message.dropped -= excused;
      status = message;
      plots.status(message);
      showStatus();
      break;
    case "imu":
      plots.imu(message);
      break;
    case "point":
      if (!message.gone && message.index === store.state.picked && message.frame === frame?.number) readout.show(message);
      break;
  }
}

function begin(message: Hello): void {
  // The server was replaced by another version while the connection was lost: its own page understands it.
  if (hello && hello.version !== message.version) location.reload();
  hello = message;
  status = null;
  [frozen, excused] = [false, 0];
  plots.restart();
  page.dataset.mode = message.mode;
  page.dataset.imu = message.hasImu ? "yes" : "no";
  document.title = `${message.title} – ORVA`;
  find("title").textContent = message.title;
  find("model").textContent = message.model;
  find("connection").textContent = message.mode === "live" ? "live" : "connected";
  scene.mount(message.mounting);
  const seek = find<HTMLInputElement>("seek");
  seek.max = String(Math.max(0, message.frames - 1));
  if (message.mode === "live") store.set({ playing: true });
  else player.start(message.frames, message.period);
  showSituation();
}

// --- what is drawn

function fit(): void {
  const wanted = `${store.state.colour} ${hello?.title}`;
  if (!frame || frame.returns === 0 || wanted === fittedFor) return;
  const next = fitRange(store.state.colour, frame, origin());
  if (!next) return;
  fitted = next;
  fittedFor = wanted;
}

function showColours(): void {
  fit();
  scene.colour(store.state.colour, range());
  drawLegend(find("legend"), store.state.colour, range(), isLight());
  showRange(range());
  showImage();
}

function showImage(): void {
  if (!frame || !store.state.image) return;
  rangeImage.draw(frame, store.state.colour, range(), isLight(), origin());
  rangeImage.mark(hovered ?? store.state.picked);
}

function showFrame(): void {
  if (!frame) return;
  scene.show(frame);
  if (`${store.state.colour} ${hello?.title}` !== fittedFor) showColours();
  else showImage();
  plots.frame(frame);
  showMarks();
  askForPoint();
  showPlace();
  const facts: [string, string][] = [
    ["Points", frame.count.toLocaleString("en")],
    ["Returns", frame.returns.toLocaleString("en")],
    ["Rounded by", `≤ ${(frame.error * 1000).toFixed(1)} mm`],
  ];
  if (frame.temperatures.some((value) => value !== 0)) {
    facts.push(["Temperatures", frame.temperatures.map((value) => `${value.toFixed(1)} °C`).join(", ")]);
  }
  if (live() && status) facts.push(["Frames/s", status.frameRate.toFixed(1)], ["Packets/s", status.packetRate.toFixed(0)]);
  showFacts(facts);
  page.dataset.frame = String(frame.number);
  page.dataset.points = String(frame.count);
  countDrawing();
  showSituation();
}

function showPlace(): void {
  const place = find("place");
  const time = document.createElement("small");
  time.textContent = clock(frame?.time ?? 0);
  const all = `0–${Math.max(0, (hello?.frames ?? 1) - 1)}`; // as the tool counts them
  if (live()) place.replaceChildren(store.state.playing ? `Frame ${frame?.number ?? "–"}` : "Frozen", time);
  else place.replaceChildren(`Frame ${frame?.number ?? "–"} of ${all}`, time);
  const seek = find<HTMLInputElement>("seek");
  seek.value = String(store.state.frame); // a hand that drags is ahead of the frame that is seen
  seek.setAttribute("aria-valuetext", `frame ${store.state.frame} of ${all}`);
}

function showStatus(): void {
  if (!status) return;
  const chip = find("calibration");
  chip.hidden = status.calibration === "not needed";
  chip.textContent = `calibration: ${status.calibration}`;
  chip.classList.toggle("warning", status.calibration === "none");
  const dropped = find("dropped");
  dropped.hidden = status.dropped + status.missed === 0;
  dropped.textContent = `${status.dropped + status.missed} frames left out`;
  dropped.title = "Frames that came faster than this page, or the server, could take them";
  page.dataset.dropped = String(status.dropped);
  showSituation();
}

function showSituation(): void {
  const { playing } = store.state;
  showNotice(find("notice"), noticeFor({ connection: connectionState, retry, hello, status, frame, playing }));
}

/** Images per second, for whoever wants to know: the tests do. */
function countDrawing(): void {
  const now = performance.now();
  drawTimes.push(now);
  while (drawTimes[0] < now - 2000) drawTimes.shift();
  page.dataset.rate = (drawTimes.length / 2).toFixed(1);
}

// --- points

function localPoint(index: number): PointReply | null {
  if (!frame || index >= frame.count) return null;
  const [x, y, z] = frame.positions.subarray(index * 3, index * 3 + 3);
  const degrees = 180 / Math.PI;
  return {
    type: "point",
    frame: frame.number,
    index,
    x,
    y,
    z,
    distance: Math.hypot(x, y, z),
    azimuth: Math.atan2(y, x) * degrees,
    elevation: Math.atan2(z, Math.hypot(x, y)) * degrees,
    intensity: frame.intensity[index],
    line: frame.line[index],
    time: 0,
  };
}

function askForPoint(): void {
  const { picked } = store.state;
  readout.show(picked === null ? null : localPoint(picked));
  if (picked !== null && frame) connection.send({ type: "point", frame: frame.number, index: picked });
}

function lengthText(): string {
  const [a, b] = store.state.ends.map(localPoint);
  return a && b ? metres(Math.hypot(a.x - b.x, a.y - b.y, a.z - b.z)) : "";
}

function showMarks(): void {
  const { picked, ends, measuring } = store.state;
  scene.mark({ hovered, picked, ends, length: lengthText() });
  rangeImage.mark(hovered ?? picked);
  const hint = find("measure-hint");
  hint.hidden = !measuring;
  hint.textContent = ["Click the first point", "Click the second point", `Length ${lengthText()}`][ends.length];
}

function hover(index: number | null): void {
  if (index === hovered) return;
  hovered = index;
  showMarks();
}

function choose(index: number | null): void {
  if (!store.state.measuring) store.set({ picked: index });
  else if (index !== null) store.set({ ends: store.state.ends.length === 2 ? [index] : [...store.state.ends, index] });
}

// --- what the person does

let pressed: [number, number] | null = null;
let hoverAt: [number, number] | null = null;
stage.addEventListener("pointerdown", (event) => (pressed = event.button === 0 ? [event.clientX, event.clientY] : null));
stage.addEventListener("pointerup", (event) => {
  // A drag turns the view; only a press that stays in its place picks.
  if (pressed && Math.hypot(event.clientX - pressed[0], event.clientY - pressed[1]) < 4) {
    choose(scene.pick(event.clientX, event.clientY));
  }
  pressed = null;
});
stage.addEventListener("pointermove", (event) => {
  if (event.buttons !== 0 || event.pointerType === "touch") return;
  if (hoverAt === null) {
    requestAnimationFrame(() => {
      if (hoverAt) hover(scene.pick(...hoverAt));
      hoverAt = null;
    });
  }
  hoverAt = [event.clientX, event.clientY];
});
stage.addEventListener("pointerleave", () => hover(null));
rangeImage.onHover = hover;
rangeImage.onPick = choose;

async function saveScreenshot(): Promise<void> {
  const picture = await scene.picture();
  if (!picture) return;
  const link = document.createElement("a");
  link.href = URL.createObjectURL(picture);
  link.download = `orva-frame-${frame?.number ?? 0}.png`;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 1000);
}

const nextTheme = () => store.set({ theme: (isLight() ? "dark" : "light") as Theme });
const resetView = () => {
  scene.moveCamera(null);
  store.set({ camera: null });
};
const measure = () => store.set({ measuring: !store.state.measuring, ends: [] });
const clear = () => store.set({ measuring: false, ends: [], picked: null });
const fitScale = () => {
  fittedFor = "";
  store.set({ range: null });
  showColours();
};
const help = find<HTMLDialogElement>("help-dialog");
const firstFrame = () => player.show(0);
const lastFrame = () => player.show(Infinity);

const shortcuts: Shortcut[] = [
  { keys: [" "], shown: "Space", what: "play or pause", run: () => store.toggle("playing") },
  { keys: ["ArrowLeft"], shown: "←", what: "one frame back", run: () => player.step(-1) },
  { keys: ["ArrowRight"], shown: "→", what: "one frame on", run: () => player.step(1) },
  { keys: ["ArrowDown", "PageDown"], shown: "↓", what: "ten frames back", run: () => player.step(-10) },
  { keys: ["ArrowUp", "PageUp"], shown: "↑", what: "ten frames on", run: () => player.step(10) },
  { keys: ["Home"], shown: "Home", what: "first frame", run: firstFrame },
  { keys: ["End"], shown: "End", what: "last frame", run: lastFrame },
  ...colourModes.map((colour, i) => ({
    keys: [String(i + 1)],
    shown: String(i + 1),
    what: `colour by ${colour}`,
    run: () => store.set({ colour, range: null }),
  })),
  { keys: ["f"], shown: "F", what: "fit the colour scale", run: fitScale },
  { keys: ["+", "="], shown: "+", what: "larger points", run: () => store.set({ size: Math.min(8, store.state.size + 0.5) }) },
  { keys: ["-"], shown: "−", what: "smaller points", run: () => store.set({ size: Math.max(1, store.state.size - 0.5) }) },
  { keys: ["g"], shown: "G", what: "ground grid", run: () => store.toggle("grid") },
  { keys: ["x"], shown: "X", what: "axes", run: () => store.toggle("axes") },
  { keys: ["o"], shown: "O", what: "field of view", run: () => store.toggle("fov") },
  { keys: ["r"], shown: "R", what: "range image", run: () => store.toggle("image") },
  { keys: ["p"], shown: "P", what: "plots", run: () => store.toggle("plots") },
  { keys: ["m"], shown: "M", what: "measure a length", run: measure },
  { keys: ["c"], shown: "C", what: "save a screenshot", run: () => void saveScreenshot() },
  { keys: ["v"], shown: "V", what: "usual view", run: resetView },
  { keys: ["b"], shown: "B", what: "view from above", run: () => scene.lookFromAbove() },
  { keys: ["w", "s"], shown: "W S", what: "tilt", run: () => {} },
  { keys: ["a", "d"], shown: "A D", what: "turn", run: () => {} },
  { keys: ["q", "e"], shown: "Q E", what: "zoom", run: () => {} },
  { keys: ["t"], shown: "T", what: "light or dark", run: nextTheme },
  { keys: ["Escape"], shown: "Esc", what: "forget picked points", run: clear },
  { keys: ["?"], shown: "?", what: "this list", run: () => help.showModal() },
];
const turns: Record<string, [number, number, number]> = {
  w: [0, -0.08, 1],
  s: [0, 0.08, 1],
  a: [-0.08, 0, 1],
  d: [0.08, 0, 1],
  q: [0, 0, 1.12],
  e: [0, 0, 1 / 1.12],
};
listen([
  ...Object.entries(turns).map(([key, by]) => ({ keys: [key], shown: "", what: "", run: () => scene.nudge(...by) })),
  ...shortcuts,
]);
fillHelp(find("shortcuts"), shortcuts);

const clicks: Record<string, () => void> = {
  play: () => store.toggle("playing"),
  first: firstFrame,
  last: lastFrame,
  back: () => player.step(-1),
  forth: () => player.step(1),
  theme: nextTheme,
  help: () => help.showModal(),
  home: resetView,
  above: () => scene.lookFromAbove(),
  measure,
  shot: () => void saveScreenshot(),
  fit: fitScale,
  unpick: () => store.set({ picked: null }),
};
for (const [id, run] of Object.entries(clicks)) find(id).addEventListener("click", run);
find("seek").addEventListener("input", (event) => player.show(Number((event.target as HTMLInputElement).value)));
connectPanel(store, () => fitted);
scene.onCamera = (camera) => store.set({ camera });

// --- the state

function applyTheme(): void {
  page.dataset.theme = isLight() ? "light" : "dark";
  const style = getComputedStyle(page);
  const value = (name: string) => style.getPropertyValue(name).trim();
  scene.theme({ background: value("--scene"), grid: value("--scene-grid"), accent: value("--accent"), light: isLight() });
  plots.rebuild();
  showColours();
}

let addressTimer = 0;
store.subscribe((state, changed) => {
  showPanel(state);
  const has = (...keys: (keyof typeof state)[]) => keys.some((key) => changed.has(key));
  if (has("theme")) applyTheme();
  else if (has("colour", "range")) showColours();
  if (has("size")) scene.size(state.size);
  if (has("grid", "axes", "fov")) scene.decorate(state);
  if (has("image")) showImage();
  if (has("plots")) plots.rebuild();
  if (has("picked")) askForPoint();
  if (has("picked", "ends", "measuring")) showMarks();
  // Another place is shown with its frame: one picture of the page instead of two.
  if (has("playing")) {
    showPlace();
    showSituation();
  }
  // Going on after a freeze: the server waits for the page's word.
  if (has("playing") && state.playing && live()) connection.send({ type: "ready" });
  clearTimeout(addressTimer);
  addressTimer = window.setTimeout(() => history.replaceState(null, "", `#${writeAddress(store.state, fittedFor || store.state.range ? range() : null)}`), 300);
});
window.addEventListener("hashchange", () => {
  store.set(readAddress(location.hash));
  scene.moveCamera(store.state.camera);
});
darkWish.addEventListener("change", applyTheme);

showPanel(store.state);
applyTheme();
scene.size(store.state.size);
scene.decorate(store.state);
if (store.state.camera) scene.moveCamera(store.state.camera);
showSituation();
