// A representative's session with a machine: the request, the consent, and the end. A session is interrupted
// when the link or the machine disconnects. When the link is back, the session is resumed if the relay still holds
// it; otherwise it is requested again as soon as the machine is there.
import { emit, onDetail } from '../base/custom_events.js';
import { byId } from '../base/dom.js';
import { inSentence, nameOf } from '../base/names.js';
import { texts } from '../base/texts.js';
import { rightsOf } from '../link/rights.js';
import { Countdown } from './consent/countdown.js';
import { Held } from './consent/held.js';
import { endText, isInterruption, isOfOthers, refusalText } from './consent/reasons.js';
import { consentTexts } from './consent/texts.js';
import { Overlay } from './overlay.js';
import { PictureNote } from './reports/picture_note.js';
import { Restart } from './restart.js';
import { showTitle } from './title.js';

/**
 * The states of a session: 'none'; 'requested' until the relay has assigned a number to the session;
 * 'waiting' for consent; 'accepted'; 'interrupted' until link and machine are back; 'ended'.
 * @typedef {'none' | 'requested' | 'waiting' | 'accepted' | 'interrupted' | 'ended'} State
 */
/** @typedef {import('../machines/machine_list.js').Machine} Machine */
/** @typedef {import('../link/link.js').ControlMessage} ControlMessage */

/**
 * Keeps the channel open while the session is accepted. Events: 'state' after each change of `state`,
 * 'ending' just before the channel closes, 'starting' when the page says that it waits for the first picture,
 * 'remedy' when the representative chooses what may help when that is late (detail: an action of the message),
 * 'restarting' (detail: {agent, on}), 'question' when something is to be done before the session (detail: 'step-up',
 * 'reason', or 'elsewhere' for a machine at another relay), 'returning' before the channel opens (detail: Return),
 * 'place' when the page can return to another session than before (detail: its number, null for none), 'left' (detail:
 * a remark for the list of machines, '' for none).
 * @typedef {{streaming: boolean, choices: unknown}} Return the machine streams already; what was chosen in the session
 */
export class Session extends EventTarget {
  #link;
  #channel;
  #restart;
  #overlay;
  #note;
  #countdown = new Countdown();
  #strips;
  /** @type {number | null} the relay's number of the session */
  #number = null;
  #held;
  /** @type {Machine[]} */
  #machines = [];
  #agent = '';
  #name = '';
  /** @type {{name: string, role: string} | null} the representative */
  person = null;
  /** Why the representative asks for the session; '' if nobody wants to know. */
  #reason = '';

  /**
   * @param {import('../link/link.js').Link} link
   * @param {import('../link/session_channel.js').SessionChannel} channel
   * @param {import('./reports/strips.js').Strips} strips
   */
  constructor(link, channel, strips) {
    super();
    this.#link = link;
    this.#channel = channel;
    this.#strips = strips;
    this.#held = new Held(link);
    this.#overlay = new Overlay({
      again: () => this.#request(),
      here: () => this.#request(),
      giveUp: () => this.leave(),
      back: () => this.leave(),
      restartPicture: () => emit(this, 'remedy', 'restartPicture'),
      nextDisplay: () => emit(this, 'remedy', 'nextDisplay'),
      wake: () => emit(this, 'remedy', 'wake'),
      useJpeg: () => emit(this, 'remedy', 'useJpeg'),
    });
    this.#note = new PictureNote(this.#overlay, {
      isShown: () => this.isAccepted,
      machine: () => this.#name,
      onAwaited: () => emit(this, 'starting'),
    });
    this.#restart = new Restart(channel, strips, () => this.#name);
    onDetail(this.#restart, 'restarting', (/** @type {boolean} */ on) =>
      emit(this, 'restarting', { agent: this.#agent, on }),
    );
    this.#state = 'none';
  }

  /** @returns {State} */
  get #state() {
    return /** @type {State} */ (byId('view-session').dataset.state);
  }

  /** The state is stored in an attribute on the page, which the style sheet uses too. */
  set #state(state) {
    byId('view-session').dataset.state = state;
    if (state !== 'waiting' && state !== 'interrupted') this.#countdown.stop();
    showTitle(state, this.#name);
    emit(this, 'state');
  }

  /** Whether a session is requested or under way; an interrupted session is under way. */
  get inUse() {
    return !['none', 'ended'].includes(this.#state);
  }

  /** The page goes to another relay, where the session continues. */
  depart() {
    this.#stop('ended');
  }

  /** The id of the machine; '' before the first session. */
  get agent() {
    return this.#agent;
  }

  get isAccepted() {
    return this.#state === 'accepted';
  }

  /** Requests a session with a machine. @param {Machine} machine @param {string} [reason] */
  begin(machine, reason = '') {
    this.#reason = reason;
    this.#agent = machine.id;
    this.#held.number = null;
    this.#show(machine);
    this.#request();
  }

  /** Returns to a session with a machine, for instance after the page was loaded again. */
  comeBack(/** @type {string} */ agent, /** @type {number} */ session) {
    this.#reason = '';
    this.#agent = agent;
    this.#held.number = session;
    this.#state = 'interrupted';
    this.#countdown.startCounting();
    this.#showInterrupted();
  }

  /** Requests the session again after an answer to a question of the relay. @param {string} [reason] */
  answer(reason = this.#reason) {
    this.#reason = reason;
    if (this.#state === 'requested') this.#request();
  }

  /** Ends the session, or stops waiting for it. */
  leave() {
    if (this.#state === 'none') return;
    const withdrawn = this.#state === 'requested' || this.#state === 'waiting';
    // A session that has moved to another window goes on there.
    const last = this.#state === 'ended' ? null : (this.#number ?? this.#held.number);
    this.#restart.end();
    this.#stop('none');
    this.#overlay.clear();
    if (last !== null) this.#held.close(last);
    this.#setNumber(null);
    this.#held.number = null;
    if (document.fullscreenElement) document.exitFullscreen();
    emit(this, 'left', withdrawn ? texts.withdrawn(this.#name) : '');
  }

  /** Handles the relay's message about a change of a session. */
  receiveChange(/** @type {ControlMessage} */ message) {
    const { session, agent, state } = message;
    if (typeof session !== 'number') return;
    if (state === 'waiting' || (state === 'accepted' && message.resumed === true)) {
      if (agent === this.#agent && this.#state === 'requested') this.#receiveNumber(session, message);
      // The representative left before the session had a number, so it is closed now.
      else this.#held.close(session);
    }
    if (state === 'ended' && session === this.#held.number && this.#state === 'requested') this.#end(message);
    if (session !== this.#number || !['waiting', 'accepted'].includes(this.#state)) return;
    if (state === 'accepted' && this.isAccepted) this.#channel.changeRights(...rightsOf(message));
    else if (state === 'accepted') this.#start(session, message);
    else if (state === 'ended') this.#end(message);
  }

  #receiveNumber(/** @type {number} */ session, /** @type {ControlMessage} */ { state, seconds }) {
    this.#held.number = null;
    this.#setNumber(session);
    this.#state = 'waiting';
    if (state !== 'waiting') return;
    this.#overlay.show(texts.waiting(this.#name), ['giveUp'], { busy: true });
    this.#countdown.start(Number(seconds));
  }

  #end(/** @type {ControlMessage} */ { session, reason }) {
    this.#held.number = null;
    if (isInterruption(reason)) {
      const isAnswer = this.#state === 'requested';
      this.#interrupt();
      // Otherwise the list does not show yet what has ended the session.
      if (isAnswer) this.machinesChanged(this.#machines);
      return;
    }
    const moved = reason === 'moved' && typeof session === 'number';
    this.#finish(endText(reason, this.#name), moved ? ['here', 'back'] : undefined);
    if (moved) this.#held.number = session;
  }

  /** Handles the relay's refusal of the request. */
  receiveError(/** @type {ControlMessage} */ { message, code, agent, representative }) {
    if (this.#state !== 'requested' || agent !== this.#agent) return;
    if (['step-up', 'reason', 'elsewhere'].includes(String(code))) return emit(this, 'question', code);
    if (code === 'elsewhere') this.#interrupt();
    if (code === 'asked-already') {
      this.#stop('interrupted');
      this.#countdown.startCounting();
      this.#showWait(consentTexts.askedAlready(this.#name));
      return;
    }
    const who = inSentence(String(representative ?? ''));
    this.#finish(refusalText(code, this.#name, who) ?? String(message ?? texts.failed));
  }

  /** Handles the current list of all machines. */
  machinesChanged(/** @type {Machine[]} */ list) {
    this.#machines = list;
    this.#held.linkUp();
    if (this.#state !== 'interrupted') return;
    const machine = list.find(({ id }) => id === this.#agent);
    if (machine) this.#show(machine);
    if (this.#held.number !== null) {
      this.#request();
      return;
    }
    if (machine?.state === 'online' && machine.asked) this.#showWait(consentTexts.askedAlready(this.#name));
    else if (machine?.state === 'online' || isOfOthers(machine, this.person)) this.#request();
    else this.#showInterrupted(machine?.state === 'session' ? (machine.representative ?? '') : '');
  }

  linkLost() {
    this.#machines = [];
    if (!this.inUse) return;
    this.#held.number = this.#number ?? this.#held.number;
    this.#interrupt();
  }

  /** The message over the picture of the accepted session. */
  get note() {
    return this.#note;
  }

  #show(/** @type {Machine} */ machine) {
    this.#name = inSentence(nameOf(machine));
    byId('session-name').textContent = nameOf(machine);
    byId('session-name').title = nameOf(machine);
  }

  #setNumber(/** @type {number | null} */ number) {
    this.#number = number;
    emit(this, 'place', number);
  }

  /** Resumes the session that the relay may hold, or requests a new one. */
  #request() {
    this.#number = null;
    this.#state = 'requested';
    if (this.#held.number !== null) {
      this.#overlay.show(consentTexts.returning, ['giveUp'], { busy: true });
      if (!this.#held.resume()) this.#interrupt();
      return;
    }
    this.#overlay.show(texts.waiting(this.#name), ['giveUp'], { busy: true });
    const reason = this.#reason ? { reason: this.#reason } : {};
    if (!this.#link.sendControl({ type: 'open', agent: this.#agent, ...reason })) this.#interrupt();
  }

  /** @param {number} session @param {ControlMessage} message of the relay */
  #start(session, message) {
    this.#state = 'accepted';
    this.#restart.end();
    this.#note.begin();
    emit(this, 'returning', { streaming: message.streaming === true, choices: message.choices });
    this.#channel.open(session, this.#agent, ...rightsOf(message), message);
  }

  #stop(/** @type {State} */ state) {
    // The event precedes the closing, so that keys that are down can still be released on the machine.
    if (this.#channel.isOpen) emit(this, 'ending');
    this.#state = state;
    this.#channel.close(state === 'interrupted' && this.#held.number !== null);
  }

  /**
   * Ends the session. The last picture stays, in grey, with the reason over it.
   * @param {string} reason
   * @param {import('./overlay.js').Action[]} [offered]
   */
  #finish(reason, offered = ['again', 'back']) {
    this.#stop('ended');
    this.#restart.end();
    this.#setNumber(null);
    this.#overlay.show(reason, offered);
  }

  #interrupt() {
    if (this.#state !== 'interrupted') this.#countdown.startCounting();
    this.#stop('interrupted');
    this.#number = null;
    this.#strips.hide('restart');
    this.#showInterrupted();
  }

  /**
   * @param {string} [holder] the representative who has a session with the machine; this can be the same
   *   representative until the relay notices that the old link is broken
   */
  #showInterrupted(holder = '') {
    if (!this.#link.up) this.#showWait(texts.linkDown);
    else if (holder) this.#showWait(texts.machineTaken(this.#name, inSentence(holder)));
    else if (this.#restart.underWay) this.#showWait(texts.restarting(this.#name));
    else this.#showWait(texts.machineAway(this.#name));
  }

  /** @param {string} text @param {import('./overlay.js').Action[]} [offered] */
  #showWait(text, offered = ['back']) {
    this.#overlay.show(text, offered, { busy: true });
  }
}
