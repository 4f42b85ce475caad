// One session of a representative with a machine, and the checks of all that arrives in it.
import { encodeEnvelope, encodeJson, readJson } from '../../console/link/envelope.js';
import { Msg } from '../../console/link/messages.js';
import { sha256 } from './machines.mjs';
import { PictureCheck } from './pictures.mjs';
import { Transfers } from './transfers.mjs';

/** @typedef {import('./representative.mjs').Representative} Representative */
/** @typedef {import('./machines.mjs').Machine} Machine */
/** @typedef {import('../../console/link/link.js').ControlMessage} ControlMessage */
/** @typedef {{session: number, steers: boolean}} Viewer */
/** @typedef {{codec: string, w: number, h: number, monitor_id: number}} Config */

/** The relay reads at most so many pictures of a report. */
const MOST_REPORTED = 60;
const CLIP_FILES = 3;

export class Session {
  number = 0;
  /** @type {'asked' | 'waiting' | 'accepted' | 'ended'} */
  state = 'asked';
  /** Why the session has ended. */
  reason = '';
  /** Whether the representative has ended the session. */
  closing = false;
  /** Whether an answer to resume() has not come yet. */
  resuming = false;
  steers = false;
  /** The session of the machine that steers, 0 for none, -1 while that is unknown; and when it changed last. */
  steering = -1;
  steeringChanged = Number.NEGATIVE_INFINITY;
  /** Whether the representative has started the stream. */
  streaming = false;
  /** The monitor of the last picture. */
  monitor = -1;
  /** How many pictures have arrived. */
  frames = 0;
  /** The last configuration of the stream. @type {Config | null} */
  config = null;
  /** @type {Record<string, unknown> | null} */
  listing = null;
  thumbnails = 0;
  #pictures;
  /** Stamps and times of arrival that have not been reported. @type {[number, number][]} */
  #shown = [];

  /** @param {Representative} owner @param {Machine} machine */
  constructor(owner, machine) {
    this.owner = owner;
    this.machine = machine;
    this.world = owner.world;
    this.transfers = new Transfers(this);
    this.#pictures = new PictureCheck(this);
  }

  get label() {
    return `session ${this.number} of ${this.owner.name} with ${this.machine.name}`;
  }

  /** Why nothing more can be expected of the session. @returns {string | false} */
  get over() {
    if (this.state === 'ended') return `the session has ended: ${this.reason}`;
    return !this.owner.connected && 'the connection has ended';
  }

  /**
   * Waits for a condition of this session; see World.until().
   * @template T @param {string} what @param {() => T | Promise<T>} condition
   * @param {(since: number) => boolean} [excused]
   */
  until(what, condition, excused) {
    const rules = { machine: this.machine.name, over: () => this.over, excused };
    return this.world.until(`${this.label}: ${what}`, condition, rules);
  }

  send(/** @type {number} */ type, /** @type {Uint8Array} */ payload = new Uint8Array(0)) {
    this.owner.envelope(encodeEnvelope(type, this.number, payload));
  }

  sendJson(/** @type {number} */ type, /** @type {object} */ value) {
    this.owner.envelope(encodeJson(type, this.number, value));
  }

  command(/** @type {object} */ message) {
    this.owner.control({ session: this.number, ...message });
  }

  startStream(/** @type {object} */ settings) {
    this.streaming = true;
    this.#pictures.mayRepeat();
    this.sendJson(Msg.StreamStart, settings);
  }

  /** A message of the machine. @param {number} type @param {Uint8Array<ArrayBuffer>} payload */
  receive(type, payload) {
    if (this.state !== 'accepted') {
      this.world.wrong(`${this.label}: a message of type ${type} while it is ${this.state} (${this.reason})`);
      return;
    }
    if (type === Msg.StreamConfig) this.#configure(payload);
    else if (type === Msg.StreamFrame) this.#frame(payload);
    else if (type === Msg.ClipboardData) this.#clip(payload);
    else if (type === Msg.DirListResult) this.listing = readJson(payload);
    else if (type === Msg.Thumbnail) this.#thumbnail(payload);
    else if (type === Msg.FileChunk) this.transfers.chunk(payload);
    else if (type === Msg.FileTransferEnd) this.transfers.end(readJson(payload) ?? {});
    else this.world.wrong(`${this.label}: a message of type ${type}`);
  }

  /** A control message of the relay about this session. */
  control(/** @type {ControlMessage} */ message) {
    if (message.type === 'session') this.#changed(message);
    if (message.type === 'viewers') this.#viewers(/** @type {Viewer[]} */ (message.viewers));
    if (message.type === 'uploaded') this.transfers.uploaded(Number(message.bytes));
    if (message.type === 'continued') this.transfers.continued(message);
    if (message.type === 'too-large') this.world.wrong(`${this.label}: ${JSON.stringify(message)}`);
  }

  /** Says which pictures were displayed, as the console does. */
  report() {
    if (!this.#shown.length || this.state !== 'accepted') return;
    const at = performance.now();
    const pictures = this.#shown.splice(0, MOST_REPORTED).map(([stamp, then]) => [stamp, at - then, 1, 1]);
    this.command({ type: 'shown', at, pictures });
  }

  #changed(/** @type {ControlMessage} */ message) {
    this.world.note(`${this.label}: ${message.state} ${message.reason ?? ''}`);
    this.owner.changed = performance.now();
    if (message.state === 'waiting') this.state = 'waiting';
    if (message.state === 'accepted') this.#accepted(message);
    if (message.state === 'ended') this.#ended(String(message.reason));
  }

  #accepted(/** @type {ControlMessage} */ message) {
    if (this.state !== 'accepted') this.world.counts.accepted++;
    this.state = 'accepted';
    this.#pictures.mayRepeat();
    if (message.resumed !== true) return;
    this.resuming = false;
    this.world.counts.resumed++;
    this.transfers.resumed(message);
  }

  #ended(/** @type {string} */ reason) {
    const asked = this.state !== 'accepted';
    this.state = 'ended';
    this.reason = reason;
    this.machine.disturbed = performance.now();
    if (asked) {
      this.machine.refused.push(performance.now());
      if (reason !== 'declined') this.machine.unanswered = performance.now();
    }
    const machine = this.machine.name;
    if (reason === 'closed' && this.closing) return;
    if (reason === 'declined' && asked) return this.#checkRefusal();
    const ofFaults = ['agent-gone', 'replaced', 'no-answer', 'gone'];
    if (ofFaults.includes(reason) && this.world.excuses(machine, this.owner.since)) return;
    this.world.wrong(`${this.label} has ended: ${reason}`);
  }

  /** The machine's own words arrive by another path than the relay's, maybe later. */
  #checkRefusal() {
    this.world.counts.declined++;
    const { answers, name } = this.machine;
    // A request that was withdrawn is answered too, when its box closes.
    const refused = () => this.closing || answers.get(this.number) === false;
    this.world.until(`${this.label} was refused by its user`, refused, { machine: name }).catch(() => {});
  }

  #viewers(/** @type {Viewer[]} */ viewers) {
    const steered = this.steers;
    const steering = viewers.find(({ steers }) => steers)?.session ?? 0;
    if (steering !== this.steering && this.steering >= 0) this.steeringChanged = performance.now();
    this.steering = steering;
    this.steers = steering === this.number;
    if (viewers.filter(({ steers }) => steers).length > 1)
      this.world.wrong(`${this.label}: several sessions steer: ${JSON.stringify(viewers)}`);
    if (steered !== this.steers) this.owner.changed = performance.now();
  }

  #configure(/** @type {Uint8Array} */ payload) {
    this.config = /** @type {Config | null} */ (/** @type {unknown} */ (readJson(payload)));
    if (!this.config?.w || !this.config.h || !/^(h264|mjpeg)$/.test(this.config.codec))
      this.world.wrong(`${this.label}: the configuration ${JSON.stringify(this.config)}`);
    this.#pictures.configured();
  }

  #frame(/** @type {Uint8Array} */ payload) {
    this.frames++;
    this.world.counts.frames++;
    const stamp = this.#pictures.check(payload, this.config);
    this.#shown.push([stamp, performance.now()]);
    if (this.#shown.length > MOST_REPORTED) this.#shown.shift();
  }

  #clip(/** @type {Uint8Array} */ payload) {
    const hash = sha256(payload);
    if (this.machine.clips.has(hash)) {
      this.machine.clips.set(hash, true);
      this.world.counts.clips++;
    } else if (this.machine.speaks) {
      this.world.wrong(
        `${this.label}: a clip of kind ${payload[0]} and ${payload.length} bytes that nobody sent`,
      );
    } else if (payload[0] < 1 || payload[0] > CLIP_FILES) {
      this.world.wrong(`${this.label}: a clip of kind ${payload[0]}`);
    }
  }

  #thumbnail(/** @type {Uint8Array} */ payload) {
    this.thumbnails++;
    if (payload[0] >= payload[1]) this.world.wrong(`${this.label}: thumbnail ${payload[0]} of ${payload[1]}`);
    this.#pictures.checkThumbnail(payload.subarray(6));
  }
}
