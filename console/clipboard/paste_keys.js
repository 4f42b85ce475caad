// Handles Ctrl+V on the picture: sends this computer's clipboard to the machine before the keys. The
// browser's paste event contains the clipboard's content and needs no permission. The keys are held back
// until the machine has received the content.

/** The time to wait for the paste event. A browser that has nothing to paste fires none. */
const NO_PASTE_MS = 80;
/** The time that the machine needs to set its clipboard after it has received the content. */
const SET_CLIPBOARD_MS = 120;

export class PasteKeys {
  #actions;
  /** @type {KeyboardEvent[] | null} keys that are held back; null while no keys are */
  #held = null;
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  #timer;

  /**
   * @param {HTMLElement} keyInput the field that receives the keys
   * @param {object} actions
   * @param {() => boolean} actions.active
   * @param {(data: DataTransfer) => Promise<boolean>} actions.paste sends the clipboard; resolves when the
   *   machine has received it, with true if its content was new
   * @param {(event: KeyboardEvent) => void} actions.replay sends a key that was held back
   */
  constructor(keyInput, actions) {
    this.#actions = actions;
    const onKey = (/** @type {KeyboardEvent} */ event) => {
      if (event.target === keyInput) this.#key(event);
    };
    document.addEventListener('keydown', onKey, true);
    document.addEventListener('keyup', onKey, true);
    keyInput.addEventListener('paste', (event) => this.#pasted(event));
    keyInput.addEventListener('blur', () => this.#drop());
  }

  #key(/** @type {KeyboardEvent} */ event) {
    if (this.#held) {
      event.stopImmediatePropagation();
      event.preventDefault();
      this.#held.push(event);
    } else if (event.type === 'keydown' && isPaste(event) && this.#actions.active()) {
      event.stopImmediatePropagation();
      this.#held = [event];
      this.#releaseAfter(NO_PASTE_MS);
    }
  }

  async #pasted(/** @type {ClipboardEvent} */ event) {
    event.preventDefault();
    if (!event.clipboardData || !this.#actions.active()) return;
    const held = this.#held;
    // From here on, the keys are held back for as long as the connection needs to transfer the content.
    clearTimeout(this.#timer);
    const sent = await this.#actions.paste(event.clipboardData).catch(() => false);
    if (held && held === this.#held) this.#releaseAfter(sent ? SET_CLIPBOARD_MS : 0);
  }

  #releaseAfter(/** @type {number} */ ms) {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => this.#release(), ms);
  }

  #release() {
    const held = this.#held ?? [];
    this.#held = null;
    for (const event of held) this.#actions.replay(event);
  }

  /**
   * Drops held-back keys on loss of focus. All keys are released on the machine at that moment, so a key sent
   * later would stay down.
   */
  #drop() {
    clearTimeout(this.#timer);
    this.#held = null;
  }
}

function isPaste(/** @type {KeyboardEvent} */ event) {
  if (event.altKey) return false;
  if (event.key === 'Insert') return event.shiftKey && !event.ctrlKey;
  return (event.ctrlKey || event.metaKey) && event.key.toLowerCase() === 'v';
}
