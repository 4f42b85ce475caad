// Handles Ctrl+V on the picture: sends this computer's clipboard to the machine before the keys. The
// browser's paste event contains the clipboard's content and needs no permission. All input that comes after
// Ctrl+V is held back until the machine has received the content, so that it arrives in order.

/** The time to wait for the paste event. A browser that has nothing to paste fires none. */
const NO_PASTE_MS = 80;
/** The time that the machine needs to set its clipboard after it has received the content. */
const SET_CLIPBOARD_MS = 120;

/**
 * Sends what was pasted; resolves when the machine has received it, with true if anything was sent.
 * @typedef {() => Promise<boolean>} SendContent
 */

export class PasteKeys {
  #actions;
  /** @type {((send: SendContent | null) => void) | null} takes the content that belongs to the last Ctrl+V */
  #awaiting = null;
  /** The end of the newest paste. */
  #newest = Promise.resolve();
  /** The number of pastes that have not ended. */
  #underWay = 0;

  /**
   * @param {HTMLElement} keyInput the field that receives the keys
   * @param {object} actions
   * @param {() => boolean} actions.active
   * @param {() => () => void} actions.hold holds back all input until the returned function is called
   * @param {(event: KeyboardEvent) => void} actions.replay sends a key whose event was not passed on
   * @param {(data: DataTransfer) => SendContent} actions.take reads the clipboard of a paste event
   */
  constructor(keyInput, actions) {
    this.#actions = actions;
    const onKey = (/** @type {KeyboardEvent} */ event) => {
      if (event.target === keyInput) this.#key(event);
    };
    document.addEventListener('keydown', onKey, true);
    keyInput.addEventListener('paste', (event) => this.#pasted(event));
  }

  #key(/** @type {KeyboardEvent} */ event) {
    // A key that is held down pastes the content again that its first press has sent.
    if (!isPaste(event) || !this.#actions.active() || (event.repeat && this.#underWay)) return;
    // The default action is left to the browser, because it fires the paste event.
    event.stopImmediatePropagation();
    this.#paste(this.#nextContent());
    this.#actions.replay(event);
  }

  #pasted(/** @type {ClipboardEvent} */ event) {
    event.preventDefault();
    if (!event.clipboardData || !this.#actions.active()) return;
    const send = this.#actions.take(event.clipboardData);
    if (this.#awaiting) this.#awaiting(send);
    else this.#paste(Promise.resolve(send));
  }

  /** @returns {Promise<SendContent | null>} null when no paste event follows */
  #nextContent() {
    this.#awaiting?.(null);
    return new Promise((resolve) => {
      const found = (/** @type {SendContent | null} */ send) => {
        clearTimeout(timer);
        this.#awaiting = null;
        resolve(send);
      };
      const timer = setTimeout(() => found(null), NO_PASTE_MS);
      this.#awaiting = found;
    });
  }

  #paste(/** @type {Promise<SendContent | null>} */ content) {
    const release = this.#actions.hold();
    const before = this.#newest;
    this.#underWay += 1;
    this.#newest = (async () => {
      const send = await content;
      await before;
      const sent = send && (await send().catch(() => false));
      if (sent) await new Promise((done) => setTimeout(done, SET_CLIPBOARD_MS));
      this.#underWay -= 1;
      release();
    })();
  }
}

function isPaste(/** @type {KeyboardEvent} */ event) {
  if (event.altKey) return false;
  if (event.key === 'Insert') return event.shiftKey && !event.ctrlKey;
  return (event.ctrlKey || event.metaKey) && event.key.toLowerCase() === 'v';
}
