// SPDX-License-Identifier: Apache-2.0
// What the server says. Frames are described in tools/view/page_frame.h.

export interface Hello {
  type: "hello";
  version: string;
  mode: "recording" | "live";
  title: string;
  model: string;
  hasImu: boolean;
  frames: number;
  period: number; // seconds from frame to frame
  mounting: number[] | null; // x, y, z in metres, roll, pitch, yaw in degrees
}

export interface Status {
  type: "status";
  seconds: number;
  packets: number;
  packetRate: number;
  frameRate: number;
  imuRate: number;
  lost: { kernel: number; queue: number; length: number; identifier: number; notForUs: number; memory: number };
  calibration: string;
  condition: { code: string; text: string };
  sent: number;
  dropped: number; // frames that this page was too slow for
  missed: number;
}

export interface ImuBatch {
  type: "imu";
  samples: number[][]; // time, angular velocity x, y, z, linear acceleration x, y, z
}

export interface PointReply {
  type: "point";
  frame: number;
  index: number;
  gone?: boolean;
  x: number;
  y: number;
  z: number;
  distance: number;
  azimuth: number;
  elevation: number;
  intensity: number;
  line: number;
  time: number;
}

export type ServerText = Hello | Status | ImuBatch | PointReply;

export interface Frame {
  number: number;
  time: number; // seconds since the epoch; 0: unknown
  count: number;
  positions: Float32Array; // x, y, z in metres; exactly 0, 0, 0 without a return
  intensity: Uint16Array;
  line: Uint16Array;
  returns: number; // points with a return
  error: number; // greatest error of a coordinate, metres
  temperatures: [number, number];
}

const headerSize = 64;
const magic = 0x4656524f; // "ORVF"
const noReturn = 0xfffff;
const linesAsRuns = 1;

/** Throws where the bytes are no frame. */
export function decodeFrame(buffer: ArrayBuffer): Frame {
  const view = new DataView(buffer);
  if (buffer.byteLength < headerSize || view.getUint32(0, true) !== magic || view.getUint16(4, true) !== 1) {
    throw new Error("no frame of this page's version");
  }
  const flags = view.getUint16(6, true);
  const count = view.getUint32(12, true);
  const low = [28, 32, 36].map((at) => view.getFloat32(at, true));
  const step = [40, 44, 48].map((at) => view.getFloat32(at, true));
  const runs = view.getUint32(52, true);
  const lineBytes = flags & linesAsRuns ? runs * 4 : count;
  if (buffer.byteLength !== headerSize + count * 9 + lineBytes) {
    throw new Error("a frame of the wrong length");
  }
  const words = (index: number) => new Uint16Array(buffer, headerSize + index * count * 2, count);
  const [x, y, z, intensity] = [words(0), words(1), words(2), words(3)];
  const linesAt = headerSize + count * 8;
  const upper = new Uint8Array(buffer, linesAt + lineBytes, count);

  const positions = new Float32Array(count * 3);
  let returns = 0;
  for (let i = 0, at = 0; i < count; i++, at += 3) {
    const xCode = x[i] + ((upper[i] & 15) << 16);
    if (xCode === noReturn) continue;
    returns++;
    positions[at] = low[0] + xCode * step[0];
    positions[at + 1] = low[1] + (y[i] + ((upper[i] >> 4) << 16)) * step[1];
    positions[at + 2] = low[2] + z[i] * step[2];
    if (positions[at] === 0 && positions[at + 1] === 0 && positions[at + 2] === 0) positions[at] = 1e-6;
  }
  return {
    number: view.getUint32(8, true),
    time: view.getFloat64(16, true),
    count,
    positions,
    intensity,
    line: flags & linesAsRuns ? expandRuns(view, linesAt, runs, count) : Uint16Array.from(new Uint8Array(buffer, linesAt, count)),
    returns,
    error: Math.max(...step) / 2,
    temperatures: [view.getInt16(60, true) / 100, view.getInt16(62, true) / 100],
  };
}

function expandRuns(view: DataView, at: number, runs: number, count: number): Uint16Array {
  const line = new Uint16Array(count);
  let start = 0;
  for (let run = 0; run < runs; run++) {
    const end = start + view.getUint16(at + run * 4 + 2, true);
    line.fill(view.getUint16(at + run * 4, true), start, end);
    start = end;
  }
  return line;
}
