// SPDX-License-Identifier: Apache-2.0
// Colour scales, as in the pictures of orva render: the same hues for the same quantities.
import type { Frame } from "./protocol";
import type { ColourMode, Triple } from "./state";

export const steps = 256;

function gamma(linear: number): number {
  const value = Math.min(1, Math.max(0, linear));
  return value <= 0.0031308 ? 12.92 * value : 1.055 * value ** (1 / 2.4) - 0.055;
}

/** Lightness 0 to 1, chroma and hue in degrees of the OKLab colour space, to sRGB. */
function fromLightness(lightness: number, chroma: number, hue: number): Triple {
  const a = chroma * Math.cos((hue * Math.PI) / 180);
  const b = chroma * Math.sin((hue * Math.PI) / 180);
  const l = (lightness + 0.3963377774 * a + 0.2158037573 * b) ** 3;
  const m = (lightness - 0.1055613458 * a - 0.0638541728 * b) ** 3;
  const s = (lightness - 0.0894841775 * a - 1.291485548 * b) ** 3;
  return [
    gamma(4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s),
    gamma(-1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s),
    gamma(-0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s),
  ];
}

const mix = (from: number, to: number, part: number) => from + (to - from) * part;

function colourAt(mode: ColourMode, part: number, light: boolean): Triple {
  // On paper the light end has to give way, on black the dark end.
  const lightness = (value: number) => (light ? 0.2 + value * 0.52 : value);
  switch (mode) {
    case "distance":
      return fromLightness(lightness(mix(0.93, 0.5, part)), mix(0.15, 0.16, part), mix(100, 275, part));
    case "intensity":
      return fromLightness(lightness(mix(0.46, 0.96, part)), 0.17 - 0.09 * part * part, mix(290, 460, part));
    case "height":
      return fromLightness(lightness(mix(0.55, 0.93, part)), 0.15, mix(260, 110, part));
    case "line":
      return fromLightness(light ? 0.58 : 0.78, 0.15, mix(20, 340, part));
  }
}

const palettes = new Map<string, Uint8Array>();

/** 256 colours as RGBA bytes. */
export function palette(mode: ColourMode, light: boolean): Uint8Array {
  const key = `${mode} ${light}`;
  if (!palettes.has(key)) palettes.set(key, makePalette(mode, light));
  return palettes.get(key)!;
}

function makePalette(mode: ColourMode, light: boolean): Uint8Array {
  const bytes = new Uint8Array(steps * 4);
  for (let i = 0; i < steps; i++) {
    const colour = colourAt(mode, i / (steps - 1), light);
    colour.forEach((channel, c) => (bytes[i * 4 + c] = Math.round(channel * 255)));
    bytes[i * 4 + 3] = 255;
  }
  return bytes;
}

/** Most points are near and weak: the root gives them more of the colours. */
export const hasRoot = (mode: ColourMode) => mode === "intensity" || mode === "distance";

export const captions: Record<ColourMode, string> = {
  intensity: "Intensity, counts",
  distance: "Distance, m",
  height: "Height, m",
  line: "Laser line",
};

/** What the colour of point `i` stands for. `origin` is where the sensor is. */
export function valueOf(mode: ColourMode, frame: Frame, i: number, origin: Triple): number {
  switch (mode) {
    case "intensity":
      return frame.intensity[i];
    case "line":
      return frame.line[i];
    case "height":
      return frame.positions[i * 3 + 2];
    case "distance":
      return Math.hypot(
        frame.positions[i * 3] - origin[0],
        frame.positions[i * 3 + 1] - origin[1],
        frame.positions[i * 3 + 2] - origin[2],
      );
  }
}

export const hasReturn = (frame: Frame, i: number) =>
  frame.positions[i * 3] !== 0 || frame.positions[i * 3 + 1] !== 0 || frame.positions[i * 3 + 2] !== 0;

/** A range that holds nearly all points, at round numbers. */
export function fitRange(mode: ColourMode, frame: Frame, origin: Triple): [number, number] | null {
  const values: number[] = [];
  for (let i = 0; i < frame.count; i++) {
    if (hasReturn(frame, i)) values.push(valueOf(mode, frame, i, origin));
  }
  if (values.length === 0) return null;
  const sorted = Float64Array.from(values).sort();
  if (mode === "line") return [0, sorted[sorted.length - 1]];
  const low = sorted[Math.floor(0.02 * (sorted.length - 1))];
  const high = sorted[Math.floor(0.98 * (sorted.length - 1))];
  const step = niceStep(high - low, 10);
  return [Math.floor(low / step) * step, Math.max(Math.ceil(high / step), Math.floor(low / step) + 1) * step];
}

/** 1, 2 or 5 times a power of ten, so that about `count` steps fill `range`. */
export function niceStep(range: number, count: number): number {
  const raw = Math.max(range, 1e-3) / count;
  const power = 10 ** Math.floor(Math.log10(raw));
  const lead = raw / power;
  return power * (lead < 1.5 ? 1 : lead < 3.5 ? 2 : lead < 7.5 ? 5 : 10);
}

/** Index into the palette. */
export function shade(mode: ColourMode, value: number, range: [number, number]): number {
  const part = Math.min(1, Math.max(0, (value - range[0]) / (range[1] - range[0])));
  return Math.round((hasRoot(mode) ? Math.sqrt(part) : part) * (steps - 1));
}
