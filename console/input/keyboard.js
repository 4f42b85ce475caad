// Turns the representative's key events into characters or keys for the machine, and keeps track of the keys
// that are down on the machine. Accepts plain objects with the fields of KeyboardEvent, so that this module
// also runs without a browser.
import * as input from './events.js';
import { keyAt, keyNamed, shortcutKey } from './keymap.js';
import { isModifier, modifiersUp } from './modifiers.js';

/** Windows reports AltGr as a left Ctrl that nobody pressed, followed by the right Alt within this time. */
const ALTGR_WINDOW_MS = 50;

const LOCAL_LOCKS = new Set(['CapsLock', 'NumLock']);

/** @typedef {'character' | 'position'} KeyMode whether letters are sent as characters or as key positions */
/** @typedef {import('./modifiers.js').ModifierFlags & {code: string, key: string, repeat?: boolean,
 *   isComposing?: boolean}} KeyEvent */
/**
 * @typedef {{setTimeout: (act: () => void, ms: number) => unknown,
 *   clearTimeout: (id: unknown) => void}} Timers
 */

/** @type {Timers} */
export const BROWSER_TIMERS = {
  setTimeout: (act, ms) => setTimeout(act, ms),
  clearTimeout: (id) => clearTimeout(/** @type {number} */ (id)),
};

export class Keyboard {
  /** @type {KeyMode} */
  mode = 'character';
  #send;
  #timers;
  /** @type {Map<string, import('./keymap.js').WinKey>} keys that are down on the machine */
  #held = new Map();
  /**
   * The timer of a left Ctrl that is held back until it is known whether it belongs to AltGr.
   * @type {unknown}
   */
  #heldBackCtrl = null;
  /** Whether the left Ctrl that is down belongs to AltGr. */
  #ctrlOfAltGr = false;
  #altGraph = false;

  /**
   * @param {(events: input.InputEvent[]) => void} send
   * @param {Timers} [timers]
   */
  constructor(send, timers = BROWSER_TIMERS) {
    this.#send = send;
    this.#timers = timers;
  }

  /**
   * @param {KeyEvent} event
   * @returns {boolean} true when the browser must not act on the event
   */
  keyDown(event) {
    this.releaseModifiers(event);
    if (leftToInputMethod(event)) return false;
    if (event.key === 'AltGraph') return this.#altGraphDown(event);
    if (event.code === 'ControlLeft') return this.#holdBackCtrl();
    this.#sendHeldBackCtrl();
    if (this.mode === 'character') {
      if (LOCAL_LOCKS.has(event.code)) return false;
      if (this.#isText(event)) {
        this.#send(input.unicode(event.key));
        return true;
      }
    }
    const win = this.mode === 'character' && this.#hasModifier(event) ? shortcutKey(event) : keyAt(event);
    if (!win) return event.key !== 'Unidentified';
    this.#down(event.code || event.key, win);
    return true;
  }

  /**
   * @param {KeyEvent} event
   * @returns {boolean} true when the browser must not act on the event
   */
  keyUp(event) {
    if (event.key === 'AltGraph' || (event.code === 'AltRight' && this.#altGraph)) this.#altGraph = false;
    this.releaseModifiers(event);
    if (event.code === 'ControlLeft') {
      if (this.#ctrlOfAltGr) {
        this.#ctrlOfAltGr = false;
        return true;
      }
      this.#sendHeldBackCtrl();
    }
    // Browsers on Windows report only the release of Print Screen.
    if (event.code === 'PrintScreen' && !this.#held.has('PrintScreen')) this.press(['PrintScreen']);
    this.#up(event.code || event.key);
    if (event.key === 'Meta') this.#releaseOthers();
    return true;
  }

  /**
   * Releases the modifiers that are down on the machine but up according to a key or pointer event. To be
   * called before the event itself is sent.
   */
  releaseModifiers(/** @type {import('./modifiers.js').ModifierFlags & {code?: string}} */ event) {
    const up = modifiersUp(event, this.#held.keys(), this.#altGraph);
    for (const code of up) this.#up(code);
    if (up.some((code) => code.startsWith('Meta'))) this.#releaseOthers();
  }

  /** Sends a text from an input method, a dead key or dictation as characters, in both modes. */
  text(/** @type {string} */ text) {
    if (text) this.#send(input.unicode(text));
  }

  /** Presses the keys at these positions in order and releases them in reverse order, in one batch. */
  press(/** @type {string[]} */ codes) {
    const keys = codes.map(keyNamed);
    this.#send([
      ...keys.map((one) => input.key(one, true)),
      ...keys.reverse().map((one) => input.key(one, false)),
    ]);
  }

  /**
   * Releases keys that are down on the machine, which would otherwise stay down: on loss of focus, when input
   * is disabled, and before a session ends.
   * @param {(code: string) => boolean} [which] selects the keys; all keys by default
   */
  releaseAll(which = () => true) {
    this.#dropHeldBackCtrl();
    const keys = [...this.#held].filter(([code]) => which(code)).reverse();
    for (const [code] of keys) this.#held.delete(code);
    if (keys.length) this.#send(keys.map(([, win]) => input.key(win, false)));
    this.#altGraph = false;
    this.#ctrlOfAltGr = false;
  }

  #down(/** @type {string} */ code, /** @type {import('./keymap.js').WinKey} */ win) {
    this.#held.set(code, win);
    this.#send([input.key(win, true)]);
  }

  #up(/** @type {string} */ code) {
    const win = this.#held.get(code);
    if (!win) return;
    this.#held.delete(code);
    this.#send([input.key(win, false)]);
  }

  /** Releases all keys except modifiers: macOS does not report their release while Meta is held. */
  #releaseOthers() {
    this.releaseAll((code) => !isModifier(code));
  }

  /** Holds back a left Ctrl. Repeated events of a Ctrl that is already down or held back are ignored. */
  #holdBackCtrl() {
    if (this.#held.has('ControlLeft') || this.#heldBackCtrl !== null || this.#ctrlOfAltGr) return true;
    this.#heldBackCtrl = this.#timers.setTimeout(() => this.#sendHeldBackCtrl(), ALTGR_WINDOW_MS);
    return true;
  }

  #sendHeldBackCtrl() {
    if (this.#heldBackCtrl === null) return;
    this.#dropHeldBackCtrl();
    this.#down('ControlLeft', keyNamed('ControlLeft'));
  }

  #dropHeldBackCtrl() {
    if (this.#heldBackCtrl !== null) this.#timers.clearTimeout(this.#heldBackCtrl);
    this.#heldBackCtrl = null;
  }

  /**
   * In character mode AltGr is not sent: the browser has already applied it to `key`, and on the machine it
   * would change the character.
   */
  #altGraphDown(/** @type {KeyEvent} */ event) {
    if (this.#heldBackCtrl !== null) {
      this.#dropHeldBackCtrl();
      this.#ctrlOfAltGr = true;
    }
    this.#altGraph = true;
    if (this.mode === 'position' && !event.repeat) this.#down('AltRight', keyNamed('AltRight'));
    return true;
  }

  #isText(/** @type {KeyEvent} */ event) {
    // On the machine, the space bar presses buttons and ticks boxes only when it is sent as a key.
    if ([...event.key].length !== 1 || event.key === ' ') return false;
    return !this.#hasModifier(event);
  }

  #hasModifier(/** @type {KeyEvent} */ event) {
    if (this.#altGraph || event.getModifierState?.('AltGraph')) return false;
    return event.ctrlKey || event.altKey || event.metaKey;
  }
}

function leftToInputMethod(/** @type {KeyEvent} */ event) {
  return !!event.isComposing || event.key === 'Dead' || event.key === 'Process';
}
