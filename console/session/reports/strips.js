// The strips between the toolbar and the picture: messages that never cover the picture, each with a button
// that dismisses it.
import { byId, make } from '../../base/dom.js';
import { texts } from '../../base/texts.js';

/** @typedef {{label: string, act: () => void}} Offer a button in a strip */

export class Strips {
  #place = byId('session-strips');
  #onDone;
  /** @type {Map<string, HTMLElement>} */
  #shown = new Map();

  /** @param {() => void} onDone called after the representative has used a button of a strip */
  constructor(onDone) {
    this.#onDone = onDone;
  }

  /**
   * Shows a strip, in place of an earlier one of this name.
   * @param {string} name
   * @param {string} text
   * @param {Offer[]} [offers]
   */
  show(name, text, offers = []) {
    const strip = make('div', { className: 'strip', dataset: { strip: name } }, make('p', {}, text));
    for (const { label, act } of offers) {
      strip.append(make('button', { type: 'button', onclick: () => this.#use(name, act) }, label));
    }
    const close = make('button', { type: 'button', className: 'quiet', title: texts.closePanel }, '×');
    close.ariaLabel = texts.closePanel;
    close.onclick = () => this.#use(name);
    strip.append(close);
    this.hide(name);
    this.#shown.set(name, strip);
    this.#place.append(strip);
  }

  hide(/** @type {string} */ name) {
    this.#shown.get(name)?.remove();
    this.#shown.delete(name);
  }

  #use(/** @type {string} */ name, act = () => {}) {
    this.hide(name);
    act();
    this.#onDone();
  }
}
