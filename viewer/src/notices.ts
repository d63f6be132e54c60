// SPDX-License-Identifier: Apache-2.0
// What the page says when there is nothing to see, or not what was meant.
import type { ConnectionState } from "./connection";
import type { Frame, Hello, Status } from "./protocol";

export interface Situation {
  connection: ConnectionState;
  retry: number; // seconds
  hello: Hello | null;
  status: Status | null;
  frame: Frame | null;
  playing: boolean;
}

export interface Notice {
  kind: "error" | "warning" | "wait";
  title: string;
  text: string;
  blocking: boolean; // there is nothing behind it worth seeing
}

const titles: Record<string, string> = {
  "no-packets": "No packets",
  "wrong-model": "Wrong model",
  uncalibrated: "Uncalibrated",
  downloading: "Calibration is being downloaded",
  "no-points": "No points",
  "no-frame": "No such frame",
};

export function noticeFor(situation: Situation): Notice | null {
  const { connection, hello, status, frame } = situation;
  if (connection === "connecting") {
    return { kind: "wait", title: "Connecting", text: "Waiting for orva view to answer.", blocking: true };
  }
  if (connection === "lost") {
    const when = situation.retry >= 1 ? ` Next try in ${Math.round(situation.retry)} s.` : "";
    const text = `The connection to orva view is gone; does it still run?${when}`;
    return { kind: "error", title: "Reconnecting", text, blocking: frame === null };
  }
  const condition = status?.condition;
  if (condition && condition.code !== "ok") {
    const gentle = ["uncalibrated", "downloading", "no-frame"].includes(condition.code);
    const title = titles[condition.code] ?? "Attention";
    return { kind: gentle ? "warning" : "error", title, text: condition.text, blocking: !gentle };
  }
  if (!hello || !frame) {
    return { kind: "wait", title: "Waiting for a frame", text: "It comes in a moment.", blocking: true };
  }
  if (frame.count === 0 && !situation.playing) {
    const text = "The frame before ended with the recording's last measurement.";
    return { kind: "warning", title: `Frame ${frame.number} is empty`, text, blocking: false };
  }
  if (frame.count > 0 && frame.returns === 0) {
    const text = "Every point is the origin: nothing lies inside the limits of distance and angles.";
    return { kind: "warning", title: "No returns", text, blocking: false };
  }
  return null;
}

export function showNotice(element: HTMLElement, notice: Notice | null): void {
  element.hidden = notice === null;
  if (notice === null) return;
  element.className = `notice ${notice.kind}${notice.blocking ? " blocking" : ""}`;
  const set = (selector: string, text: string) => {
    const part = element.querySelector(selector)!;
    if (part.textContent !== text) part.textContent = text; // else a screen reader repeats it
  };
  set("strong", notice.title);
  set("span", notice.text);
}
