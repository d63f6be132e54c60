// SPDX-License-Identifier: Apache-2.0
// The cloud as the sensor sees it: a row for each laser line, a column for each measurement of that line.
import { hasReturn, palette, shade, valueOf } from "./colours";
import type { Frame } from "./protocol";
import type { ColourMode, Triple } from "./state";

export class RangeImage {
  onHover: (index: number | null) => void = () => {};
  onPick: (index: number) => void = () => {};

  private readonly context: CanvasRenderingContext2D;
  private lines: Uint16Array = new Uint16Array(0); // of the frame that the cells belong to
  private rows = 1;
  private columns = 1;
  private cells = new Int32Array(1); // index of the point by row and column; -1: none

  constructor(
    private readonly canvas: HTMLCanvasElement,
    private readonly cursor: HTMLElement,
  ) {
    this.context = canvas.getContext("2d")!;
    canvas.addEventListener("pointermove", (event) => this.onHover(this.at(event)));
    canvas.addEventListener("pointerleave", () => this.onHover(null));
    canvas.addEventListener("click", (event) => {
      const index = this.at(event);
      if (index !== null) this.onPick(index);
    });
  }

  draw(frame: Frame, mode: ColourMode, range: [number, number], light: boolean, origin: Triple): void {
    this.arrange(frame);
    const colours = new Uint32Array(palette(mode, light).buffer);
    const image = this.context.createImageData(this.columns, this.rows);
    const pixels = new Uint32Array(image.data.buffer);
    for (let cell = 0; cell < this.cells.length; cell++) {
      const index = this.cells[cell];
      if (index >= 0 && hasReturn(frame, index)) {
        pixels[cell] = colours[shade(mode, valueOf(mode, frame, index, origin), range)];
      }
    }
    this.context.putImageData(image, 0, 0);
  }

  /** Shows where a point of the frame lies in the image. */
  mark(index: number | null): void {
    const cell = index === null ? -1 : this.cells.indexOf(index);
    this.cursor.hidden = cell < 0;
    if (cell < 0) return;
    this.cursor.style.left = `${((cell % this.columns) + 0.5) * (100 / this.columns)}%`;
    this.cursor.style.top = `${(Math.floor(cell / this.columns) + 0.5) * (100 / this.rows)}%`;
  }

  private arrange(frame: Frame): void {
    const { lines } = this;
    if (lines.length === frame.count && frame.line.every((line, i) => line === lines[i])) return; // as the last one
    this.lines = frame.line;
    const sizes = new Map<number, number>();
    for (const line of frame.line) sizes.set(line, (sizes.get(line) ?? 0) + 1);
    const rows = sizes.size === 0 ? 1 : Math.max(...sizes.keys()) + 1;
    const ordered = [...sizes.values()].sort((a, b) => a - b);
    const columns = ordered[ordered.length >> 1] ?? 1; // most lines have this many
    if (rows !== this.rows || columns !== this.columns || this.cells.length !== rows * columns) {
      this.rows = rows;
      this.columns = columns;
      this.cells = new Int32Array(rows * columns);
      this.canvas.width = columns;
      this.canvas.height = rows;
    }
    this.cells.fill(-1);
    // Of a line that comes twice the later part counts: NV2's frame ends with the first packet of the next.
    const next = new Map<number, number>();
    for (let i = 0; i < frame.count; i++) {
      const line = frame.line[i];
      const surplus = sizes.get(line)! - columns;
      const column = (next.get(line) ?? 0) - Math.max(0, surplus);
      next.set(line, (next.get(line) ?? 0) + 1);
      if (column >= 0) this.cells[line * columns + column] = i;
    }
  }

  private at(event: PointerEvent | MouseEvent): number | null {
    const box = this.canvas.getBoundingClientRect();
    const column = Math.floor(((event.clientX - box.left) / box.width) * this.columns);
    const row = Math.floor(((event.clientY - box.top) / box.height) * this.rows);
    if (column < 0 || row < 0 || column >= this.columns || row >= this.rows) return null;
    const index = this.cells[row * this.columns + column];
    return index < 0 ? null : index;
  }
}
