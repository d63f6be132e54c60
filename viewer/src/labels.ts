// SPDX-License-Identifier: Apache-2.0
// Texts and marks that stay at places of the scene, as elements above the canvas.
import * as THREE from "three";
import type { Triple } from "./state";

export interface Label {
  text: string;
  at: Triple;
  kind: string; // class of the element
}

export class Labels {
  private readonly groups = new Map<string, { label: Label; element: HTMLElement }[]>();
  private readonly point = new THREE.Vector3();

  constructor(private readonly layer: HTMLElement) {}

  /** Replaces the labels of one group. */
  set(group: string, labels: Label[]): void {
    for (const { element } of this.groups.get(group) ?? []) element.remove();
    const made = labels.map((label) => {
      const element = document.createElement("span");
      element.className = `label ${label.kind}`;
      element.textContent = label.text;
      this.layer.append(element);
      return { label, element };
    });
    this.groups.set(group, made);
  }

  /** Where distances of the grid would cover each other, the nearer ones are shown. */
  place(camera: THREE.Camera, width: number, height: number): void {
    for (const [name, group] of this.groups) {
      const taken: [number, number][] = [];
      for (const { label, element } of group) {
        this.point.set(...label.at).project(camera);
        const x = ((this.point.x + 1) / 2) * width;
        const y = ((1 - this.point.y) / 2) * height;
        const within = Math.abs(this.point.z) < 1 && Math.abs(this.point.x) < 1.1 && Math.abs(this.point.y) < 1.1;
        const covered = name === "grid" && taken.some(([u, v]) => Math.abs(u - x) < 34 && Math.abs(v - y) < 12);
        element.hidden = !within || covered;
        if (element.hidden) continue;
        taken.push([x, y]);
        element.style.transform = `translate(${x.toFixed(1)}px, ${y.toFixed(1)}px) translate(-50%, -50%)`;
      }
    }
  }
}
