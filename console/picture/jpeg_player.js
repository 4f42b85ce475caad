// Plays JPEG frames: decodes one at a time and always goes on with the newest, so that a slow browser shows fewer
// frames instead of older ones.
import { isDrawable } from './jpeg.js';

export class JpegPlayer {
  /**
   * @param {import('./screen.js').Screen} screen
   * @param {(blob: Blob) => Promise<ImageBitmap>} [decode]
   */
  constructor(screen, decode = (blob) => createImageBitmap(blob)) {
    this.screen = screen;
    this.decode = decode;
    /** @type {Uint8Array | null} */
    this.newest = null;
    this.busy = false;
    this.generation = 0;
  }

  /** @param {Uint8Array} jpeg one whole file; one that cannot be drawn is passed over */
  show(jpeg) {
    if (!isDrawable(jpeg)) return;
    this.newest = jpeg;
    if (!this.busy) this.work();
  }

  /** Forgets what is on its way; the drawn picture stays. */
  drop() {
    this.newest = null;
    this.generation += 1;
  }

  /** @private */
  async work() {
    this.busy = true;
    while (this.newest) {
      const jpeg = this.newest;
      this.newest = null;
      await this.drawOne(jpeg, this.generation);
    }
    this.busy = false;
  }

  /** @private */
  async drawOne(/** @type {Uint8Array} */ jpeg, /** @type {number} */ generation) {
    const bitmap = await this.decode(new Blob([jpeg], { type: 'image/jpeg' })).catch(() => null);
    if (!bitmap) return;
    if (generation === this.generation) this.screen.draw(bitmap, bitmap.width, bitmap.height);
    else bitmap.close();
  }
}
