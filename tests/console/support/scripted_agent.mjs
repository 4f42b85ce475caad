// A machine for a test: speaks the agent's wire to a relay, records what it is sent and answers as the test says.
import WebSocket from 'ws';
import { decodeEnvelope, encodeEnvelope, encodeJson, readJson } from '../../../console/link/envelope.js';
import { LinkMsg, Msg } from '../../../console/link/messages.js';
import { until } from './waiting.mjs';

export const AgentMsg = Object.freeze({ ...LinkMsg, ...Msg });

const EVENT_BYTES = [0, 5, 3, 3, 7];

/** The events of a batch, each as its bytes; throws when the batch is not exactly what its count says. */
function eventsOf(payload) {
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

export class ScriptedAgent {
  /** @param {{consent?: 'accept' | 'decline' | 'none', name?: string, machine?: string}} [options] */
  constructor(relay, { name = 'Sæfari', machine = 'SAEFARI-BRIDGE', consent = 'accept' } = {}) {
    Object.assign(this, { relay, name, machine, consent });
    /** Messages of the relay that no next() has taken yet. */
    this.inbox = [];
    /** Input events, oldest first, as lists of bytes. */
    this.inputs = [];
    this.session = 0;
    this.started = 0;
    /** Called with the settings of each start of stream. */
    this.onStream = () => {};
  }

  static async online(relay, options) {
    const agent = new ScriptedAgent(relay, options);
    await agent.connect();
    return agent;
  }

  async connect() {
    const socket = new WebSocket(`wss://localhost:${this.relay.port}/link`, 'vantelink.v1', {
      rejectUnauthorized: false,
    });
    this.socket = socket;
    socket.on('message', (data) => this.receive(data));
    socket.on('error', () => {});
    await new Promise((done, failed) => socket.once('open', done).once('error', failed));
    this.sendJson(AgentMsg.Hello, 0, { role: 'agent' });
    if (this.id) {
      this.sendJson(AgentMsg.Login, 0, { agent_id: this.id, secret: this.secret, name: this.name });
    } else {
      this.sendJson(AgentMsg.Enroll, 0, {
        name: this.name,
        machine_name: this.machine,
        os: 'windows',
        hw_id: 'test',
      });
      const { agent_id: id, agent_secret: secret } = readJson(
        (await this.next(AgentMsg.EnrollResult)).payload,
      );
      Object.assign(this, { id, secret });
    }
    await this.next(AgentMsg.LoginResult);
  }

  /** The connection breaks without a close. */
  drop() {
    this.socket.terminate();
  }

  send(type, session, payload) {
    this.socket.send(encodeEnvelope(type, session, payload));
  }

  sendJson(type, session, value) {
    this.socket.send(encodeJson(type, session, value));
  }

  rename(name) {
    this.name = name;
    this.sendJson(AgentMsg.NameUpdate, 0, { name });
  }

  /** The next message of that type, taken out of the inbox; `json` is its payload read as such. */
  async next(type) {
    return until(`the machine gets a message of type ${type}`, () => {
      const at = this.inbox.findIndex((message) => message.type === type);
      return at >= 0 && this.inbox.splice(at, 1)[0];
    });
  }

  /** The next `count` input events, taken out. */
  async events(count) {
    await until(
      `${count} input events (have ${JSON.stringify(this.inputs)})`,
      () => this.inputs.length >= count,
    );
    return this.inputs.splice(0, count);
  }

  accept(session) {
    this.session = session;
    this.send(AgentMsg.SessionAccept, session, new Uint8Array(0));
  }

  decline(session) {
    this.sendJson(AgentMsg.SessionReject, session, { reason: 'declined' });
  }

  config({ codec = 'mjpeg', width, height, monitor = 0 }) {
    this.sendJson(AgentMsg.StreamConfig, this.session, { codec, w: width, h: height, monitor_id: monitor });
  }

  frame(data, stampUs = 1000 * ++this.started) {
    const payload = new Uint8Array(8 + data.length);
    new DataView(payload.buffer).setBigUint64(0, BigInt(stampUs), true);
    payload.set(data, 8);
    this.send(AgentMsg.StreamFrame, this.session, payload);
  }

  /** One monitor's small picture; fewer bytes than a header's worth are possible with `raw`. */
  thumbnail({ monitor, count, width, height, jpeg }) {
    const payload = new Uint8Array(6 + jpeg.length);
    const view = new DataView(payload.buffer);
    payload.set([monitor, count]);
    view.setUint16(2, width, true);
    view.setUint16(4, height, true);
    payload.set(jpeg, 6);
    this.send(AgentMsg.Thumbnail, this.session, payload);
  }

  receive(data) {
    const envelope = decodeEnvelope(new Uint8Array(data).buffer);
    if (!envelope) throw new Error('the relay sent something that is no envelope');
    const { type, session, payload } = envelope;
    if (type === AgentMsg.Heartbeat) this.sendJson(AgentMsg.Heartbeat, 0, readJson(payload));
    else if (type === AgentMsg.InputEvent) this.inputs.push(...eventsOf(payload));
    else this.inbox.push({ ...envelope, json: readJson(payload) });
    if (type === AgentMsg.SessionRequest && this.consent === 'accept') this.accept(session);
    if (type === AgentMsg.SessionRequest && this.consent === 'decline') this.decline(session);
    if (type === AgentMsg.StreamStart) this.onStream(readJson(payload));
  }
}
