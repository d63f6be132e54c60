// SPDX-License-Identifier: Apache-2.0
// Keyboard shortcuts; the same list is what the help shows.

export interface Shortcut {
  keys: string[]; // values of KeyboardEvent.key
  shown: string;
  what: string;
  run(): void;
}

const typing = (target: EventTarget | null) =>
  target instanceof HTMLElement && target.matches("input:not([type=range]):not([type=checkbox]), select, textarea");

export function listen(shortcuts: Shortcut[]): void {
  document.addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey || typing(event.target)) return;
    if (document.querySelector("dialog[open]")) return; // its keys are the browser's
    // The keys by which a person works a control belong to the control.
    const onControl = event.target instanceof HTMLElement && event.target.matches("button, input");
    if (onControl && [" ", "Enter", "ArrowLeft", "ArrowRight", "ArrowUp", "ArrowDown", "Home", "End"].includes(event.key)) return;
    const shortcut = shortcuts.find(({ keys }) => keys.includes(event.key));
    if (!shortcut) return;
    event.preventDefault();
    shortcut.run();
  });
}

export function fillHelp(list: HTMLElement, shortcuts: Shortcut[]): void {
  for (const { shown, what } of shortcuts) {
    const key = document.createElement("dt");
    for (const part of shown.split(" ")) {
      const cap = document.createElement("kbd");
      cap.textContent = part;
      key.append(cap, " ");
    }
    const text = document.createElement("dd");
    text.textContent = what;
    list.append(key, text);
  }
}
