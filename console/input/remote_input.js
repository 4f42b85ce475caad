// The representative's hands on the machine: the picture's pointer events and the key catcher's keys, on while a
// session may be worked and off otherwise.
import { Keyboard } from './keyboard.js';
import { attachPointer } from './pointer.js';
import { InputSender } from './sender.js';
import { typeText } from './typing.js';

/** Keys that a browser or its system keeps for itself. */
const COMBINATIONS = {
  'alt-tab': ['AltLeft', 'Tab'],
  'alt-f4': ['AltLeft', 'F4'],
  windows: ['MetaLeft'],
  'task-manager': ['ControlLeft', 'ShiftLeft', 'Escape'],
  lock: ['MetaLeft', 'KeyL'],
  print: ['PrintScreen'],
};

export class Hands {
  /**
   * @param {{canvas: HTMLCanvasElement, catcher: HTMLTextAreaElement, send: (payload: Uint8Array) => void,
   *   backlog: () => number}} where
   */
  constructor({ canvas, catcher, send, backlog }) {
    this.catcher = catcher;
    this.sender = new InputSender({ send, backlog });
    this.keyboard = new Keyboard((events) => this.sender.send(events));
    this.pointer = attachPointer(canvas, this.sender, () => this.focus());
    /** @type {AbortController | null} */
    this.typing = null;
    this.attachKeys();
  }

  /** Off, nothing stays down on the machine. */
  set enabled(/** @type {boolean} */ on) {
    if (!on) this.release();
    this.sender.enabled = on;
  }

  focus() {
    this.catcher.focus({ preventScroll: true });
  }

  setMode(/** @type {string} */ mode) {
    this.keyboard.releaseAll();
    this.keyboard.mode = mode;
  }

  tap(/** @type {string} */ combination) {
    const codes = COMBINATIONS[/** @type {'lock'} */ (combination)];
    if (codes) this.keyboard.tap(codes);
  }

  async type(/** @type {string} */ text) {
    this.typing?.abort();
    this.typing = new AbortController();
    await typeText(text, {
      send: (events) => this.sender.send(events),
      signal: this.typing.signal,
      pause: (ms) => new Promise((done) => setTimeout(done, ms)),
    });
  }

  release() {
    this.typing?.abort();
    this.keyboard.releaseAll();
    this.pointer.releaseAll();
  }

  /** @private */
  attachKeys() {
    const { catcher, keyboard } = this;
    const deal = (/** @type {(event: any) => boolean} */ handle) => (/** @type {KeyboardEvent} */ event) => {
      if (this.sender.enabled && handle(event)) event.preventDefault();
    };
    catcher.addEventListener(
      'keydown',
      deal((event) => keyboard.keyDown(event)),
    );
    catcher.addEventListener(
      'keyup',
      deal((event) => keyboard.keyUp(event)),
    );
    catcher.addEventListener('blur', () => keyboard.releaseAll());
    const take = (/** @type {string} */ text) => {
      keyboard.text(text);
      catcher.value = '';
    };
    catcher.addEventListener('compositionend', (event) => take(event.data));
    catcher.addEventListener('input', (/** @type {any} */ event) => {
      if (!event.isComposing && event.inputType !== 'insertCompositionText') take(event.data ?? '');
    });
  }
}
