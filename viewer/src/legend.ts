// SPDX-License-Identifier: Apache-2.0
// The scale of the colours.
import { captions, hasRoot, niceStep, palette, steps } from "./colours";
import { short } from "./format";
import type { ColourMode } from "./state";

export function drawLegend(element: HTMLElement, mode: ColourMode, range: [number, number], light: boolean): void {
  const bar = element.querySelector("canvas")!;
  const context = bar.getContext("2d")!;
  bar.width = steps;
  bar.height = 1;
  const colours = new Uint32Array(palette(mode, light).buffer);
  const image = context.createImageData(steps, 1);
  const pixels = new Uint32Array(image.data.buffer);
  for (let i = 0; i < steps; i++) {
    const part = i / (steps - 1);
    pixels[i] = colours[Math.round((hasRoot(mode) ? Math.sqrt(part) : part) * (steps - 1))];
  }
  context.putImageData(image, 0, 0);
  element.querySelector(".caption")!.textContent = captions[mode];
  const ticks = element.querySelector(".ticks")!;
  ticks.replaceChildren();
  const step = niceStep(range[1] - range[0], 4);
  for (let value = Math.ceil(range[0] / step) * step; value <= range[1] + step * 1e-6; value += step) {
    const tick = document.createElement("span");
    tick.textContent = short(value);
    tick.style.left = `${((value - range[0]) / (range[1] - range[0])) * 100}%`;
    ticks.append(tick);
  }
}
