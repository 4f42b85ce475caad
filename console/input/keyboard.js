// The representative's keys: what goes to the machine as characters, what as keys, and which keys are down there.
// It takes plain objects shaped like KeyboardEvent, so that it runs without a browser.
import * as input from './events.js';
import { keyAt, keyNamed, shortcutKey } from './keymap.js';

/** Windows reports AltGr as a false left Ctrl and then the right Alt; the two come within this time. */
const ALTGR_WINDOW_MS = 50;

const MODIFIER = /^(Shift|Control|Alt|Meta|OS)(Left|Right)$/;
const LOCAL_LOCKS = new Set(['CapsLock', 'NumLock']);

/** @typedef {{code: string, key: string, ctrlKey: boolean, altKey: boolean, metaKey: boolean, repeat?: boolean,
 *   isComposing?: boolean, getModifierState?: (name: string) => boolean}} KeyEvent */

export class Keyboard {
  /**
   * @param {(events: input.InputEvent[]) => void} send
   * @param {{setTimeout: Function, clearTimeout: Function}} [clock]
   */
  constructor(
    send,
    clock = { setTimeout: (f, ms) => setTimeout(f, ms), clearTimeout: (id) => clearTimeout(id) },
  ) {
    this.send = send;
    this.clock = clock;
    /** 'character' or 'position' */
    this.mode = 'character';
    /** @type {Map<string, import('./keymap.js').WinKey>} keys that are down on the machine */
    this.held = new Map();
    /** @type {unknown} */
    this.heldBackCtrl = null;
    this.falseCtrl = false;
    this.altGraph = false;
  }

  /**
   * @param {KeyEvent} event
   * @returns {boolean} true when it was dealt with and the browser must not act on it
   */
  keyDown(event) {
    if (leftToInputMethod(event)) return false;
    if (event.key === 'AltGraph') return this.altGraphDown(event);
    if (event.code === 'ControlLeft') return this.holdBackCtrl(event);
    this.sendHeldBackCtrl();
    if (this.mode === 'character') {
      if (LOCAL_LOCKS.has(event.code)) return false;
      if (this.isText(event)) {
        this.send(input.unicode(event.key));
        return true;
      }
    }
    const win = this.mode === 'character' && this.modified(event) ? shortcutKey(event) : keyAt(event);
    if (!win) return event.key !== 'Unidentified';
    this.press(event.code || event.key, win);
    return true;
  }

  /** @param {KeyEvent} event */
  keyUp(event) {
    if (event.key === 'AltGraph' || (event.code === 'AltRight' && this.altGraph)) this.altGraph = false;
    if (event.code === 'ControlLeft') {
      if (this.falseCtrl) {
        this.falseCtrl = false;
        return true;
      }
      this.sendHeldBackCtrl();
    }
    // Windows tells browsers only of Print's release.
    if (event.code === 'PrintScreen' && !this.held.has('PrintScreen')) this.tap(['PrintScreen']);
    this.release(event.code || event.key);
    // macOS swallows the releases of other keys while Meta is held.
    if (event.key === 'Meta') this.releaseAll((code) => !MODIFIER.test(code));
    return true;
  }

  /** Text from an input method, a dead key or a dictation: goes as characters whatever the mode. */
  text(/** @type {string} */ text) {
    if (text) this.send(input.unicode(text));
  }

  /** Presses the positions in order and releases them backwards, as one run. */
  tap(/** @type {string[]} */ codes) {
    const keys = codes.map(keyNamed);
    this.send([...keys.map((k) => input.key(k, true)), ...keys.reverse().map((k) => input.key(k, false))]);
  }

  /** The machine keeps keys down that nobody releases: call on blur, on view-only and at the end. */
  releaseAll(which = (/** @type {string} */ _code) => true) {
    this.dropHeldBackCtrl();
    const codes = [...this.held.keys()].filter(which).reverse();
    const events = codes.map((code) => input.key(/** @type {any} */ (this.held.get(code)), false));
    codes.forEach((code) => this.held.delete(code));
    if (events.length) this.send(events);
    this.altGraph = false;
    this.falseCtrl = false;
  }

  /** @private */
  press(/** @type {string} */ code, /** @type {import('./keymap.js').WinKey} */ win) {
    this.held.set(code, win);
    this.send([input.key(win, true)]);
  }

  /** @private */
  release(/** @type {string} */ code) {
    const win = this.held.get(code);
    if (!win) return;
    this.held.delete(code);
    this.send([input.key(win, false)]);
  }

  /** @private A repeated Ctrl is none of AltGr's. */
  holdBackCtrl(/** @type {KeyEvent} */ event) {
    if (this.held.has('ControlLeft') || this.heldBackCtrl !== null || this.falseCtrl) return true;
    this.heldBackCtrl = this.clock.setTimeout(() => this.sendHeldBackCtrl(), ALTGR_WINDOW_MS);
    return !!event;
  }

  /** @private */
  sendHeldBackCtrl() {
    if (this.heldBackCtrl === null) return;
    this.dropHeldBackCtrl();
    this.press('ControlLeft', keyNamed('ControlLeft'));
  }

  /** @private */
  dropHeldBackCtrl() {
    if (this.heldBackCtrl !== null) this.clock.clearTimeout(this.heldBackCtrl);
    this.heldBackCtrl = null;
  }

  /** @private By character, AltGr has already done its work in `key`; pressed on the machine it would disturb. */
  altGraphDown(/** @type {KeyEvent} */ event) {
    if (this.heldBackCtrl !== null) {
      this.dropHeldBackCtrl();
      this.falseCtrl = true;
    }
    this.altGraph = true;
    if (this.mode === 'position' && !event.repeat) this.press('AltRight', keyNamed('AltRight'));
    return true;
  }

  /** @private */
  isText(/** @type {KeyEvent} */ event) {
    // The space bar presses buttons and ticks boxes only as a key.
    if ([...event.key].length !== 1 || event.key === ' ') return false;
    return !this.modified(event);
  }

  /** @private */
  modified(/** @type {KeyEvent} */ event) {
    if (this.altGraph || event.getModifierState?.('AltGraph')) return false;
    return event.ctrlKey || event.altKey || event.metaKey;
  }
}

function leftToInputMethod(/** @type {KeyEvent} */ event) {
  return !!event.isComposing || event.key === 'Dead' || event.key === 'Process';
}
