// SPDX-License-Identifier: Apache-2.0
// Which point is meant by a place on the canvas.
import * as THREE from "three";
import { hasReturn } from "./colours";
import type { Frame } from "./protocol";

const reach = 10; // pixels

/** The nearest point on the canvas, of two that are about as near the one in front. Sizes in pixels. */
export function nearestPoint(
  frame: Frame,
  camera: THREE.Camera,
  x: number,
  y: number,
  width: number,
  height: number,
): number | null {
  const matrix = new THREE.Matrix4().multiplyMatrices(camera.projectionMatrix, camera.matrixWorldInverse);
  const m = matrix.elements;
  let best: number | null = null;
  let bestScore = Infinity;
  for (let i = 0, at = 0; i < frame.count; i++, at += 3) {
    const px = frame.positions[at];
    const py = frame.positions[at + 1];
    const pz = frame.positions[at + 2];
    const w = m[3] * px + m[7] * py + m[11] * pz + m[15];
    if (w <= 0 || !hasReturn(frame, i)) continue;
    const dx = (((m[0] * px + m[4] * py + m[8] * pz + m[12]) / w + 1) / 2) * width - x;
    const dy = ((1 - (m[1] * px + m[5] * py + m[9] * pz + m[13]) / w) / 2) * height - y;
    const away = dx * dx + dy * dy;
    if (away > reach * reach) continue;
    const score = Math.sqrt(away) + 0.02 * w; // a pixel weighs as much as 50 m of depth
    if (score < bestScore) {
      bestScore = score;
      best = i;
    }
  }
  return best;
}
