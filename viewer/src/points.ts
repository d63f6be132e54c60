// SPDX-License-Identifier: Apache-2.0
// The cloud on the graphics card.
import * as THREE from "three";
import { hasRoot, palette, steps } from "./colours";
import type { Frame } from "./protocol";
import { colourModes, type ColourMode, type Triple } from "./state";

const vertexShader = `
  attribute float intensity;
  attribute float line;
  uniform int mode;
  uniform vec2 range;
  uniform bool root;
  uniform float size;
  uniform vec3 sensor;
  varying float part;
  void main() {
    if (position == vec3(0.0)) {  // no return
      gl_Position = vec4(2.0, 2.0, 2.0, 1.0);
      gl_PointSize = 0.0;
      return;
    }
    float value = mode == 0 ? intensity : mode == 1 ? distance(position, sensor) : mode == 2 ? position.z : line;
    part = clamp((value - range.x) / (range.y - range.x), 0.0, 1.0);
    if (root) part = sqrt(part);
    gl_Position = projectionMatrix * modelViewMatrix * vec4(position, 1.0);
    gl_PointSize = size;
  }`;

const fragmentShader = `
  uniform sampler2D colours;
  varying float part;
  void main() {
    gl_FragColor = texture2D(colours, vec2(part * ${((steps - 1) / steps).toFixed(6)} + ${(0.5 / steps).toFixed(6)}, 0.5));
  }`;

export class Points {
  readonly object: THREE.Points;
  private readonly material: THREE.ShaderMaterial;
  private geometry = new THREE.BufferGeometry();
  private capacity = 0;

  constructor() {
    this.material = new THREE.ShaderMaterial({
      vertexShader,
      fragmentShader,
      uniforms: {
        mode: { value: 0 },
        range: { value: new THREE.Vector2(0, 1) },
        root: { value: true },
        size: { value: 2 },
        sensor: { value: new THREE.Vector3() },
        colours: { value: null },
      },
    });
    this.object = new THREE.Points(this.geometry, this.material);
    this.object.frustumCulled = false;
  }

  show(frame: Frame): void {
    if (frame.count > this.capacity) this.grow(frame.count);
    this.geometry.setDrawRange(0, frame.count);
    if (frame.count === 0) return; // there may be no buffers yet
    const put = (name: string, values: Float32Array | Uint16Array) => {
      const attribute = this.geometry.getAttribute(name) as THREE.BufferAttribute;
      (attribute.array as Float32Array).set(values);
      attribute.clearUpdateRanges();
      attribute.addUpdateRange(0, values.length);
      attribute.needsUpdate = true;
    };
    put("position", frame.positions);
    put("intensity", frame.intensity);
    put("line", frame.line);
  }

  colour(mode: ColourMode, range: [number, number], light: boolean): void {
    const uniforms = this.material.uniforms;
    uniforms.mode.value = colourModes.indexOf(mode);
    uniforms.range.value.set(range[0], range[1]);
    uniforms.root.value = hasRoot(mode);
    uniforms.colours.value?.dispose();
    const texture = new THREE.DataTexture(palette(mode, light), steps, 1);
    texture.needsUpdate = true;
    uniforms.colours.value = texture;
  }

  size(pixels: number): void {
    this.material.uniforms.size.value = pixels;
  }

  sensor(origin: Triple): void {
    this.material.uniforms.sensor.value.set(...origin);
  }

  private grow(count: number): void {
    this.geometry.dispose();
    this.geometry = new THREE.BufferGeometry();
    this.capacity = Math.ceil(count * 1.25);
    const add = (name: string, attribute: THREE.BufferAttribute) => {
      attribute.setUsage(THREE.DynamicDrawUsage);
      this.geometry.setAttribute(name, attribute);
    };
    add("position", new THREE.Float32BufferAttribute(new Float32Array(this.capacity * 3), 3));
    add("intensity", new THREE.Uint16BufferAttribute(new Uint16Array(this.capacity), 1));
    add("line", new THREE.Uint16BufferAttribute(new Uint16Array(this.capacity), 1));
    this.object.geometry = this.geometry;
  }
}
