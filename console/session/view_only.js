// "View only": keeps the representative's pointer and keyboard from the machine, disables the controls that act
// on it, and says so on the picture.
import { byId } from '../base/dom.js';
import { texts } from '../base/texts.js';

/** The controls that type, press keys, paste or restart. */
const CONTROLS = '#attention, #restart, #type-text, #clip-send, #keys-menu [data-combination]';
const REMARK_MS = 4000;
const MODIFIERS = ['Shift', 'Control', 'Alt', 'AltGraph', 'Meta'];

export class ViewOnly {
  #box = byId('view-only', HTMLInputElement);
  #badge = byId('view-only-badge');
  #onChange;
  /** Whether the representative has the right to control the machine. */
  #allowed = true;
  /** Why not. */
  #obstacle = { short: texts.watchOnly, long: texts.watchOnlyRemark };
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  #remark;

  /** @param {() => void} onChange called when it may have been switched on or off */
  constructor(onChange) {
    this.#onChange = onChange;
    this.#box.addEventListener('change', () => this.#show());
    byId('screen-area').addEventListener('pointerdown', () => this.#explain());
    byId('key-input').addEventListener('keydown', ({ key }) => {
      if (!MODIFIERS.includes(key)) this.#explain();
    });
    // Each session begins without it, also a session that is asked for again.
    byId('session-again').addEventListener('click', () => this.reset());
  }

  get isOn() {
    return this.#box.checked;
  }

  /**
   * Handles that the representative may control the machine, or may not.
   * @param {boolean} allowed
   * @param {{short: string, long: string}} [obstacle] the reason, for the badge and as a sentence
   */
  allow(allowed, obstacle = { short: texts.watchOnly, long: texts.watchOnlyRemark }) {
    this.#allowed = allowed;
    this.#obstacle = obstacle;
    this.#show();
  }

  reset() {
    this.restore(false);
  }

  restore(/** @type {boolean} */ on) {
    this.#box.checked = on;
    this.#show();
  }

  #show() {
    const on = this.isOn;
    const controls = /** @type {NodeListOf<HTMLButtonElement>} */ (document.querySelectorAll(CONTROLS));
    for (const control of controls) {
      control.disabled = on;
      control.title = on ? texts.viewOnlyRemark : '';
    }
    clearTimeout(this.#remark);
    this.#badge.textContent = this.#allowed ? (on ? texts.viewOnly : '') : this.#obstacle.short;
    this.#onChange();
  }

  /** Says for a moment why nothing happens on the machine. */
  #explain() {
    if (!this.isOn && this.#allowed) return;
    this.#badge.textContent = this.#allowed ? texts.viewOnlyRemark : this.#obstacle.long;
    clearTimeout(this.#remark);
    this.#remark = setTimeout(() => this.#show(), REMARK_MS);
  }
}
