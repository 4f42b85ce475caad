// Plays JPEG frames: decodes one at a time and continues with the newest, so that a slow browser shows fewer
// frames instead of older ones.
import { isDrawable } from './jpeg.js';

/** @typedef {{jpeg: Uint8Array<ArrayBuffer>, stamp: number}} Frame */

export class JpegPlayer {
  #screen;
  #decode;
  /** @type {Frame | null} */
  #newest = null;
  #busy = false;
  #generation = 0;

  /**
   * @param {import('./screen.js').Screen} screen
   * @param {(blob: Blob) => Promise<ImageBitmap>} [decode]
   */
  constructor(screen, decode = (blob) => createImageBitmap(blob)) {
    this.#screen = screen;
    this.#decode = decode;
  }

  /**
   * @param {Uint8Array<ArrayBuffer>} jpeg a complete file; a file that cannot be drawn is ignored
   * @param {number} stamp the machine's time of its capture
   */
  show(jpeg, stamp) {
    if (!isDrawable(jpeg)) return;
    this.#newest = { jpeg, stamp };
    if (!this.#busy) this.#work();
  }

  /** Drops the frames that are not drawn yet; the drawn picture stays. */
  drop() {
    this.#newest = null;
    this.#generation += 1;
  }

  async #work() {
    this.#busy = true;
    while (this.#newest) {
      const frame = this.#newest;
      this.#newest = null;
      await this.#drawOne(frame, this.#generation);
    }
    this.#busy = false;
  }

  async #drawOne(/** @type {Frame} */ { jpeg, stamp }, /** @type {number} */ generation) {
    const bitmap = await this.#decode(new Blob([jpeg], { type: 'image/jpeg' })).catch(() => null);
    if (!bitmap) return;
    if (generation === this.#generation) this.#screen.draw(bitmap, bitmap.width, bitmap.height, stamp);
    else bitmap.close();
  }
}
