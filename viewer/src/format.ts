// SPDX-License-Identifier: Apache-2.0
// Numbers and times as the page shows them.

export const metres = (value: number) => `${value.toFixed(3)} m`;
export const degrees = (value: number) => `${value.toFixed(2)}°`;

/** "12:30:00.250", UTC; a dash where the model gives no time. */
export function clock(seconds: number): string {
  if (!(seconds > 0)) return "–";
  return new Date(seconds * 1000).toISOString().slice(11, 23);
}

export function date(seconds: number): string {
  return seconds > 0 ? `${new Date(seconds * 1000).toISOString().replace("T", " ").slice(0, 23)} UTC` : "–";
}

/** At most four digits, for scales. */
export const short = (value: number) => String(Number(value.toPrecision(4)));
