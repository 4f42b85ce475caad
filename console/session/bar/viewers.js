// The people who have a session with the same machine: one of them controls it, and the others watch. Shows who
// they are, and lets the representative ask for the control, give it and take it.
import { onDetail } from '../../base/custom_events.js';
import { byId, make } from '../../base/dom.js';
import { inSentence } from '../../base/names.js';
import { viewersTexts as texts } from './viewers_texts.js';

/** @typedef {{session: number, name: string, steers: boolean, asks: boolean, control: boolean, away: boolean}} Viewer */
/**
 * What the stream shows. preset: the chosen quality, if somebody has chosen one.
 * @typedef {{monitor: number, max_fps: number, codec: string, pointer: boolean, preset?: string}} Shown
 */

/** The controls that choose what the stream shows, for all who watch. */
const CHOICES = '#picture-menu select, #slow-line, #show-pointer, #monitor-picker button';

export class Viewers {
  #channel;
  #link;
  #strips;
  #isAdministrator;
  #onShown;
  #menu = byId('viewers-menu', HTMLDetailsElement);
  #list = byId('viewers-list');
  #steer = byId('viewers-steer', HTMLButtonElement);
  /** @type {Viewer[]} */
  #viewers = [];
  /** @type {Shown | null} */
  #shown = null;

  /**
   * @param {object} parts
   * @param {import('../../link/session_channel.js').SessionChannel} parts.channel
   * @param {import('../../link/link.js').Link} parts.link
   * @param {import('../reports/strips.js').Strips} parts.strips
   * @param {() => boolean} parts.isAdministrator
   * @param {() => void} parts.onShown called after controls have appeared or disappeared
   */
  constructor({ channel, link, strips, isAdministrator, onShown }) {
    this.#channel = channel;
    this.#link = link;
    this.#strips = strips;
    this.#isAdministrator = isAdministrator;
    this.#onShown = onShown;
    this.#steer.addEventListener('click', () => this.#askOrTake());
    onDetail(link, 'control', (/** @type {Record<string, unknown>} */ message) => this.#receive(message));
    channel.addEventListener('closed', () => this.#clear());
    this.#clear();
  }

  get #own() {
    return this.#viewers.find(({ session }) => session === this.#channel.session);
  }

  get #steering() {
    return this.#viewers.find(({ steers }) => steers);
  }

  /** Whether nobody can use the control at present, so that it is given without a question. */
  get #isFree() {
    return !this.#steering || this.#steering.away || !this.#steering.control;
  }

  #clear() {
    this.#viewers = [];
    this.#shown = null;
    for (const strip of ['viewers', 'asks', 'four-eyes']) this.#strips.hide(strip);
    this.#show();
  }

  #receive(
    /** @type {Record<string, unknown>} */
    { type, session, viewers, stream, four_eyes_missing: missing, code },
  ) {
    if (type === 'error' && code === 'steering-changed-too-often')
      this.#strips.show('viewers', texts.changedTooOften);
    if (type !== 'viewers' || session === null || session !== this.#channel.session) return;
    const before = { viewers: this.#viewers, own: this.#own };
    this.#viewers = /** @type {Viewer[]} */ (viewers);
    this.#shown = /** @type {Shown} */ (stream);
    this.#show();
    this.#report(before.viewers, before.own);
    if (missing === true) this.#strips.show('four-eyes', texts.fourEyes);
    else this.#strips.hide('four-eyes');
  }

  /** Says what has changed. @param {Viewer[]} before @param {Viewer | undefined} ownBefore */
  #report(before, ownBefore) {
    const own = this.#own;
    if (!own) return;
    const others = this.#viewers.filter((viewer) => viewer !== own);
    const isNew = (/** @type {Viewer} */ { session }) => !before.some((viewer) => viewer.session === session);
    const gone = before.filter(({ session }) => !this.#viewers.some((viewer) => viewer.session === session));
    const steeringBefore = before.find(({ steers }) => steers)?.session;
    if (!own.steers && (!ownBefore || steeringBefore !== this.#steering?.session)) this.#sayWhoSteers();
    else if (own.steers && ownBefore && !ownBefore.steers) this.#strips.show('viewers', texts.yours);
    else if (ownBefore?.asks && !own.asks && !own.steers) this.#strips.show('viewers', texts.refused);
    else if (ownBefore && others.some(isNew))
      this.#strips.show('viewers', texts.joined(inSentence(others.filter(isNew)[0].name)));
    else if (gone.length) this.#strips.show('viewers', texts.left(inSentence(gone[0].name)));
    const asking = own.steers ? others.find(({ asks }) => asks) : undefined;
    if (asking) this.#showQuestion(asking);
    else this.#strips.hide('asks');
  }

  #sayWhoSteers() {
    const offers = this.#mayAsk ? [{ label: this.#steerLabel, act: () => this.#askOrTake() }] : [];
    const who = this.#isFree ? '' : inSentence(this.#steering?.name ?? '');
    this.#strips.show('viewers', who ? texts.watching(who) : texts.free, offers);
  }

  #showQuestion(/** @type {Viewer} */ { session, name }) {
    this.#strips.hide('viewers');
    this.#strips.show('asks', texts.asksYou(inSentence(name)), [
      { label: texts.give, act: () => this.#send('hand-over', session) },
      { label: texts.notNow, act: () => this.#send('refuse-steering', session) },
    ]);
  }

  get #mayAsk() {
    return this.#channel.granted.has('control') || this.#isFree;
  }

  get #steerLabel() {
    return this.#isFree || this.#isAdministrator() ? texts.take : texts.ask;
  }

  #askOrTake() {
    const takes = !this.#isFree && this.#isAdministrator();
    this.#send(takes ? 'take-over' : 'steer');
  }

  #send(/** @type {string} */ type, /** @type {number} */ to = 0) {
    const message = { type, session: this.#channel.session };
    this.#link.sendControl(to ? { ...message, to } : message);
  }

  #show() {
    const own = this.#own;
    const alone = this.#viewers.length < 2;
    // Somebody who is alone and does not steer is the last who watched.
    this.#menu.hidden = alone && own?.steers !== false;
    byId('viewers-count').textContent = texts.people(this.#viewers.length);
    this.#list.replaceChildren(...this.#viewers.map((viewer) => this.#row(viewer)));
    this.#steer.hidden = !own || own.steers || !this.#mayAsk;
    this.#steer.disabled = own?.asks === true;
    this.#steer.textContent = own?.asks ? texts.asked : this.#steerLabel;
    this.#lock(own !== undefined && !own.steers);
    this.#onShown();
  }

  #row(/** @type {Viewer} */ viewer) {
    const own = this.#own;
    const remarks = [
      viewer === own ? texts.you : '',
      viewer.steers ? texts.steers : '',
      viewer.asks ? texts.asks : '',
      viewer.away ? texts.away : '',
    ].filter(Boolean);
    const row = make('li', {}, make('bdi', {}, viewer.name));
    if (remarks.length) row.append(make('span', { className: 'muted' }, ` ${remarks.join(', ')}`));
    if (own?.steers && viewer !== own && viewer.control && !viewer.away) {
      const label = texts.giveTo(viewer.name);
      const give = make('button', { type: 'button', title: label }, texts.give);
      give.ariaLabel = label;
      give.onclick = () => this.#send('hand-over', viewer.session);
      row.append(give);
    }
    return row;
  }

  /** While another session steers, the choices for the stream are shown and not offered. */
  #lock(/** @type {boolean} */ on) {
    const controls = /** @type {NodeListOf<HTMLInputElement>} */ (document.querySelectorAll(CHOICES));
    for (const control of controls) {
      if (on && !control.disabled) {
        control.disabled = true;
        control.dataset.locked = '';
      } else if (!on && control.dataset.locked !== undefined) {
        control.disabled = false;
        delete control.dataset.locked;
      }
    }
    if (!on || !this.#shown) return;
    byId('codec', HTMLSelectElement).value = this.#shown.codec;
    byId('quality', HTMLSelectElement).value = this.#shown.preset ?? 'hand';
    byId('show-pointer', HTMLInputElement).checked = this.#shown.pointer;
  }
}
