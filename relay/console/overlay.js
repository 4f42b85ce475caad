// What is said over the picture, and the ways on from there.
import { byId } from './dom.js';

const ACTIONS = ['session-again', 'session-give-up', 'session-back'];

export class Overlay {
  /** @param {{again: () => void, giveUp: () => void, back: () => void}} actions */
  constructor({ again, giveUp, back }) {
    [again, giveUp, back].forEach((act, i) => byId(ACTIONS[i]).addEventListener('click', act));
  }

  /**
   * The picture under it is greyed.
   * @param {string} text
   * @param {{busy?: boolean, again?: boolean, giveUp?: boolean, back?: boolean}} [offer] busy: something is awaited
   */
  say(text, { busy = false, again = false, giveUp = false, back = false } = {}) {
    byId('session-note').hidden = false;
    byId('session-note-text').textContent = text;
    byId('session-note-busy').hidden = !busy;
    [again, giveUp, back].forEach((shown, i) => { byId(ACTIONS[i]).hidden = !shown; });
    byId('stage').classList.add('covered');
  }

  clear() {
    byId('session-note').hidden = true;
    byId('stage').classList.remove('covered');
  }
}
