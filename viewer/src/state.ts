// SPDX-License-Identifier: Apache-2.0
// What the person has chosen, in one plain object. Everything on the page is drawn from it.

export const colourModes = ["intensity", "distance", "height", "line"] as const;
export type ColourMode = (typeof colourModes)[number];
export type Theme = "auto" | "light" | "dark";
export type Triple = [number, number, number];

export interface State {
  frame: number; // of the recording
  playing: boolean; // live: false freezes the picture
  speed: number;
  colour: ColourMode;
  range: [number, number] | null; // of the colour scale; null: fitted to the frame
  size: number; // of a point, pixels
  grid: boolean;
  axes: boolean;
  fov: boolean;
  image: boolean; // the range image
  plots: boolean;
  theme: Theme;
  camera: { position: Triple; target: Triple } | null; // null: the usual place
  picked: number | null; // index of a point in the frame
  measuring: boolean;
  ends: number[]; // of the measured length: up to two points
}

export const initialState: State = {
  frame: 0,
  playing: false,
  speed: 1,
  colour: "intensity",
  range: null,
  size: 2,
  grid: true,
  axes: true,
  fov: false,
  image: true,
  plots: false,
  theme: "auto",
  camera: null,
  picked: null,
  measuring: false,
  ends: [],
};

type Listener = (state: State, changed: ReadonlySet<keyof State>) => void;

export class Store {
  private readonly listeners: Listener[] = [];

  constructor(private current: State) {}

  get state(): Readonly<State> {
    return this.current;
  }

  set(patch: Partial<State>): void {
    const keys = (Object.keys(patch) as (keyof State)[]).filter((key) => patch[key] !== this.current[key]);
    if (keys.length === 0) return;
    this.current = { ...this.current, ...patch };
    const changed = new Set(keys);
    for (const listener of this.listeners) listener(this.current, changed);
  }

  toggle(key: "playing" | "grid" | "axes" | "fov" | "image" | "plots" | "measuring"): void {
    this.set({ [key]: !this.current[key] });
  }

  subscribe(listener: Listener): void {
    this.listeners.push(listener);
  }
}
