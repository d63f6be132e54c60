// SPDX-License-Identifier: Apache-2.0
// Asks for the frames of a recording: one at a time, and always the one that is wanted by then.
import type { Store } from "./state";

const patience = 2000; // milliseconds until a frame is asked for again

export class Player {
  private frames = 0;
  private period = 0.1;
  private place = 0; // the frame, with a fraction while playing
  private asked: number | null = null;
  private askedAt = 0;
  private shown: number | null = null;
  private last = 0;

  constructor(
    private readonly store: Store,
    private readonly ask: (frame: number) => void,
  ) {
    const tick = (now: number) => {
      this.tick(now);
      requestAnimationFrame(tick);
    };
    requestAnimationFrame(tick);
    store.subscribe((state, changed) => {
      if (changed.has("frame") && Math.floor(this.place) !== state.frame) this.place = state.frame;
      if (this.frames === 0) return;
      if (state.frame >= this.frames) store.set({ frame: this.frames - 1 }); // an address may name any
      else this.want(performance.now());
    });
  }

  /** A connection has been made, perhaps anew: what was asked for before is not coming. */
  start(frames: number, period: number): void {
    this.frames = frames;
    this.period = period;
    this.asked = null;
    this.shown = null;
    if (this.store.state.frame >= frames) this.store.set({ frame: Math.max(0, frames - 1) });
    this.place = this.store.state.frame;
    this.want(performance.now());
  }

  stop(): void {
    this.frames = 0;
  }

  arrived(frame: number): void {
    if (frame === this.asked) this.asked = null;
    this.shown = frame;
    this.want(performance.now());
  }

  step(by: number): void {
    this.show(this.store.state.frame + by);
  }

  /** Nothing without a recording, or while its server is away: where it ends is not known then. */
  show(frame: number): void {
    if (this.frames === 0) return;
    this.store.set({ playing: false, frame: Math.min(this.frames - 1, Math.max(0, frame)) });
  }

  private tick(now: number): void {
    const elapsed = Math.min(0.25, (now - this.last) / 1000);
    this.last = now;
    const { playing, speed } = this.store.state;
    if (this.frames === 0) return;
    // A slow line slows the playing down, it does not make it jump.
    if (playing && this.frames > 1 && this.asked === null) {
      this.place = (this.place + (elapsed * speed) / this.period) % this.frames;
      const frame = Math.floor(this.place);
      if (frame !== this.store.state.frame) this.store.set({ frame });
    }
    this.want(now);
  }

  private want(now: number): void {
    const { frame } = this.store.state;
    if (frame === this.shown || (this.asked !== null && now - this.askedAt < patience)) return;
    this.asked = frame;
    this.askedAt = now;
    this.ask(frame);
  }
}
