// SPDX-License-Identifier: Apache-2.0
// Small plots over time: what the IMU measures, what arrives and what is lost, how many measurements return.
import uPlot from "uplot";
import "uplot/dist/uPlot.min.css";
import type { Frame, ImuBatch, Status } from "./protocol";

const imuSeconds = 20;
const statusSeconds = 120;
const mostFrames = 400;
const drawMilliseconds = 250; // samples come far more often than an eye can follow

interface Series {
  label: string;
  colour: string; // a custom property of the style sheet
}

class Plot {
  private readonly data: number[][];
  private plot: uPlot | null = null;
  private fresh = false; // there are values that are not drawn yet

  constructor(
    private readonly holder: HTMLElement,
    private readonly series: Series[],
    private readonly span: number,
    private readonly unit = " s", // of the axis that the span is on
  ) {
    this.data = [[], ...series.map(() => [])];
    new ResizeObserver(() => this.fit()).observe(holder);
  }

  /** Forgets what is older than the span; starts anew where time runs backwards. */
  add(x: number, values: number[]): void {
    const [xs] = this.data;
    this.fresh = true;
    if (xs.length > 0 && x <= xs[xs.length - 1]) this.data.forEach((list) => (list.length = 0));
    xs.push(x);
    values.forEach((value, i) => this.data[i + 1].push(value));
    const start = xs.findIndex((value) => value >= x - this.span);
    if (start > 0) this.data.forEach((list) => list.splice(0, start));
  }

  draw(): void {
    if (this.holder.offsetParent === null) return; // not shown
    if (!this.plot) this.build();
    else if (this.fresh) this.plot.setData(this.data as uPlot.AlignedData);
    this.fresh = false;
  }

  /** With the colours of the theme. */
  rebuild(): void {
    this.plot?.destroy();
    this.plot = null;
    this.draw();
  }

  private fit(): void {
    const { clientWidth: width, clientHeight: height } = this.holder;
    if (this.plot && width > 0) this.plot.setSize({ width, height: height - legendHeight });
    else this.draw();
  }

  private build(): void {
    const style = getComputedStyle(document.documentElement);
    const value = (name: string) => style.getPropertyValue(name).trim();
    const axis: uPlot.Axis = {
      stroke: value("--faded"),
      font: "11px system-ui, sans-serif",
      grid: { stroke: value("--line"), width: 1 },
      ticks: { show: false },
    };
    const options: uPlot.Options = {
      width: Math.max(120, this.holder.clientWidth),
      height: Math.max(60, this.holder.clientHeight - legendHeight),
      cursor: { show: true, y: false, drag: { x: false, y: false } },
      legend: { live: false },
      scales: { x: { time: false }, y: { range: { min: { pad: 0.1, soft: 0, mode: 1 }, max: { pad: 0.1, soft: 1, mode: 1 } } } },
      axes: [{ ...axis, size: 22, values: (_, ticks) => ticks.map((tick) => `${tick}${this.unit}`) }, { ...axis, size: 44 }],
      series: [
        {},
        ...this.series.map((entry) => ({ label: entry.label, stroke: value(entry.colour), width: 1.5, points: { show: false } })),
      ],
    };
    this.plot = new uPlot(options, this.data as uPlot.AlignedData, this.holder);
  }
}

const legendHeight = 26;
const xyz = ["x", "y", "z"].map((label, i) => ({ label, colour: `--series-${i + 1}` }));

export class Plots {
  private readonly turn: Plot;
  private readonly push: Plot;
  private readonly arrivals: Plot;
  private readonly losses: Plot;
  private readonly returns: Plot;
  private before: Status | null = null;
  private imuStart: number | null = null;

  constructor(find: (id: string) => HTMLElement) {
    this.turn = new Plot(find("plot-turn"), xyz, imuSeconds);
    this.push = new Plot(find("plot-push"), xyz, imuSeconds);
    this.arrivals = new Plot(find("plot-arrivals"), [{ label: "packets", colour: "--series-3" }], statusSeconds);
    this.losses = new Plot(
      find("plot-losses"),
      [
        { label: "kernel", colour: "--series-1" },
        { label: "queue or memory", colour: "--series-2" },
        { label: "refused", colour: "--series-3" },
        { label: "left out", colour: "--series-4" },
      ],
      statusSeconds,
    );
    this.returns = new Plot(find("plot-returns"), [{ label: "returns", colour: "--series-2" }], mostFrames, "");
    setInterval(() => this.all().forEach((plot) => plot.draw()), drawMilliseconds);
  }

  imu(batch: ImuBatch): void {
    this.imuStart ??= batch.samples[0][0];
    for (const [time, gx, gy, gz, ax, ay, az] of batch.samples) {
      this.turn.add(time - this.imuStart, [gx, gy, gz]);
      this.push.add(time - this.imuStart, [ax, ay, az]);
    }
  }

  status(status: Status): void {
    this.arrivals.add(status.seconds, [status.packetRate]);
    const before = this.before ?? status;
    this.before = status;
    const lost = status.lost;
    const old = before.lost;
    this.losses.add(status.seconds, [
      lost.kernel - old.kernel,
      lost.queue + lost.memory - old.queue - old.memory,
      lost.length + lost.identifier - old.length - old.identifier,
      status.dropped + status.missed - before.dropped - before.missed,
    ]);
  }

  frame(frame: Frame): void {
    this.returns.add(frame.number, [frame.count === 0 ? 0 : (100 * frame.returns) / frame.count]);
  }

  /** A new connection: counts may begin anew. */
  restart(): void {
    this.before = null;
    this.imuStart = null;
  }

  rebuild(): void {
    for (const plot of this.all()) plot.rebuild();
  }

  private all(): Plot[] {
    return [this.turn, this.push, this.arrivals, this.losses, this.returns];
  }
}
