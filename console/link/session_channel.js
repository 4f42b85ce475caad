// The messages of one session between the console and the machine, carried by the link to the relay.
import { emit, onDetail } from '../base/custom_events.js';
import { decodeEnvelope, encodeEnvelope, encodeJson } from './envelope.js';
import { RIGHTS } from './rights.js';

/** @typedef {import('./link.js').ControlMessage} ControlMessage */
/** @typedef {(payload: Uint8Array<ArrayBuffer>) => void} MessageHandler */
/**
 * A message of the machine that the relay dropped because of its size. type: one of Msg. bytes: its length
 * with the header.
 * @typedef {{type: number, bytes: number}} TooLarge
 */

/**
 * What the relay has kept of an interrupted session: its transfers, and the counts of its uploads.
 * @typedef {{transfers?: unknown, uploads?: unknown, [other: string]: unknown}} Kept
 */

/**
 * The channel is open from the acceptance of a session until its end. It is closed and opened again when the session is
 * interrupted. Messages that are sent while the channel is closed are dropped; received messages of another session are
 * ignored. Events: 'open' (detail: Kept), 'closed', 'over' after it when the session will not return, 'too-large'
 * (detail: TooLarge) and 'rights' after a change of the rights in the open session (detail: the granted rights before
 * it).
 */
export class SessionChannel extends EventTarget {
  #link;
  /** @type {Map<number, MessageHandler>} */
  #handlers = new Map();
  /** @type {number | null} the relay's number of the session; null while the channel is closed */
  #session = null;
  /** @type {number | null} the session that is open or may return */
  #last = null;
  #agent = '';
  /** @type {Set<import('./rights.js').Right>} */
  #rights = new Set(RIGHTS);
  #granted = this.#rights;

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

  /** Whether the channel is closed and its session may return. */
  get isInterrupted() {
    return this.#session === null && this.#last !== null;
  }

  /** The id of the machine of the session that is open or was open last; '' before the first. */
  get agent() {
    return this.#agent;
  }

  /** The representative's rights that have an effect in the session that is open or was open last. */
  get rights() {
    return this.#rights;
  }

  /** The representative's rights, also those without effect, for instance while another person has the control. */
  get granted() {
    return this.#granted;
  }

  /** Whether the session is open and the representative has one of the rights. */
  may(/** @type {import('./rights.js').Right[]} */ ...rights) {
    return this.isOpen && rights.some((right) => this.#rights.has(right));
  }

  /**
   * @param {number} session
   * @param {string} agent
   * @param {Set<import('./rights.js').Right>} [rights] those that have an effect
   * @param {Set<import('./rights.js').Right>} [granted] all
   * @param {Kept} [kept]
   */
  open(session, agent, rights = new Set(RIGHTS), granted = rights, kept = {}) {
    if (session !== this.#last) this.#end();
    this.#last = session;
    this.#session = session;
    this.#agent = agent;
    this.#rights = rights;
    this.#granted = granted;
    emit(this, 'open', kept);
  }

  /**
   * Changes the rights in the open session.
   * @param {Set<import('./rights.js').Right>} rights those that have an effect
   * @param {Set<import('./rights.js').Right>} [granted] all
   */
  changeRights(rights, granted = rights) {
    const before = this.#granted;
    this.#rights = rights;
    this.#granted = granted;
    emit(this, 'rights', before);
  }

  /** @param {boolean} [mayReturn] whether the session is only interrupted; it can be over later by another call */
  close(mayReturn = false) {
    const wasOpen = this.isOpen;
    this.#session = null;
    if (wasOpen) emit(this, 'closed');
    if (!mayReturn) this.#end();
  }

  #end() {
    const wasKnown = this.#last !== null;
    this.#last = null;
    if (wasKnown) emit(this, 'over');
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

  /** Sends the relay a message about the open session. @param {object} message without the session's number */
  sendControl(message) {
    return this.#session !== null && this.#link.sendControl({ session: this.#session, ...message });
  }

  /**
   * Asks the relay to close the machine's connection, which also ends this session and every transfer that
   * the machine still sends. The machine connects again within about a second.
   * @returns {boolean} false when no session is open or the link is down
   */
  cutMachine() {
    return this.sendControl({ type: 'cut' });
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
