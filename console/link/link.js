// The WebSocket from the browser to the relay: control messages as JSON text, envelopes as binary. A broken
// link reconnects after pauses that grow and vary randomly. Pings measure the round trip and detect a relay
// that no longer answers.
import { emit } from '../base/custom_events.js';
import { PartJoiner } from './parts.js';

const SUBPROTOCOL = 'vantelink.console.v5';
const PING_INTERVAL_MS = 2000;
/**
 * The relay counts as dead when a ping is unanswered and nothing has arrived for this long. The relay sends
 * something every few seconds, even while it cannot read a ping because an upload takes long, and divides long
 * messages into parts. So the limit does not depend on the size of messages.
 */
const DEAD_AFTER_MS = 15000;
const UNSTABLE_AFTER_MS = 1500;
const FIRST_PAUSE_MS = 500;
const LONGEST_PAUSE_MS = 15000;

/** @typedef {{type: string, [field: string]: unknown}} ControlMessage */

/**
 * The pause before a new connection attempt, in milliseconds.
 * @param {number} attempt counted from 0
 * @param {number} [random] a number in 0..1; it changes the pause by up to a quarter in either direction
 */
export function backOff(attempt, random = Math.random()) {
  return Math.min(FIRST_PAUSE_MS * 2 ** attempt, LONGEST_PAUSE_MS) * (0.75 + random / 2);
}

/**
 * Parses a control message of the relay; returns null for any other text.
 * @param {string} text
 * @returns {ControlMessage | null}
 */
export function parseControl(text) {
  try {
    const message = JSON.parse(text);
    return message && typeof message === 'object' && typeof message.type === 'string' ? message : null;
  } catch {
    return null;
  }
}

/**
 * Events: 'up', 'down', 'heard' for each message of the relay, 'control' (detail: ControlMessage), 'envelope'
 * (detail: ArrayBuffer).
 */
export class Link extends EventTarget {
  #url;
  /** @type {WebSocket | null} */
  #socket = null;
  #up = false;
  #wanted = false;
  #attempt = 0;
  /** @type {number | null} */
  #browserRoundTrip = null;
  /** @type {number | null} */
  #machineRoundTrip = null;
  /**
   * The ping that is not answered yet.
   * @type {{id: number, at: number} | null}
   */
  #ping = null;
  #pings = 0;
  #lastReceived = 0;
  #upSince = 0;
  #parts = new PartJoiner();
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  #retryTimer;
  /** @type {ReturnType<typeof setInterval> | undefined} */
  #pingTimer;

  constructor(/** @type {string} */ url) {
    super();
    this.#url = url;
  }

  get up() {
    return this.#up;
  }

  /** True from start() to stop(), whether the link is up or not. */
  get wanted() {
    return this.#wanted;
  }

  /** The round trip from browser to relay in milliseconds, null while unknown. */
  get browserRoundTrip() {
    return this.#browserRoundTrip;
  }

  /** The round trip from relay to machine in milliseconds, null while unknown. */
  get machineRoundTrip() {
    return this.#machineRoundTrip;
  }

  /** Sent bytes that the browser has not passed to the network yet. */
  get backlog() {
    return this.#socket?.bufferedAmount ?? 0;
  }

  /** True when a ping has been unanswered for longer than is usual on a healthy link. */
  get unstable() {
    return this.#ping !== null && performance.now() - this.#ping.at > UNSTABLE_AFTER_MS;
  }

  /** Milliseconds since the relay was last heard; 0 while nothing is expected from it. */
  get silence() {
    return this.#ping ? performance.now() - Math.max(this.#lastReceived, this.#upSince) : 0;
  }

  start() {
    this.#wanted = true;
    this.#connect();
  }

  stop() {
    this.#wanted = false;
    clearTimeout(this.#retryTimer);
    this.#lose();
  }

  /** Connects now instead of after the pause. */
  connectNow() {
    if (!this.#wanted || this.#socket) return;
    clearTimeout(this.#retryTimer);
    this.#connect();
  }

  /** @param {object} message @returns {boolean} false when the link is down */
  sendControl(message) {
    if (this.#up) this.#socket?.send(JSON.stringify(message));
    return this.#up;
  }

  /** @param {Uint8Array<ArrayBuffer>} bytes @returns {boolean} false when the link is down */
  sendEnvelope(bytes) {
    if (this.#up) this.#socket?.send(bytes);
    return this.#up;
  }

  #connect() {
    const socket = new WebSocket(this.#url, SUBPROTOCOL);
    socket.binaryType = 'arraybuffer';
    this.#socket = socket;
    socket.onopen = () => this.#opened();
    socket.onclose = () => socket === this.#socket && this.#lose();
    socket.onmessage = ({ data }) => socket === this.#socket && this.#receive(data);
  }

  #opened() {
    this.#up = true;
    this.#upSince = performance.now();
    this.#attempt = 0;
    this.#pingTimer = setInterval(() => this.#checkPing(), PING_INTERVAL_MS);
    emit(this, 'up');
    this.#checkPing();
  }

  #lose() {
    const socket = this.#socket;
    this.#socket = null;
    this.#up = false;
    this.#ping = null;
    this.#browserRoundTrip = null;
    this.#machineRoundTrip = null;
    this.#parts.clear();
    clearInterval(this.#pingTimer);
    socket?.close();
    if (this.#wanted) this.#retryTimer = setTimeout(() => this.#connect(), backOff(this.#attempt++));
    emit(this, 'down');
  }

  #receive(/** @type {unknown} */ data) {
    this.#lastReceived = performance.now();
    emit(this, 'heard');
    const whole = data instanceof ArrayBuffer ? this.#parts.join(data) : data;
    if (whole instanceof ArrayBuffer) emit(this, 'envelope', whole);
    const message = typeof whole === 'string' ? parseControl(whole) : null;
    if (message?.type === 'pong' && message.id === this.#ping?.id) this.#receivePong(message);
    else if (message && message.type !== 'alive') emit(this, 'control', message);
  }

  /**
   * Sends a ping, or checks how long the previous ping has been unanswered. Only one ping is open at a time,
   * so that the measured round trip includes a stall of the link.
   */
  #checkPing() {
    const now = performance.now();
    if (this.#ping) {
      if (now - Math.max(this.#ping.at, this.#lastReceived) > DEAD_AFTER_MS) this.#lose();
      return;
    }
    this.#ping = { id: ++this.#pings, at: now };
    this.sendControl({ type: 'ping', id: this.#ping.id });
  }

  #receivePong(/** @type {ControlMessage} */ { id, round_trip_ms: machine }) {
    if (!this.#ping || id !== this.#ping.id) return;
    this.#browserRoundTrip = performance.now() - this.#ping.at;
    this.#machineRoundTrip = typeof machine === 'number' && Number.isFinite(machine) ? machine : null;
    this.#ping = null;
  }
}
