// SPDX-License-Identifier: Apache-2.0
// What helps to read the cloud: rings on the ground with their distance, axes, the sensor's field of view.
import * as THREE from "three";
import { hasReturn, niceStep } from "./colours";
import type { Label } from "./labels";
import type { Frame } from "./protocol";
import type { Triple } from "./state";

const ringCount = 6;
const segments = 128;

export interface Angles {
  left: number;
  right: number;
  top: number;
  bottom: number;
}

function lines(points: number[], colour: THREE.ColorRepresentation, opacity = 1): THREE.LineSegments {
  const geometry = new THREE.BufferGeometry();
  geometry.setAttribute("position", new THREE.Float32BufferAttribute(points, 3));
  const material = new THREE.LineBasicMaterial({ color: colour, transparent: opacity < 1, opacity });
  return new THREE.LineSegments(geometry, material);
}

function arc(points: number[], at: (part: number) => Triple, pieces: number): void {
  for (let i = 0; i < pieces; i++) points.push(...at(i / pieces), ...at((i + 1) / pieces));
}

/** Rings about the origin at the height of the ground. */
export function makeGrid(step: number, ground: number, colour: string): { object: THREE.Object3D; labels: Label[] } {
  const points: number[] = [];
  const labels: Label[] = [];
  for (let ring = 1; ring <= ringCount; ring++) {
    const radius = ring * step;
    arc(points, (part) => [radius * Math.cos(part * 2 * Math.PI), radius * Math.sin(part * 2 * Math.PI), ground], segments);
    const text = `${Number(radius.toPrecision(6))} m`;
    labels.push({ text, at: [radius, 0, ground], kind: "ring" }, { text, at: [0, radius, ground], kind: "ring" });
    labels.push({ text, at: [0, -radius, ground], kind: "ring" });
  }
  for (let spoke = 0; spoke < 12; spoke++) {
    const angle = (spoke * Math.PI) / 6;
    const to = ringCount * step;
    points.push(0, 0, ground, to * Math.cos(angle), to * Math.sin(angle), ground);
  }
  return { object: lines(points, colour, 0.5), labels };
}

/** A step that suits a view from `distance` metres away. */
export const gridStep = (distance: number) => niceStep(distance * 1.4, ringCount);

export function makeAxes(): { object: THREE.Object3D; labels: Label[] } {
  const object = new THREE.Group();
  const labels: Label[] = [];
  const names: [string, Triple, string][] = [
    ["x", [2, 0, 0], "#e5484d"],
    ["y", [0, 2, 0], "#30a46c"],
    ["z", [0, 0, 2], "#3e8bff"],
  ];
  for (const [name, end, colour] of names) {
    object.add(lines([0, 0, 0, ...end], colour));
    labels.push({ text: name, at: end.map((value) => value * 1.12) as Triple, kind: `axis axis-${name}` });
  }
  return { object, labels };
}

/** Widens `angles` to what the frame's points span, in degrees as the sensor sees it. */
export function widen(angles: Angles | null, frame: Frame, toSensor: THREE.Matrix4): Angles | null {
  const point = new THREE.Vector3();
  const result = angles ?? { left: -180, right: 180, top: -90, bottom: 90 };
  for (let i = 0; i < frame.count; i += 7) {
    if (!hasReturn(frame, i)) continue;
    point.fromArray(frame.positions, i * 3).applyMatrix4(toSensor);
    const azimuth = THREE.MathUtils.radToDeg(Math.atan2(point.y, point.x));
    const elevation = THREE.MathUtils.radToDeg(Math.atan2(point.z, Math.hypot(point.x, point.y)));
    result.left = Math.max(result.left, azimuth);
    result.right = Math.min(result.right, azimuth);
    result.top = Math.max(result.top, elevation);
    result.bottom = Math.min(result.bottom, elevation);
  }
  return result.left > result.right ? result : null;
}

/** The edges of the field of view, `reach` metres long. */
export function makeFieldOfView(angles: Angles, reach: number, colour: string): THREE.Object3D {
  const at = (azimuth: number, elevation: number): Triple => {
    const a = THREE.MathUtils.degToRad(azimuth);
    const e = THREE.MathUtils.degToRad(elevation);
    return [reach * Math.cos(e) * Math.cos(a), reach * Math.cos(e) * Math.sin(a), reach * Math.sin(e)];
  };
  const points: number[] = [];
  for (const elevation of [angles.top, angles.bottom]) {
    arc(points, (part) => at(angles.left + (angles.right - angles.left) * part, elevation), 32);
    for (const azimuth of [angles.left, angles.right]) points.push(0, 0, 0, ...at(azimuth, elevation));
  }
  for (const azimuth of [angles.left, angles.right]) {
    arc(points, (part) => at(azimuth, angles.top + (angles.bottom - angles.top) * part), 16);
  }
  return lines(points, colour, 0.9);
}

/** The height at which most points below the sensor lie: the ground, where there is one. */
export function groundHeight(frame: Frame): number {
  const bins = new Map<number, number>();
  let best = 0;
  for (let i = 0; i < frame.count; i++) {
    const z = frame.positions[i * 3 + 2];
    if (z >= 0 || !hasReturn(frame, i)) continue;
    const bin = Math.round(z * 10);
    bins.set(bin, (bins.get(bin) ?? 0) + 1);
    if (bins.get(bin)! > (bins.get(best) ?? 0)) best = bin;
  }
  return best / 10;
}
