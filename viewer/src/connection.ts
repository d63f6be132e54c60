// SPDX-License-Identifier: Apache-2.0
// The WebSocket to the server, opened again whenever it is lost.
import { decodeFrame, type Frame, type ServerText } from "./protocol";

export type ConnectionState = "connecting" | "open" | "lost";

export interface ConnectionEvents {
  state(state: ConnectionState, retryInSeconds: number): void;
  text(message: ServerText): void;
  frame(frame: Frame): void;
}

const longestWait = 5; // seconds between two tries

export class Connection {
  private socket: WebSocket | null = null;
  private tries = 0;

  constructor(private readonly events: ConnectionEvents) {
    this.open();
  }

  /** Drops the message while there is no connection: whoever needs it asks again when there is one. */
  send(message: object): void {
    if (this.socket?.readyState === WebSocket.OPEN) this.socket.send(JSON.stringify(message));
  }

  private open(): void {
    this.events.state(this.tries === 0 ? "connecting" : "lost", 0);
    const address = new URL("/", location.href);
    address.protocol = location.protocol === "https:" ? "wss:" : "ws:";
    address.search = location.search; // the token, where one is asked for
    const socket = new WebSocket(address, "orva.view.1");
    socket.binaryType = "arraybuffer";
    socket.onopen = () => {
      this.tries = 0;
      this.events.state("open", 0);
    };
    socket.onmessage = (event: MessageEvent<string | ArrayBuffer>) => {
      if (typeof event.data === "string") this.events.text(JSON.parse(event.data) as ServerText);
      else this.events.frame(decodeFrame(event.data));
    };
    socket.onclose = () => {
      this.socket = null;
      const wait = Math.min(longestWait, 0.5 * 2 ** this.tries++);
      this.events.state("lost", wait);
      setTimeout(() => this.open(), wait * 1000);
    };
    this.socket = socket;
  }
}
