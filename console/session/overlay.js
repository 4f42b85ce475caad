// The message over the picture, with the buttons that it offers.
import { byId } from '../base/dom.js';
import { FocusLoan } from '../base/focus_loan.js';
import { consentTexts } from './consent/texts.js';

const BUTTONS = /** @type {const} */ ({
  again: 'session-again',
  here: 'session-here',
  giveUp: 'session-give-up',
  back: 'session-back',
  restartPicture: 'session-picture-restart',
  nextDisplay: 'session-next-display',
  wake: 'session-wake',
  useJpeg: 'session-use-jpeg',
});

/** @typedef {keyof typeof BUTTONS} Action */

export class Overlay {
  /** The actions that the message on the page offers; null while no message is shown. @type {string | null} */
  #offered = null;
  #focus = new FocusLoan(byId('session-note'), byId('key-input'));

  /** @param {Record<Action, () => void>} actions */
  constructor(actions) {
    byId('session-here').textContent = consentTexts.continueHere;
    for (const [name, id] of Object.entries(BUTTONS))
      byId(id).addEventListener('click', () => actions[/** @type {Action} */ (name)]());
  }

  /**
   * Shows a message over the picture and turns the picture grey. The message takes the focus when it appears
   * and when it offers something else.
   * @param {string} text
   * @param {Action[]} offered
   * @param {{busy?: boolean}} [options] busy: shows moving dots as a sign of waiting
   */
  show(text, offered, { busy = false } = {}) {
    byId('session-note').hidden = false;
    byId('session-note-text').textContent = text;
    byId('session-note-busy').hidden = !busy;
    for (const [name, id] of Object.entries(BUTTONS))
      byId(id).hidden = !offered.includes(/** @type {Action} */ (name));
    byId('stage').classList.add('covered');
    if (this.#offered !== offered.join()) this.#focus.take();
    this.#offered = offered.join();
  }

  clear() {
    this.#offered = null;
    this.#focus.giveBack();
    byId('session-note').hidden = true;
    byId('stage').classList.remove('covered');
  }
}
