// Sends the representative's pointer and keyboard input to the machine while a session allows input.
import { Keyboard } from './keyboard.js';
import { attachPointer } from './pointer.js';
import { InputSender } from './sender.js';
import { typeText } from './typing.js';

/** Key combinations that a browser or its operating system handles instead of passing them to the page. */
const COMBINATIONS = new Map([
  ['alt-tab', ['AltLeft', 'Tab']],
  ['alt-f4', ['AltLeft', 'F4']],
  ['windows', ['MetaLeft']],
  ['task-manager', ['ControlLeft', 'ShiftLeft', 'Escape']],
  ['lock', ['MetaLeft', 'KeyL']],
  ['print', ['PrintScreen']],
  // Has no effect in programs, and wakes a screen that is switched off.
  ['shift', ['ShiftLeft']],
]);

export class RemoteInput {
  #keyInput;
  #sender;
  #keyboard;
  #pointer;
  /** @type {AbortController | null} aborts the text that is being typed */
  #typing = null;

  /**
   * @param {object} parts
   * @param {HTMLCanvasElement} parts.canvas
   * @param {HTMLElement} parts.area the part of the page in which the canvas is moved and zoomed
   * @param {import('./touch.js').View} parts.view moves and zooms the canvas
   * @param {HTMLTextAreaElement} parts.keyInput the invisible field that receives the keys
   * @param {(payload: Uint8Array) => void} parts.send
   * @param {() => number} parts.backlog
   */
  constructor({ canvas, area, view, keyInput, send, backlog }) {
    this.#keyInput = keyInput;
    this.#sender = new InputSender({ send, backlog });
    this.#keyboard = new Keyboard((events) => this.#sender.send(events));
    this.#pointer = attachPointer({
      area,
      canvas,
      view,
      sender: this.#sender,
      onEvent: (event) => this.#keyboard.releaseModifiers(event),
      onPress: () => this.focus(),
    });
    this.#attachKeys();
    this.#attachText();
  }

  get keyInput() {
    return this.#keyInput;
  }

  get enabled() {
    return this.#sender.enabled;
  }

  /** Disabling releases every key and button that is down on the machine. */
  set enabled(/** @type {boolean} */ on) {
    if (!on) this.#release();
    this.#sender.enabled = on;
  }

  /**
   * Holds back everything that is sent to the machine, pointer and keys alike, until the returned function is
   * called. The events are then sent in the order in which they happened.
   * @returns {() => void}
   */
  hold() {
    return this.#sender.hold();
  }

  focus() {
    this.#keyInput.focus({ preventScroll: true });
  }

  /** Shows the on-screen keyboard of a phone or tablet, which a tap on the picture does not open. */
  showKeyboard() {
    this.#keyInput.blur();
    this.#keyInput.inputMode = 'text';
    this.focus();
  }

  setMode(/** @type {import('./keyboard.js').KeyMode} */ mode) {
    this.#keyboard.releaseAll();
    this.#keyboard.mode = mode;
  }

  /** Presses one of COMBINATIONS; any other name does nothing. */
  pressCombination(/** @type {string} */ name) {
    const codes = COMBINATIONS.get(name);
    if (codes) this.#keyboard.press(codes);
  }

  /** Sends a key event that was held back. */
  replay(/** @type {KeyboardEvent} */ event) {
    if (event.type === 'keydown') this.#keyboard.keyDown(event);
    else this.#keyboard.keyUp(event);
  }

  async type(/** @type {string} */ text) {
    this.#typing?.abort();
    this.#typing = new AbortController();
    await typeText(text, {
      send: (events) => this.#sender.send(events),
      signal: this.#typing.signal,
      pause: (ms) => new Promise((done) => setTimeout(done, ms)),
    });
  }

  #release() {
    this.#typing?.abort();
    this.#keyboard.releaseAll();
    this.#pointer.releaseAll();
  }

  #attachKeys() {
    const keyboard = this.#keyboard;
    this.#keyInput.addEventListener('keydown', (event) => {
      if (this.enabled && keyboard.keyDown(event)) event.preventDefault();
    });
    this.#keyInput.addEventListener('keyup', (event) => {
      if (this.enabled && keyboard.keyUp(event)) event.preventDefault();
    });
    this.#keyInput.addEventListener('blur', () => {
      keyboard.releaseAll();
      this.#keyInput.inputMode = 'none';
    });
  }

  /** Text that reaches the field comes from an input method, a dead key or dictation. */
  #attachText() {
    const take = (/** @type {string} */ text) => {
      this.#keyboard.text(text);
      this.#keyInput.value = '';
    };
    this.#keyInput.addEventListener('compositionend', (event) => take(event.data));
    this.#keyInput.addEventListener('input', (event) => {
      const { isComposing, inputType, data } = /** @type {InputEvent} */ (event);
      if (!isComposing && inputType !== 'insertCompositionText') take(data ?? '');
    });
  }
}
