// SPDX-License-Identifier: Apache-2.0
// The picture of the cloud: camera, points, decoration and marks. Draws only when something has changed.
import * as THREE from "three";
import { OrbitControls } from "three/examples/jsm/controls/OrbitControls.js";
import { hasReturn } from "./colours";
import { gridStep, groundHeight, makeAxes, makeFieldOfView, makeGrid, widen, type Angles } from "./decor";
import { Labels, type Label } from "./labels";
import { nearestPoint } from "./picking";
import { Points } from "./points";
import type { Frame } from "./protocol";
import type { ColourMode, State, Triple } from "./state";

export interface SceneColours {
  background: string;
  grid: string;
  accent: string;
  light: boolean;
}

const usualCamera: { position: Triple; target: Triple } = { position: [-18, 0, 13], target: [14, 0, 0] };

/** Whether a graphics card draws. Without one smooth edges take a third of each picture's time. */
function drawsFast(): boolean {
  const context = document.createElement("canvas").getContext("webgl2");
  // Browsers that hide the name are taken at their best.
  const names = context?.getExtension("WEBGL_debug_renderer_info");
  const name = names ? String(context?.getParameter(names.UNMASKED_RENDERER_WEBGL)) : "";
  context?.getExtension("WEBGL_lose_context")?.loseContext();
  return !/swiftshader|llvmpipe|softpipe|software|basic render/i.test(name);
}

const fast = drawsFast();

export class Scene {
  /** Called when the person has moved the camera. */
  onCamera: (camera: State["camera"]) => void = () => {};

  private readonly renderer: THREE.WebGLRenderer;
  private readonly scene = new THREE.Scene();
  private readonly camera = new THREE.PerspectiveCamera(55, 1, 0.05, 5000);
  private readonly controls: OrbitControls;
  private readonly points = new Points();
  private readonly labels: Labels;
  private readonly decor = { grid: new THREE.Object3D(), axes: new THREE.Object3D(), fov: new THREE.Object3D() };
  private readonly ruler = new THREE.Line(new THREE.BufferGeometry(), new THREE.LineBasicMaterial());
  private readonly fromSensor = new THREE.Matrix4();
  private colours: SceneColours = { background: "#000", grid: "#444", accent: "#48f", light: false };
  private frame: Frame | null = null;
  private angles: Angles | null = null;
  private ground: number | null = null;
  private step = 0;
  private shown = { grid: true, axes: true, fov: false };
  private dirty = true;
  private mounted = false;

  constructor(
    private readonly canvas: HTMLCanvasElement,
    layer: HTMLElement,
  ) {
    this.renderer = new THREE.WebGLRenderer({ canvas, antialias: fast, powerPreference: "high-performance" });
    this.labels = new Labels(layer);
    this.camera.up.set(0, 0, 1);
    this.controls = new OrbitControls(this.camera, canvas);
    this.controls.zoomToCursor = true;
    this.controls.minDistance = 0.2;
    this.controls.maxDistance = 1500;
    this.controls.addEventListener("change", () => this.touch());
    this.controls.addEventListener("end", () => this.onCamera(this.cameraState()));
    this.ruler.visible = false;
    this.ruler.renderOrder = 1;
    (this.ruler.material as THREE.LineBasicMaterial).depthTest = false;
    this.scene.add(this.points.object, this.ruler);
    const axes = makeAxes();
    this.replace("axes", axes.object);
    this.labels.set("axes", axes.labels);
    this.moveCamera(null);
    new ResizeObserver(() => this.resize()).observe(canvas);
    const draw = () => {
      if (this.dirty) this.draw();
      requestAnimationFrame(draw);
    };
    requestAnimationFrame(draw);
  }

  /** The sensor's pose: metres and degrees, applied as the driver does: yaw after pitch after roll. */
  mount(pose: number[] | null): void {
    const [x, y, z, roll, pitch, yaw] = pose ?? [0, 0, 0, 0, 0, 0];
    const [aboutX, aboutY, aboutZ] = [roll, pitch, yaw].map(THREE.MathUtils.degToRad);
    const euler = new THREE.Euler(aboutX, aboutY, aboutZ, "ZYX");
    this.fromSensor.makeRotationFromEuler(euler).setPosition(x, y, z);
    this.points.sensor([x, y, z]);
    this.mounted = pose !== null;
    this.ground = null;
    this.angles = null;
    this.step = 0;
    this.touch();
  }

  show(frame: Frame): void {
    this.frame = frame;
    this.points.show(frame);
    if (this.ground === null && frame.returns > 0) {
      this.ground = this.mounted ? 0 : groundHeight(frame);
      this.step = 0;
    }
    if (this.shown.fov) this.updateFieldOfView();
    this.touch();
  }

  colour(mode: ColourMode, range: [number, number]): void {
    this.points.colour(mode, range, this.colours.light);
    this.touch();
  }

  size(pixels: number): void {
    this.points.size(pixels * this.renderer.getPixelRatio());
    this.touch();
  }

  decorate(shown: { grid: boolean; axes: boolean; fov: boolean }): void {
    this.shown = { ...shown };
    this.decor.grid.visible = shown.grid;
    this.decor.axes.visible = shown.axes;
    this.decor.fov.visible = shown.fov;
    this.step = 0;
    this.labels.set("axes", shown.axes ? makeAxes().labels : []);
    this.updateFieldOfView();
    this.touch();
  }

  theme(colours: SceneColours): void {
    this.colours = colours;
    this.renderer.setClearColor(colours.background);
    (this.ruler.material as THREE.LineBasicMaterial).color.set(colours.accent);
    this.decorate(this.shown);
  }

  moveCamera(camera: State["camera"]): void {
    const { position, target } = camera ?? usualCamera;
    this.camera.position.set(...position);
    this.controls.target.set(...target);
    this.controls.update();
    this.touch();
  }

  lookFromAbove(): void {
    this.moveCamera({ position: [19.9, 0, 70], target: [20, 0, 0] });
    this.onCamera(this.cameraState());
  }

  /** For the keyboard: turn about the target, tilt, and come closer, in steps. */
  nudge(azimuth: number, polar: number, zoom: number): void {
    const offset = this.camera.position.clone().sub(this.controls.target);
    const spherical = new THREE.Spherical().setFromVector3(new THREE.Vector3(offset.y, offset.z, offset.x));
    spherical.theta += azimuth;
    spherical.phi = Math.min(Math.PI - 0.01, Math.max(0.01, spherical.phi + polar));
    spherical.radius *= zoom;
    const turned = new THREE.Vector3().setFromSpherical(spherical);
    this.camera.position.set(turned.z, turned.x, turned.y).add(this.controls.target);
    this.controls.update();
    this.onCamera(this.cameraState());
  }

  /** The point under a place of the canvas, in pixels of the page; null where there is none. */
  pick(x: number, y: number): number | null {
    if (!this.frame) return null;
    const box = this.canvas.getBoundingClientRect();
    this.camera.updateMatrixWorld();
    return nearestPoint(this.frame, this.camera, x - box.left, y - box.top, box.width, box.height);
  }

  /** Marks points of the frame. `distance` is the text at the measured length. */
  mark(marks: { hovered: number | null; picked: number | null; ends: number[]; length: string }): void {
    const labels: Label[] = [];
    const add = (index: number | null, kind: string) => {
      const at = this.place(index);
      if (at) labels.push({ text: "", at, kind });
    };
    add(marks.picked, "mark mark-picked");
    add(marks.hovered, "mark mark-hovered");
    marks.ends.forEach((end) => add(end, "mark mark-end"));
    const ends = marks.ends.map((end) => this.place(end));
    this.ruler.visible = ends.length === 2 && ends[0] !== null && ends[1] !== null;
    if (this.ruler.visible) {
      const [from, to] = ends as [Triple, Triple];
      this.ruler.geometry.setFromPoints([new THREE.Vector3(...from), new THREE.Vector3(...to)]);
      this.ruler.geometry.computeBoundingSphere();
      const middle = from.map((value, i) => (value + to[i]) / 2) as Triple;
      labels.push({ text: marks.length, at: middle, kind: "length" });
    }
    this.labels.set("marks", labels);
    this.touch();
  }

  async picture(): Promise<Blob | null> {
    this.draw();
    return new Promise((done) => this.canvas.toBlob(done, "image/png"));
  }

  private place(index: number | null): Triple | null {
    if (index === null || !this.frame || index >= this.frame.count || !hasReturn(this.frame, index)) return null;
    return [...this.frame.positions.subarray(index * 3, index * 3 + 3)] as Triple;
  }

  private cameraState(): State["camera"] {
    return { position: this.camera.position.toArray(), target: this.controls.target.toArray() };
  }

  private replace(name: "grid" | "axes" | "fov", object: THREE.Object3D): void {
    this.scene.remove(this.decor[name]);
    this.decor[name] = object;
    object.visible = this.shown[name];
    this.scene.add(object);
  }

  private updateGrid(): void {
    const step = gridStep(this.camera.position.distanceTo(this.controls.target));
    if (step === this.step) return;
    this.step = step;
    const grid = makeGrid(step, this.ground ?? 0, this.colours.grid);
    this.replace("grid", grid.object);
    this.labels.set("grid", this.shown.grid ? grid.labels : []);
    if (this.shown.fov) this.updateFieldOfView();
  }

  private updateFieldOfView(): void {
    if (!this.shown.fov || !this.frame) return;
    this.angles = widen(this.angles, this.frame, this.fromSensor.clone().invert());
    if (!this.angles) return;
    const object = makeFieldOfView(this.angles, Math.max(5, this.step * 3), this.colours.accent);
    object.applyMatrix4(this.fromSensor);
    this.replace("fov", object);
  }

  private touch(): void {
    this.dirty = true;
  }

  private resize(): void {
    const { clientWidth: width, clientHeight: height } = this.canvas;
    if (width === 0 || height === 0) return;
    this.renderer.setPixelRatio(Math.min(window.devicePixelRatio, fast ? 2 : 1));
    this.renderer.setSize(width, height, false);
    this.camera.aspect = width / height;
    this.camera.updateProjectionMatrix();
    this.draw();
  }

  private draw(): void {
    this.dirty = false;
    this.updateGrid();
    this.renderer.render(this.scene, this.camera);
    this.labels.place(this.camera, this.canvas.clientWidth, this.canvas.clientHeight);
    this.dirty = false;
  }
}
