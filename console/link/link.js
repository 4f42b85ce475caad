// The console's WebSocket to the relay: control messages as JSON text, envelopes as binary. It comes back by itself,
// with growing and jittered pauses, and measures the browser's own round trip.

const SUBPROTOCOL = 'vantelink.console.v1';
const PING_EVERY_MS = 2000;
/** A relay that says nothing for this long, and owes the answer to a ping, is taken for gone. */
const DEAD_AFTER_MS = 15000;
/** With an upload before the ping: longer than a machine may go without reading until the relay ends its session. */
const HELD_UP_MS = 60000;
const UPLOAD_BYTES = 16 * 1024;
/** The slowest line on which an upload is waited for, in bytes a millisecond. */
const SLOWEST_LINE = 16;
const UNSTABLE_AFTER_MS = 1500;
const FIRST_PAUSE_MS = 500;
const LONGEST_PAUSE_MS = 15000;

/** The pause before attempt number `attempt`, counted from 0; `random` in 0..1 spreads it by a quarter. */
export function backOff(/** @type {number} */ attempt, random = Math.random()) {
  return Math.min(FIRST_PAUSE_MS * 2 ** attempt, LONGEST_PAUSE_MS) * (0.75 + random / 2);
}

/**
 * A control message of the relay, or null for anything that is none.
 * @returns {{type: string, [field: string]: any} | null}
 */
export function parseControl(/** @type {string} */ text) {
  try {
    const message = JSON.parse(text);
    return message && typeof message === 'object' && typeof message.type === 'string' ? message : null;
  } catch {
    return null;
  }
}

/** Events: 'up', 'down', 'control' (detail: message), 'envelope' (detail: ArrayBuffer), 'trip'. */
export class Link extends EventTarget {
  constructor(/** @type {string} */ url) {
    super();
    this.url = url;
    /** @type {WebSocket | null} */
    this.socket = null;
    this.up = false;
    this.attempt = 0;
    this.wanted = false;
    /** @type {number | null} */
    this.browserTrip = null;
    /** @type {number | null} */
    this.machineTrip = null;
    /** @type {{id: number, at: number, behind: number} | null} behind: bytes that the relay passes on before it answers */
    this.ping = null;
    this.pings = 0;
    /** Bytes since the last ping. */
    this.sent = 0;
    this.heardAt = 0;
  }

  start() {
    this.wanted = true;
    this.connect();
  }

  stop() {
    this.wanted = false;
    clearTimeout(this.retry);
    this.lose();
  }

  /** Tries at once instead of waiting out the pause. */
  hurry() {
    if (!this.wanted || this.socket) return;
    clearTimeout(this.retry);
    this.connect();
  }

  sendControl(/** @type {object} */ message) {
    if (this.up) this.socket?.send(JSON.stringify(message));
    return this.up;
  }

  sendEnvelope(/** @type {Uint8Array} */ bytes) {
    if (this.up) this.socket?.send(bytes);
    this.sent += bytes.length;
    return this.up;
  }

  /** Bytes that wait for the network. */
  get backlog() {
    return this.socket?.bufferedAmount ?? 0;
  }

  /** True when a ping has been unanswered for longer than is usual on a healthy link. */
  get unstable() {
    return this.ping !== null && performance.now() - this.ping.at > UNSTABLE_AFTER_MS;
  }

  /** @private */
  connect() {
    const socket = new WebSocket(this.url, SUBPROTOCOL);
    socket.binaryType = 'arraybuffer';
    this.socket = socket;
    socket.onopen = () => this.opened();
    socket.onclose = () => socket === this.socket && this.lose();
    socket.onmessage = ({ data }) => socket === this.socket && this.receive(data);
  }

  /** @private */
  opened() {
    this.up = true;
    this.sent = 0;
    this.attempt = 0;
    this.pinger = setInterval(() => this.sendPing(), PING_EVERY_MS);
    this.emit('up');
    this.sendPing();
  }

  /** @private */
  lose() {
    const { socket } = this;
    this.socket = null;
    this.up = false;
    this.ping = null;
    this.browserTrip = null;
    this.machineTrip = null;
    clearInterval(this.pinger);
    socket?.close();
    if (this.wanted) this.retry = setTimeout(() => this.connect(), backOff(this.attempt++));
    this.emit('down');
  }

  /** @private */
  receive(/** @type {unknown} */ data) {
    this.heardAt = performance.now();
    if (data instanceof ArrayBuffer) {
      this.emit('envelope', data);
      return;
    }
    const message = typeof data === 'string' ? parseControl(data) : null;
    if (message?.type === 'pong' && message.id === this.ping?.id) this.receivePong(message);
    else if (message) this.emit('control', message);
  }

  /** @private One ping is under way at a time, so that a stall is seen and never averaged away. */
  sendPing() {
    const now = performance.now();
    if (this.ping) {
      const { at, behind } = this.ping;
      // While a machine is slow to take an upload, the relay does not read on and so does not see the ping.
      const patience = behind > UPLOAD_BYTES ? HELD_UP_MS + behind / SLOWEST_LINE : DEAD_AFTER_MS;
      if (now - Math.max(at, this.heardAt) > patience) this.lose();
      else this.emit('trip');
      return;
    }
    this.ping = { id: ++this.pings, at: now, behind: this.sent };
    this.sent = 0;
    this.sendControl({ type: 'ping', id: this.ping.id });
  }

  /** @private */
  receivePong(/** @type {{id?: unknown, round_trip_ms?: unknown}} */ { id, round_trip_ms: machine }) {
    if (!this.ping || id !== this.ping.id) return;
    this.browserTrip = performance.now() - this.ping.at;
    this.machineTrip = typeof machine === 'number' && Number.isFinite(machine) ? machine : null;
    this.ping = null;
    this.emit('trip');
  }

  /** @private */
  emit(/** @type {string} */ name, /** @type {unknown} */ detail) {
    this.dispatchEvent(new CustomEvent(name, { detail }));
  }
}
