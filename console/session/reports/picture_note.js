// The message over the picture of an accepted session: that the first picture is due or late, or that nothing
// arrives on the link.
import { texts } from '../../base/texts.js';

export class PictureNote {
  #overlay;
  #isShown;
  #machine;
  #onAwaited;
  /** Whether a picture was drawn since the session was accepted. */
  #hasPicture = false;
  #linkStill = false;

  /**
   * @param {import('../overlay.js').Overlay} overlay
   * @param {{isShown: () => boolean, machine: () => string, onAwaited: () => void}} parts isShown: whether the
   *   session is accepted; otherwise the functions do nothing. machine: its name in a sentence. onAwaited: called
   *   when the page says that it waits for the first picture
   */
  constructor(overlay, { isShown, machine, onAwaited }) {
    this.#overlay = overlay;
    this.#isShown = isShown;
    this.#machine = machine;
    this.#onAwaited = onAwaited;
  }

  /** To be called when a session is accepted. */
  begin() {
    this.#hasPicture = false;
    this.#linkStill = false;
    this.awaitPicture();
  }

  /** Says that the page waits for the first picture, unless there is one. */
  awaitPicture() {
    if (!this.#isShown() || this.#hasPicture) return;
    this.#overlay.show(texts.starting, [], { busy: true });
    this.#onAwaited();
  }

  /** Removes the message. */
  frameDrawn() {
    if (!this.#isShown()) return;
    this.#hasPicture = true;
    if (!this.#linkStill) this.#overlay.clear();
  }

  /**
   * Says that the first picture is late, unless there is one.
   * @param {(machine: string) => string} text
   * @param {import('../overlay.js').Action[]} offered
   */
  pictureLate(text, offered) {
    if (!this.#isShown() || this.#hasPicture || this.#linkStill) return;
    this.#overlay.show(text(this.#machine()), offered);
  }

  /** Says that nothing is heard on the link, or that something is heard again. */
  linkStill(/** @type {boolean} */ still) {
    if (!this.#isShown() || still === this.#linkStill) return;
    this.#linkStill = still;
    if (still) this.#overlay.show(texts.linkStill, [], { busy: true });
    else if (this.#hasPicture) this.#overlay.clear();
    else this.awaitPicture();
  }
}
