// SPDX-License-Identifier: Apache-2.0
// The values of one point. The frame on the page is rounded; the server tells the exact values.
import { date, degrees, metres } from "./format";
import type { PointReply } from "./protocol";

const rows: [keyof PointReply & string, string, (value: number) => string][] = [
  ["x", "x", metres],
  ["y", "y", metres],
  ["z", "z", metres],
  ["distance", "Distance", metres],
  ["azimuth", "Azimuth", degrees],
  ["elevation", "Elevation", degrees],
  ["intensity", "Intensity", String],
  ["line", "Laser line", String],
  ["time", "Time", date],
];

export class Readout {
  constructor(
    private readonly panel: HTMLElement,
    private readonly list: HTMLElement,
  ) {}

  show(point: PointReply | null): void {
    this.panel.hidden = point === null;
    this.list.replaceChildren();
    if (point === null) return;
    this.list.dataset.frame = String(point.frame);
    this.list.dataset.index = String(point.index);
    for (const [name, caption, write] of rows) {
      if (name === "time" && point.time === 0) continue; // the model gives points no time
      const term = document.createElement("dt");
      term.textContent = caption;
      const value = document.createElement("dd");
      value.textContent = write(point[name] as number);
      value.dataset.field = name;
      value.dataset.exact = String(point[name]);
      this.list.append(term, value);
    }
  }
}
