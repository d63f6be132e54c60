// SPDX-License-Identifier: Apache-2.0
// The state in the part of the address behind #, so that a link shows the same view.
import { colourModes, initialState, type ColourMode, type State, type Theme, type Triple } from "./state";

const switches = ["playing", "grid", "axes", "fov", "image", "plots"] as const;

function numbers(text: string | null, count: number): number[] | null {
  const list = (text ?? "").split(",").map(Number);
  return text && list.length === count && list.every(Number.isFinite) ? list : null;
}

export function readAddress(hash: string): State {
  const fields = new URLSearchParams(hash.replace(/^#/, ""));
  const state: State = { ...initialState };
  const number = (name: string, low: number, high: number, fallback: number) => {
    const value = numbers(fields.get(name), 1)?.[0];
    return value === undefined ? fallback : Math.min(high, Math.max(low, value));
  };
  state.frame = Math.round(number("frame", 0, 0xffffffff, 0));
  state.speed = number("speed", 0.1, 10, 1);
  state.size = number("size", 1, 8, initialState.size);
  for (const name of switches) {
    if (fields.has(name)) state[name] = fields.get(name) === "1";
  }
  const colour = fields.get("colour") as ColourMode;
  if (colourModes.includes(colour)) state.colour = colour;
  const theme = fields.get("theme") as Theme;
  if (["light", "dark"].includes(theme)) state.theme = theme;
  const range = numbers(fields.get("range"), 2);
  if (range && range[0] < range[1]) state.range = [range[0], range[1]];
  const camera = numbers(fields.get("camera"), 6);
  if (camera) state.camera = { position: camera.slice(0, 3) as Triple, target: camera.slice(3) as Triple };
  if (fields.has("pick")) state.picked = Math.round(number("pick", 0, 0xffffffff, 0));
  state.ends = numbers(fields.get("length"), 2) ?? [];
  return state;
}

/** `range`: of the colours as they are, also where it was fitted to a frame; null before the first frame. */
export function writeAddress(state: Readonly<State>, range: [number, number] | null): string {
  const fields = new URLSearchParams();
  const put = (name: string, value: string | number, usual: string | number) => {
    if (value !== usual) fields.set(name, String(value));
  };
  put("frame", state.frame, 0);
  put("speed", state.speed, 1);
  put("size", state.size, initialState.size);
  put("colour", state.colour, initialState.colour);
  put("theme", state.theme, "auto");
  for (const name of switches) put(name, state[name] ? 1 : 0, initialState[name] ? 1 : 0);
  if (range) fields.set("range", range.map((value) => Number(value.toPrecision(6))).join(","));
  if (state.camera) {
    const all = [...state.camera.position, ...state.camera.target];
    fields.set("camera", all.map((value) => value.toFixed(2)).join(","));
  }
  if (state.picked !== null) fields.set("pick", String(state.picked));
  if (state.ends.length === 2) fields.set("length", state.ends.join(","));
  return fields.toString().replaceAll("%2C", ",");
}
