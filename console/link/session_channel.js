// The messages of one session between the console and the machine, carried by the link to the relay.
import { emit, onDetail } from '../base/custom_events.js';
import { decodeEnvelope, encodeEnvelope, encodeJson } from './envelope.js';

/** @typedef {import('./link.js').ControlMessage} ControlMessage */
/** @typedef {(payload: Uint8Array<ArrayBuffer>) => void} MessageHandler */
/**
 * A message of the machine that the relay dropped because of its size. type: one of Msg. bytes: its length
 * with the header.
 * @typedef {{type: number, bytes: number}} TooLarge
 */

/**
 * The channel is open from the acceptance of a session until its end. Messages that are sent while the
 * channel is closed are dropped; received messages of another session are ignored. Events: 'open', 'closed'
 * and 'too-large' (detail: TooLarge).
 */
export class SessionChannel extends EventTarget {
  #link;
  /** @type {Map<number, MessageHandler>} */
  #handlers = new Map();
  /** @type {number | null} the relay's number of the session; null while the channel is closed */
  #session = null;
  #agent = '';

  /** @param {import('./link.js').Link} link */
  constructor(link) {
    super();
    this.#link = link;
    onDetail(link, 'envelope', (/** @type {ArrayBuffer} */ buffer) => this.#receive(buffer));
    onDetail(link, 'control', (/** @type {ControlMessage} */ message) => this.#receiveControl(message));
  }

  get isOpen() {
    return this.#session !== null;
  }

  get session() {
    return this.#session;
  }

  /** The id of the machine of the session that is open or was open last; '' before the first. */
  get agent() {
    return this.#agent;
  }

  open(/** @type {number} */ session, /** @type {string} */ agent) {
    this.#session = session;
    this.#agent = agent;
    emit(this, 'open');
  }

  close() {
    if (!this.isOpen) return;
    this.#session = null;
    emit(this, 'closed');
  }

  /** Sets the handler of the machine's messages of one type. */
  handle(/** @type {number} */ type, /** @type {MessageHandler} */ handler) {
    this.#handlers.set(type, handler);
  }

  /** @param {number} type one of Msg @param {Uint8Array} [payload] */
  send(type, payload) {
    if (this.#session !== null) this.#link.sendEnvelope(encodeEnvelope(type, this.#session, payload));
  }

  /** @param {number} type one of Msg @param {object} value */
  sendJson(type, value) {
    if (this.#session !== null) this.#link.sendEnvelope(encodeJson(type, this.#session, value));
  }

  /**
   * Asks the relay to close the machine's connection, which also ends this session and every transfer that
   * the machine still sends. The machine connects again within about a second.
   * @returns {boolean} false when no session is open or the link is down
   */
  cutMachine() {
    return this.#session !== null && this.#link.sendControl({ type: 'cut', session: this.#session });
  }

  #receive(/** @type {ArrayBuffer} */ buffer) {
    const envelope = decodeEnvelope(buffer);
    if (!envelope || envelope.session !== this.#session) return;
    this.#handlers.get(envelope.type)?.(envelope.payload);
  }

  #receiveControl(/** @type {ControlMessage} */ { type, session, message, bytes }) {
    if (type !== 'too-large' || this.#session === null || session !== this.#session) return;
    if (typeof message === 'number' && typeof bytes === 'number')
      emit(this, 'too-large', { type: message, bytes });
  }
}
