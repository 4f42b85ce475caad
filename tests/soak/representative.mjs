// A representative without a browser: a log-in, its WebSocket to the relay, the list of machines and the
// sessions.

import { decodeEnvelope } from '../../console/link/envelope.js';
import { parseControl } from '../../console/link/link.js';
import { PartJoiner } from '../../console/link/parts.js';
import { Api, Refused } from '../console/support/admin/api.mjs';
import { WebSocket } from '../console/support/scripted_agent.mjs';
import { NOT_ASKED_AGAIN_MS } from './machines.mjs';
import { Session } from './session.mjs';
import { EVERYTHING } from './world.mjs';

/** @typedef {import('./world.mjs').World} World */
/** @typedef {import('./machines.mjs').Machine} Machine */
/** @typedef {import('../console/support/relay.mjs').Relay} Relay */
/** @typedef {import('../../console/link/link.js').ControlMessage} ControlMessage */
/** @typedef {{id: string, name: string, state: string}} Entry a machine in the relay's list */

const PING_MS = 2000;
const REPORT_MS = 250;
/** The relay answers a message about a session that has just ended by an error. */
const LATE_MS = 10_000;
/** What has waited for a representative who did not read arrives within this time. */
const STALE_MS = 5000;
/** The relay may have refused a request before a question was answered that is known to be answered here. */
const QUESTION_GONE_MS = 3000;

export class Representative {
  /** The relay's list of machines, by their ids. @type {Map<string, Entry>} */
  list = new Map();
  /** @type {Map<number, Session>} by their numbers */
  sessions = new Map();
  /** The session whose number the relay has not given yet. @type {Session | null} */
  asking = null;
  /** The error that answered the last request for a session. @type {ControlMessage | null} */
  refusal = null;
  /** Sessions that the relay was asked to resume and has not answered. @type {Set<number>} */
  resuming = new Set();
  /** Whether the connection's end is expected. */
  leaving = false;
  /** When something of a session changed so that the relay may refuse what was sent before. */
  changed = Number.NEGATIVE_INFINITY;
  /** @type {InstanceType<typeof WebSocket> | null} */
  #socket = null;
  #joiner = new PartJoiner();
  #version = 0;
  #stalledAt = Number.POSITIVE_INFINITY;
  #stalledUntil = Number.NEGATIVE_INFINITY;
  #pings = 0;
  #timers = [
    setInterval(() => this.control({ type: 'ping', id: ++this.#pings }), PING_MS),
    setInterval(() => this.#report(), REPORT_MS),
  ];

  /** @param {string} name @param {World} world @param {Relay} relay @param {Machine[]} machines */
  constructor(name, world, relay, machines) {
    this.name = name;
    this.world = world;
    this.relay = relay;
    this.machines = machines;
    this.api = new Api(relay);
  }

  logIn() {
    return this.api.post('login', { name: this.name, password: passwordOf(this.name) });
  }

  get connected() {
    return this.#socket?.readyState === WebSocket.OPEN;
  }

  /** Connects, also again, as soon as the relay takes it. */
  async connect() {
    this.leaving = false;
    const open = () => this.#open().catch((/** @type {Error} */ error) => this.#refused(error));
    await this.world.until(`${this.name} connects`, open, { machine: EVERYTHING });
  }

  /** Destroys the connection without a closing handshake, as a crash of the browser does. */
  drop() {
    this.world.note(`${this.name} drops the connection`);
    this.leaving = true;
    this.#socket?.terminate();
    this.#socket = null;
    this.#joiner.clear();
  }

  /** Stops reading. @returns a function that reads on */
  stall() {
    const socket = this.#socket;
    this.world.note(`${this.name} reads nothing`);
    this.#stalledAt = performance.now();
    this.#stalledUntil = Number.POSITIVE_INFINITY;
    socket?.pause();
    return () => {
      this.world.note(`${this.name} reads again`);
      this.#stalledUntil = performance.now() + STALE_MS;
      socket?.resume();
    };
  }

  /** Since when a fault excuses what arrives now: what waited while nothing was read may be old. */
  get since() {
    const now = performance.now();
    return now < this.#stalledUntil ? Math.min(this.#stalledAt, now) : now;
  }

  close() {
    this.drop();
    for (const timer of this.#timers) clearInterval(timer);
  }

  control(/** @type {object} */ message) {
    if (this.connected) this.#socket?.send(JSON.stringify(message));
  }

  envelope(/** @type {Uint8Array} */ bytes) {
    if (this.connected) this.#socket?.send(bytes);
  }

  /** The machine's entry in the list. @param {string} name */
  entry(name) {
    return [...this.list.values()].find((one) => one.name === name);
  }

  online(/** @type {string} */ name) {
    const state = this.entry(name)?.state;
    return state !== undefined && state !== 'offline';
  }

  #refused(/** @type {Error} */ error) {
    // A restarted relay knows the log-in.
    if (/ 40[13]/.test(error.message) || error instanceof Refused)
      this.world.wrong(`${this.name}: ${error.message}`);
    return false;
  }

  async #open() {
    const [{ name, value }] = this.api.browserState.cookies;
    const origin = new URL(this.relay.url).origin;
    const socket = new WebSocket(`wss://localhost:${this.relay.port}/console`, 'vantelink.console.v5', {
      headers: { Cookie: `${name}=${value}`, Origin: origin },
      rejectUnauthorized: false,
    });
    socket.binaryType = 'arraybuffer';
    socket.on('message', (data, isBinary) => {
      if (socket === this.#socket) this.#receive(isBinary ? /** @type {ArrayBuffer} */ (data) : String(data));
    });
    socket.on('close', (code) => this.#closed(socket, code));
    const opened = new Promise((done, failed) => socket.once('open', done).on('error', failed));
    this.#socket = socket;
    this.#version = 0;
    await opened;
    return true;
  }

  #closed(/** @type {InstanceType<typeof WebSocket>} */ socket, /** @type {number} */ code) {
    if (socket !== this.#socket) return;
    this.#socket = null;
    this.#joiner.clear();
    if (!this.leaving && !this.world.excuses(EVERYTHING, this.since))
      this.world.wrong(`the relay closed ${this.name}'s connection (${code})`);
  }

  #receive(/** @type {ArrayBuffer | string} */ data) {
    const whole = typeof data === 'string' ? data : this.#joiner.join(data);
    this.world.counts.bytes += typeof data === 'string' ? data.length : data.byteLength;
    if (whole === null) return;
    if (typeof whole === 'string') return this.#control(whole);
    const envelope = decodeEnvelope(whole);
    const session = envelope && this.sessions.get(envelope.session);
    if (!session) this.world.wrong(`${this.name} received an envelope of session ${envelope?.session}`);
    else session.receive(envelope.type, envelope.payload);
  }

  #control(/** @type {string} */ text) {
    const message = parseControl(text);
    if (!message) return this.world.wrong(`${this.name} received ${text.slice(0, 200)}`);
    if (message.type === 'agents') this.#wholeList(message);
    else if (message.type === 'agents-changed') this.#changedList(message);
    else if (message.type === 'error') this.#error(message);
    else if (message.type === 'session' && message.state === 'waiting' && this.asking) this.#asked(message);
    else if (typeof message.session === 'number') this.#ofSession(message.session, message);
    else if (message.type === 'transfer')
      for (const one of this.sessions.values()) one.transfers.number(message);
  }

  #ofSession(/** @type {number} */ number, /** @type {ControlMessage} */ message) {
    // A machine without a user to ask accepts before the relay has said that it waits.
    if (
      message.type === 'session' &&
      message.state === 'accepted' &&
      this.asking &&
      !this.sessions.has(number)
    )
      this.#asked(message);
    const session = this.sessions.get(number);
    if (session) session.control(message);
    // The answer to a request to resume a session that has ended before, with the reason of its end.
    else if (message.state === 'ended' && this.resuming.has(number))
      this.world.note(`${this.name}: session ${number} is gone (${message.reason})`);
    else
      this.world.wrong(
        `${this.name} received ${message.type} of session ${number}: ${JSON.stringify(message)}`,
      );
    if (message.type === 'session') this.resuming.delete(number);
  }

  #asked(/** @type {ControlMessage} */ message) {
    const session = this.asking;
    if (!session || typeof message.session !== 'number') return;
    this.asking = null;
    session.number = message.session;
    this.sessions.set(session.number, session);
    if (this.list.get(String(message.agent))?.name !== session.machine.name)
      this.world.wrong(`${this.name} asked for ${session.machine.name} and got ${message.agent}`);
    session.control(message);
  }

  #wholeList(/** @type {ControlMessage} */ { version, agents }) {
    this.#version = Number(version);
    this.list = new Map(/** @type {Entry[]} */ (agents).map((entry) => [entry.id, entry]));
  }

  #changedList(/** @type {ControlMessage} */ { version, changed, removed }) {
    if (version !== ++this.#version)
      this.world.wrong(`${this.name}: version ${version} after ${this.#version - 1}`);
    for (const entry of /** @type {Entry[]} */ (changed)) this.list.set(entry.id, entry);
    for (const id of /** @type {string[]} */ (removed)) this.list.delete(id);
  }

  #error(/** @type {ControlMessage} */ message) {
    const text = JSON.stringify(message);
    this.world.note(`${this.name}: ${text}`);
    if (typeof message.agent === 'string' && this.asking) {
      if (!this.#explains(message, this.asking.machine)) this.world.wrong(`${this.name}: ${text}`);
      this.refusal = message;
      return;
    }
    const late = performance.now() - this.changed < LATE_MS;
    const ofTransfer = [...this.sessions.values()].some((one) => one.transfers.failed(message));
    const excused = this.machines.some(({ name }) => this.world.excuses(name, this.since));
    if (!late && !ofTransfer && !excused) this.world.wrong(`${this.name}: ${text}`);
  }

  /** Whether what is known of the machine explains that a request for a session was refused. */
  #explains(/** @type {ControlMessage} */ { code }, /** @type {Machine} */ machine) {
    const now = performance.now();
    if (code === 'offline') return this.world.excuses(machine.name, this.since);
    // Another representative's question, which may have been answered meanwhile, or one whose answer was
    // lost.
    if (code === 'asked-already' && (machine.questions > 1 || now - machine.questionGone < QUESTION_GONE_MS))
      return true;
    if (code === 'asked-already') return now - machine.unanswered < NOT_ASKED_AGAIN_MS;
    return code === 'asked-too-often' && machine.refused.filter((at) => now - at < 61_000).length >= 3;
  }

  #report() {
    for (const session of this.sessions.values()) session.report();
  }
}

export const passwordOf = (/** @type {string} */ name) => `the password of ${name}`;
