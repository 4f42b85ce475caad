// A simulated machine: speaks the agent's protocol to a relay, records what it receives and answers as the
// test specifies.
import WebSocket, { WebSocketServer } from 'ws';
import { decodeEnvelope, encodeEnvelope, encodeJson, readJson } from '../../../console/link/envelope.js';
import { LinkMsg, Msg } from '../../../console/link/messages.js';
import { until } from './waiting.mjs';

// For other tests that need a WebSocket: packages are found from this folder only.
export { WebSocket, WebSocketServer };

export const AgentMsg = Object.freeze({ ...LinkMsg, ...Msg });

/** The length of an event in bytes, indexed by the event's first byte. */
const EVENT_BYTES = [0, 5, 3, 3, 7];

/** @typedef {{consent?: 'accept' | 'decline' | 'none', name?: string, machine?: string,
 *   hardware?: string}} AgentOptions */
/**
 * A received message; `json` is its payload read as JSON, or {} when the payload is not a JSON object.
 * @typedef {{type: number, session: number, payload: Uint8Array<ArrayBuffer>, json: Record<string, unknown>}}
 *   Message
 */

/** The events of a batch, each as its bytes; throws when the batch does not match its count. */
function eventsOf(/** @type {Uint8Array} */ payload) {
  const events = [];
  let at = 1;
  for (let i = 0; i < payload[0]; i++) {
    const size = EVENT_BYTES[payload[at]];
    if (!size || at + size > payload.length) throw new Error(`a broken batch: ${payload}`);
    events.push([...payload.subarray(at, at + size)]);
    at += size;
  }
  if (at !== payload.length) throw new Error(`excess bytes in a batch: ${payload}`);
  return events;
}

let computers = 0;

export class ScriptedAgent {
  /** @type {Message[]} messages of the relay that next() has not removed yet */
  inbox = [];
  /** @type {number[][]} input events, the oldest first, each as its bytes */
  inputs = [];
  session = 0;
  /** @type {string | undefined} assigned by the relay */
  id;
  /** @type {string | undefined} assigned by the relay */
  secret;
  /** Called with the settings of each start of a stream. */
  onStream = (/** @type {Record<string, unknown>} */ _settings) => {};
  /** Called for each received message, after it is recorded. */
  onReceived = () => {};
  /** @type {WebSocket | null} */
  #socket = null;
  #lastStamp = 0;
  /** The session of the question that is on the screen; 0 for none. */
  #box = 0;
  /** Whether a withdrawn question disappears from the screen. */
  closesBox = true;

  /** @param {import('./relay.mjs').Relay} relay @param {AgentOptions} [options] */
  constructor(
    relay,
    {
      name = 'Sæfari',
      machine = 'SAEFARI-BRIDGE',
      consent = 'accept',
      hardware = `hardware ${++computers}`,
    } = {},
  ) {
    this.relay = relay;
    this.name = name;
    this.machine = machine;
    this.consent = consent;
    this.hardware = hardware;
  }

  /** @param {import('./relay.mjs').Relay} relay @param {AgentOptions} [options] */
  static async online(relay, options) {
    const agent = new ScriptedAgent(relay, options);
    await agent.connect();
    return agent;
  }

  get socket() {
    if (!this.#socket) throw new Error('the machine has never connected');
    return this.#socket;
  }

  /** Connects and logs in; the first call enrols the machine. Rejects with the code of a refusal. */
  async connect() {
    const url = `wss://localhost:${this.relay.port}/link`;
    const socket = new WebSocket(url, 'vantelink.v1', { rejectUnauthorized: false });
    this.#socket = socket;
    socket.on('message', (data) => this.#receive(/** @type {Buffer} */ (data)));
    socket.on('error', () => {});
    await new Promise((done, failed) => socket.once('open', done).once('error', failed));
    this.sendJson(AgentMsg.Hello, 0, { role: 'agent' });
    if (this.id)
      this.sendJson(AgentMsg.Login, 0, { agent_id: this.id, secret: this.secret, name: this.name });
    else await this.#enrol();
    const answer = await until('the answer to the log-in', () => {
      const taken = this.#take([AgentMsg.LoginResult, AgentMsg.Error]);
      return taken ?? (socket.readyState === WebSocket.CLOSED && 'closed');
    });
    if (answer === 'closed') throw new Error('the relay closed the connection');
    if (answer.type === AgentMsg.Error) throw new Error(String(answer.json.code));
  }

  /** Ends the connection without a closing handshake. */
  drop() {
    this.socket.terminate();
  }

  /** @param {number} type @param {number} session @param {Uint8Array} payload of any length */
  send(type, session, payload) {
    const header = encodeEnvelope(type, session);
    new DataView(header.buffer).setUint32(6, payload.length);
    this.socket.send(Buffer.concat([header, payload]));
  }

  /** @param {number} type @param {number} session @param {object} value */
  sendJson(type, session, value) {
    this.socket.send(encodeJson(type, session, value));
  }

  rename(/** @type {string} */ name) {
    this.name = name;
    this.sendJson(AgentMsg.NameUpdate, 0, { name });
  }

  /** Waits for the next message of this type and removes it from the inbox. @returns {Promise<Message>} */
  async next(/** @type {number} */ type) {
    return until(`the machine receives a message of type ${type}`, () => this.#take([type]));
  }

  /** Removes the first message of one of these types from the inbox. */
  #take(/** @type {number[]} */ types) {
    const at = this.inbox.findIndex(({ type }) => types.includes(type));
    return at < 0 ? undefined : this.inbox.splice(at, 1)[0];
  }

  /** Waits for the next `count` input events and removes them from `inputs`. */
  async events(/** @type {number} */ count) {
    await until(`${count} input events`, () => {
      if (this.inputs.length < count) throw new Error(JSON.stringify(this.inputs));
      return true;
    });
    return this.inputs.splice(0, count);
  }

  /** Whether a message of this type is in the inbox. */
  has(/** @type {number} */ type) {
    return this.inbox.some((message) => message.type === type);
  }

  accept(/** @type {number} */ session) {
    this.session = session;
    this.#box = 0;
    this.send(AgentMsg.SessionAccept, session, new Uint8Array(0));
  }

  decline(/** @type {number} */ session) {
    this.#box = 0;
    this.sendJson(AgentMsg.SessionReject, session, { reason: 'declined' });
  }

  /** @param {{codec?: string, width: number, height: number, monitor?: number}} config */
  config({ codec = 'mjpeg', width, height, monitor = 0 }) {
    this.sendJson(AgentMsg.StreamConfig, this.session, { codec, w: width, h: height, monitor_id: monitor });
  }

  /** @param {Uint8Array} data @param {number} [stampUs] the time of its capture, by default now */
  frame(data, stampUs = this.#now()) {
    const payload = new Uint8Array(8 + data.length);
    new DataView(payload.buffer).setBigUint64(0, BigInt(stampUs), true);
    payload.set(data, 8);
    this.send(AgentMsg.StreamFrame, this.session, payload);
  }

  /** @param {{monitor: number, count: number, width: number, height: number, jpeg: Uint8Array}} thumbnail */
  thumbnail({ monitor, count, width, height, jpeg }) {
    const payload = new Uint8Array(6 + jpeg.length);
    const view = new DataView(payload.buffer);
    payload.set([monitor, count]);
    view.setUint16(2, width, true);
    view.setUint16(4, height, true);
    payload.set(jpeg, 6);
    this.send(AgentMsg.Thumbnail, this.session, payload);
  }

  /** Strictly increasing microseconds. */
  #now() {
    this.#lastStamp = Math.max(this.#lastStamp + 1, Math.round(performance.now() * 1000));
    return this.#lastStamp;
  }

  async #enrol() {
    const names = { name: this.name, machine_name: this.machine };
    this.sendJson(AgentMsg.Enroll, 0, { ...names, os: 'windows', hw_id: this.hardware });
    const { json } = await this.next(AgentMsg.EnrollResult);
    this.id = String(json.agent_id);
    this.secret = String(json.agent_secret);
  }

  #receive(/** @type {Buffer} */ data) {
    const envelope = decodeEnvelope(new Uint8Array(data).buffer);
    if (!envelope) throw new Error('the relay sent something that is not an envelope');
    const { type, session, payload } = envelope;
    const json = readJson(payload) ?? {};
    if (type === AgentMsg.Heartbeat) this.sendJson(AgentMsg.Heartbeat, 0, json);
    else if (type === AgentMsg.InputEvent) this.inputs.push(...eventsOf(payload));
    else this.inbox.push({ type, session, payload, json });
    if (type === AgentMsg.SessionRequest && this.consent === 'accept') this.accept(session);
    if (type === AgentMsg.SessionRequest && this.consent === 'decline') this.decline(session);
    if (type === AgentMsg.SessionRequest && this.consent === 'none') this.#box = session;
    // The box of a withdrawn question closes, which the agent reports as an answer.
    if (type === AgentMsg.SessionEnd && session === this.#box && this.closesBox) this.decline(session);
    if (type === AgentMsg.StreamStart) {
      this.session = session;
      this.onStream(json);
    }
    this.onReceived();
  }
}
