// SPDX-License-Identifier: Apache-2.0
// The controls beside the cloud and below it: they show the state, and change it.
import { short } from "./format";
import type { ColourMode, State, Store } from "./state";

export const find = <T extends HTMLElement = HTMLElement>(id: string): T => {
  const element = document.getElementById(id);
  if (!element) throw new Error(`the page has no element ${id}`);
  return element as T;
};

const switches = ["grid", "axes", "fov", "image", "plots"] as const;

export function connectPanel(store: Store, fitted: () => [number, number]): void {
  for (const button of document.querySelectorAll<HTMLButtonElement>("[data-colour]")) {
    button.addEventListener("click", () => store.set({ colour: button.dataset.colour as ColourMode, range: null }));
  }
  // As in any group of choices the arrow keys go from one to the next.
  find("colours").addEventListener("keydown", (event) => {
    const by = { ArrowRight: 1, ArrowDown: 1, ArrowLeft: -1, ArrowUp: -1 }[event.key];
    if (by === undefined) return;
    event.preventDefault();
    const buttons = [...document.querySelectorAll<HTMLButtonElement>("[data-colour]")];
    const next = buttons[(buttons.indexOf(event.target as HTMLButtonElement) + by + buttons.length) % buttons.length];
    next.focus();
    next.click();
  });
  for (const name of switches) {
    find<HTMLInputElement>(name).addEventListener("change", () => store.toggle(name));
  }
  const changeRange = () => {
    const usual = fitted();
    const read = (id: string, fallback: number) => {
      const { value } = find<HTMLInputElement>(id);
      return value === "" || !Number.isFinite(Number(value)) ? fallback : Number(value);
    };
    const [low, high] = [read("low", usual[0]), read("high", usual[1])];
    store.set({ range: low < high ? [low, high] : null });
  };
  find("low").addEventListener("change", changeRange);
  find("high").addEventListener("change", changeRange);
  find("size").addEventListener("input", (event) => store.set({ size: Number((event.target as HTMLInputElement).value) }));
  find("speed").addEventListener("change", (event) => store.set({ speed: Number((event.target as HTMLSelectElement).value) }));
}

export function showPanel(state: Readonly<State>): void {
  for (const button of document.querySelectorAll<HTMLButtonElement>("[data-colour]")) {
    const chosen = button.dataset.colour === state.colour;
    button.setAttribute("aria-checked", String(chosen));
    button.tabIndex = chosen ? 0 : -1;
  }
  for (const name of switches) find<HTMLInputElement>(name).checked = state[name];
  find<HTMLInputElement>("size").value = String(state.size);
  find("size-value").textContent = String(state.size);
  const speed = find<HTMLSelectElement>("speed");
  speed.value = String(state.speed);
  find("measure").setAttribute("aria-pressed", String(state.measuring));
  find("image-panel").hidden = !state.image;
  find("plots-panel").hidden = !state.plots;
  find("stage").classList.toggle("measuring", state.measuring);
  const play = find("play");
  play.classList.toggle("playing", state.playing);
  play.setAttribute("aria-label", state.playing ? "Pause" : "Play");
}

export function showRange(range: [number, number]): void {
  for (const [id, value] of [["low", range[0]], ["high", range[1]]] as const) {
    const input = find<HTMLInputElement>(id);
    if (document.activeElement !== input) input.value = short(value);
  }
}

export function showFacts(facts: [string, string][]): void {
  const list = find("facts");
  list.replaceChildren();
  for (const [name, value] of facts) {
    const term = document.createElement("dt");
    term.textContent = name;
    const text = document.createElement("dd");
    text.textContent = value;
    list.append(term, text);
  }
}
