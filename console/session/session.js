// A representative's session with a machine: the request, the consent, and the end. A session is interrupted
// when the link or the machine disconnects, and is requested again when both are back.
import { emit } from '../base/custom_events.js';
import { byId } from '../base/dom.js';
import { inSentence, nameOf } from '../base/names.js';
import { texts } from '../base/texts.js';
import { Overlay } from './overlay.js';
import { Restart } from './restart.js';
import { showTitle } from './title.js';

/**
 * The states of a session: 'none'; 'requested' until the relay has assigned a number to the session;
 * 'waiting' for consent; 'accepted'; 'interrupted' until link and machine are back; 'ended'.
 * @typedef {'none' | 'requested' | 'waiting' | 'accepted' | 'interrupted' | 'ended'} State
 */
/** @typedef {import('../machines/machine_list.js').Machine} Machine */
/** @typedef {import('../link/link.js').ControlMessage} ControlMessage */

/** The relay's reasons for the end of a session after which the machine is expected to come back. */
const INTERRUPTIONS = ['agent-gone', 'replaced'];

/**
 * Keeps the channel open while the session is accepted. Events: 'state' after each change of `state`,
 * 'ending' just before the channel closes, 'starting' when the page says that it waits for the first picture,
 * 'remedy' when the representative chooses what may help when that is late (detail: an action of the message),
 * 'restarting' (detail: {agent, on}), 'left' (detail: a remark for the list of machines, '' for none).
 */
export class Session extends EventTarget {
  #link;
  #channel;
  #restart;
  #overlay;
  #strips;
  /** @type {number | null} the relay's number of the session */
  #number = null;
  #agent = '';
  #name = '';
  /** Whether a picture was drawn since the session was accepted. */
  #hasPicture = false;
  #linkStill = false;

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
    this.#overlay = new Overlay({
      again: () => this.#request(),
      giveUp: () => this.leave(),
      back: () => this.leave(),
      restartPicture: () => emit(this, 'remedy', 'restartPicture'),
      nextDisplay: () => emit(this, 'remedy', 'nextDisplay'),
      wake: () => emit(this, 'remedy', 'wake'),
      useJpeg: () => emit(this, 'remedy', 'useJpeg'),
    });
    this.#restart = new Restart(channel, () => this.#name);
    this.#attachRestart();
    this.#state = 'none';
  }

  /** @returns {State} */
  get #state() {
    return /** @type {State} */ (byId('view-session').dataset.state);
  }

  /** The state is stored in an attribute on the page, which the style sheet uses too. */
  set #state(state) {
    byId('view-session').dataset.state = state;
    showTitle(state, this.#name);
    emit(this, 'state');
  }

  /** Whether a session is requested or under way; an interrupted session is under way. */
  get inUse() {
    return !['none', 'ended'].includes(this.#state);
  }

  get isAccepted() {
    return this.#state === 'accepted';
  }

  /** Requests a session with a machine. */
  begin(/** @type {Machine} */ machine) {
    this.#agent = machine.id;
    this.#name = inSentence(nameOf(machine));
    byId('session-name').textContent = nameOf(machine);
    byId('session-name').title = nameOf(machine);
    this.#request();
  }

  /** Ends the session, or stops waiting for it. */
  leave() {
    if (this.#state === 'none') return;
    const withdrawn = this.#state === 'requested' || this.#state === 'waiting';
    this.#restart.end();
    this.#stop('none');
    this.#overlay.clear();
    if (this.#number !== null) this.#link.sendControl({ type: 'close', session: this.#number });
    this.#number = null;
    if (document.fullscreenElement) document.exitFullscreen();
    emit(this, 'left', withdrawn ? texts.withdrawn(this.#name) : '');
  }

  /** Handles the relay's message about a change of a session. */
  receiveChange(/** @type {ControlMessage} */ { session, agent, state, reason }) {
    if (typeof session !== 'number') return;
    if (state === 'waiting') {
      if (agent === this.#agent && this.#state === 'requested') {
        this.#number = session;
        this.#state = 'waiting';
      } else {
        // The representative left before the session had a number, so it is closed now.
        this.#link.sendControl({ type: 'close', session });
      }
    }
    if (session !== this.#number || !['waiting', 'accepted'].includes(this.#state)) return;
    if (state === 'accepted') this.#start(session);
    if (state !== 'ended') return;
    if (INTERRUPTIONS.includes(String(reason))) this.#interrupt();
    else this.#finish((textIn(texts.ended, String(reason)) ?? texts.ended.other)(this.#name, ''));
  }

  /** Handles the relay's refusal of the request. */
  receiveError(/** @type {ControlMessage} */ { message, code, agent, representative }) {
    if (this.#state !== 'requested' || agent !== this.#agent) return;
    const text = textIn(texts.refused, String(code));
    const who = inSentence(String(representative ?? ''));
    this.#finish(text ? text(this.#name, who) : String(message ?? texts.failed));
  }

  /** Handles the current list of all machines. */
  machinesChanged(/** @type {Machine[]} */ list) {
    if (this.#state !== 'interrupted') return;
    const machine = list.find(({ id }) => id === this.#agent);
    if (machine?.state === 'online') this.#request();
    else this.#showInterrupted(machine?.state === 'session' ? (machine.representative ?? '') : '');
  }

  linkLost() {
    if (this.inUse) this.#interrupt();
  }

  /** Handles the drawing of a frame: removes the message over the picture. */
  frameDrawn() {
    if (!this.isAccepted) return;
    this.#hasPicture = true;
    if (!this.#linkStill) this.#overlay.clear();
  }

  /** Says that the page waits for the first picture, unless there is one. */
  awaitPicture() {
    if (!this.isAccepted || this.#hasPicture) return;
    this.#overlay.show(texts.starting, [], { busy: true });
    emit(this, 'starting');
  }

  /**
   * Says that the first picture is late, unless there is one.
   * @param {(machine: string) => string} text
   * @param {import('./overlay.js').Action[]} offered
   */
  pictureLate(text, offered) {
    if (this.isAccepted && !this.#hasPicture && !this.#linkStill)
      this.#overlay.show(text(this.#name), offered);
  }

  /** Says that nothing is heard on the link, or that something is heard again. */
  linkStill(/** @type {boolean} */ still) {
    if (!this.isAccepted || still === this.#linkStill) return;
    this.#linkStill = still;
    if (still) this.#showWait(texts.linkStill, []);
    else if (this.#hasPicture) this.#overlay.clear();
    else this.awaitPicture();
  }

  #attachRestart() {
    const restart = this.#restart;
    restart.addEventListener('begun', () => {
      this.#strips.show('restart', texts.restartRequested(this.#name));
      emit(this, 'restarting', { agent: this.#agent, on: true });
    });
    restart.addEventListener('over', () => this.#strips.hide('restart'));
    restart.addEventListener('refused', () => {
      emit(this, 'restarting', { agent: this.#agent, on: false });
      this.#strips.show('restart', texts.notRestarted(this.#name));
    });
  }

  #request() {
    this.#number = null;
    this.#state = 'requested';
    this.#overlay.show(texts.waiting(this.#name), ['giveUp'], { busy: true });
    if (!this.#link.sendControl({ type: 'open', agent: this.#agent })) this.#interrupt();
  }

  #start(/** @type {number} */ session) {
    this.#state = 'accepted';
    this.#restart.end();
    this.#hasPicture = false;
    this.#linkStill = false;
    this.awaitPicture();
    this.#channel.open(session, this.#agent);
  }

  #stop(/** @type {State} */ state) {
    // The event precedes the closing, so that keys that are down can still be released on the machine.
    if (this.#channel.isOpen) emit(this, 'ending');
    this.#state = state;
    this.#channel.close();
  }

  /** Ends the session. The last picture stays, in grey, with the reason over it. */
  #finish(/** @type {string} */ reason) {
    this.#stop('ended');
    this.#restart.end();
    this.#number = null;
    this.#overlay.show(reason, ['again', 'back']);
  }

  #interrupt() {
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

/**
 * The text for a code of the relay; undefined for a code that has no text.
 * @param {Record<string, (machine: string, who: string) => string>} table
 * @param {string} code
 */
function textIn(table, code) {
  return Object.hasOwn(table, code) ? table[code] : undefined;
}
