// Plays JPEG frames: decodes one at a time and continues with the newest, so that a slow browser shows fewer
// frames instead of older ones.
import { isDrawable } from './jpeg.js';

/** @typedef {Uint8Array<ArrayBuffer>} Bytes */

export class JpegPlayer {
  #screen;
  #decode;
  /** @type {Bytes | null} */
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

  /** @param {Bytes} jpeg a complete file; a file that cannot be drawn is ignored */
  show(jpeg) {
    if (!isDrawable(jpeg)) return;
    this.#newest = jpeg;
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
      const jpeg = this.#newest;
      this.#newest = null;
      await this.#drawOne(jpeg, this.#generation);
    }
    this.#busy = false;
  }

  async #drawOne(/** @type {Bytes} */ jpeg, /** @type {number} */ generation) {
    const bitmap = await this.#decode(new Blob([jpeg], { type: 'image/jpeg' })).catch(() => null);
    if (!bitmap) return;
    if (generation === this.#generation) this.#screen.draw(bitmap, bitmap.width, bitmap.height);
    else bitmap.close();
  }
}
