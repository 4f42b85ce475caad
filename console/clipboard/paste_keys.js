// Ctrl+V on the picture: this computer's clipboard is to be on the machine before the key is. The browser is left to
// paste, which gives its clipboard away without a permission, and the keys wait meanwhile.

/** For a browser that has nothing to paste and says so by no event. */
const NO_PASTE_MS = 80;
/** The machine, once it has the clipboard, needs a moment to take it over. */
const TAKE_MS = 120;

export class PasteKeys {
  /**
   * @param {HTMLElement} catcher of the keys
   * @param {{active: () => boolean, paste: (data: DataTransfer) => Promise<boolean>,
   *   keyDown: (event: KeyboardEvent) => void, keyUp: (event: KeyboardEvent) => void}} acts
   *   paste: gives the clipboard to the machine; true, when the machine has it, if there was something new
   */
  constructor(catcher, acts) {
    this.acts = acts;
    /** @type {KeyboardEvent[] | null} keys that wait for a clipboard, null while none need to */
    this.held = null;
    const own = (/** @type {Event} */ event) => event.target === catcher;
    for (const name of ['keydown', 'keyup'])
      document.addEventListener(
        name,
        (event) => own(event) && this.key(/** @type {KeyboardEvent} */ (event)),
        true,
      );
    catcher.addEventListener('paste', (event) => this.pasted(/** @type {ClipboardEvent} */ (event)));
    catcher.addEventListener('blur', () => this.drop());
  }

  /** @private */
  key(/** @type {KeyboardEvent} */ event) {
    if (this.held) {
      event.stopImmediatePropagation();
      event.preventDefault();
      this.held.push(event);
    } else if (event.type === 'keydown' && isPaste(event) && this.acts.active()) {
      event.stopImmediatePropagation();
      this.held = [event];
      this.wait(NO_PASTE_MS);
    }
  }

  /** @private */
  async pasted(/** @type {ClipboardEvent} */ event) {
    event.preventDefault();
    if (!event.clipboardData || !this.acts.active()) return;
    const { held } = this;
    // However long the line needs.
    clearTimeout(this.timer);
    const sent = await this.acts.paste(event.clipboardData).catch(() => false);
    if (held && held === this.held) this.wait(sent ? TAKE_MS : 0);
  }

  /** @private */
  wait(/** @type {number} */ ms) {
    clearTimeout(this.timer);
    this.timer = setTimeout(() => this.release(), ms);
  }

  /** @private */
  release() {
    const held = this.held ?? [];
    this.held = null;
    for (const event of held) {
      if (event.type === 'keydown') this.acts.keyDown(event);
      else this.acts.keyUp(event);
    }
  }

  /** @private Keys that would come after everything was let go would stay down. */
  drop() {
    clearTimeout(this.timer);
    this.held = null;
  }
}

function isPaste(/** @type {KeyboardEvent} */ event) {
  if (event.altKey) return false;
  if (event.key === 'Insert') return event.shiftKey && !event.ctrlKey;
  return (event.ctrlKey || event.metaKey) && event.key.toLowerCase() === 'v';
}
