// What is said over the picture, and the ways on from there.
import { byId } from '../base/dom.js';

const ACTIONS = ['session-again', 'session-go-on', 'session-give-up', 'session-back'];

export class Overlay {
  /** @param {{again: () => void, goOn: () => void, giveUp: () => void, back: () => void}} actions */
  constructor({ again, goOn, giveUp, back }) {
    [again, goOn, giveUp, back].forEach((act, i) => byId(ACTIONS[i]).addEventListener('click', act));
  }

  /**
   * The picture under it is greyed.
   * @param {string} text
   * @param {{busy?: boolean, again?: boolean, goOn?: boolean, giveUp?: boolean, back?: boolean}} [offer] busy: something is
   *   awaited; goOn: stays until it is answered
   */
  say(text, { busy = false, again = false, goOn = false, giveUp = false, back = false } = {}) {
    this.asks = goOn;
    byId('session-note').hidden = false;
    byId('session-note-text').textContent = text;
    byId('session-note-busy').hidden = !busy;
    [again, goOn, giveUp, back].forEach((shown, i) => {
      byId(ACTIONS[i]).hidden = !shown;
    });
    byId('stage').classList.add('covered');
  }

  clear() {
    this.asks = false;
    byId('session-note').hidden = true;
    byId('stage').classList.remove('covered');
  }
}
