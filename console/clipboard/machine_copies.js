// Detects that the representative copies something on the machine with the keyboard. Ctrl+V then pastes that
// copy, and this computer's clipboard, which is older, does not overwrite it.

/** The time after the handling of the copy key in which the machine reports what was copied. */
const REPORT_MS = 120;

export class MachineCopies {
  #machineIsIdle;
  /** @type {'none' | 'asked' | 'reported'} */
  #state = 'none';

  /**
   * @param {HTMLElement} keyInput the field that receives the keys
   * @param {object} parts
   * @param {() => boolean} parts.active
   * @param {() => Promise<boolean>} parts.machineIsIdle resolves when the machine has handled all messages that
   *   were sent before the call
   */
  constructor(keyInput, { active, machineIsIdle }) {
    this.#machineIsIdle = machineIsIdle;
    const onKey = (/** @type {KeyboardEvent} */ event) => {
      if (event.target === keyInput && isCopy(event) && active()) this.#state = 'asked';
    };
    document.addEventListener('keydown', onKey, true);
    // Outside the page, something may be copied on this computer.
    addEventListener('blur', () => this.forget());
  }

  /** Handles the machine's report that its clipboard has changed. */
  machineChanged() {
    if (this.#state === 'asked') this.#state = 'reported';
  }

  forget() {
    this.#state = 'none';
  }

  /** Whether the machine's clipboard is newer. Waits for the report of a copy that is under way. */
  async areNewer() {
    if (this.#state === 'asked') {
      await this.#machineIsIdle();
      await new Promise((done) => setTimeout(done, REPORT_MS));
      if (this.#state === 'asked') this.forget();
    }
    return this.#state === 'reported';
  }
}

function isCopy(/** @type {KeyboardEvent} */ event) {
  if (event.altKey) return false;
  if (event.key === 'Delete') return event.shiftKey && !event.ctrlKey;
  return (event.ctrlKey || event.metaKey) && ['c', 'x', 'insert'].includes(event.key.toLowerCase());
}
