// The live picture: decodes one frame at a time and always goes on with the newest, so that a slow browser shows
// fewer frames instead of older ones. The last good picture stays until a better one is there.
import { isDrawable } from './jpeg.js';

const STAMP_BYTES = 8;

export class Viewer {
  /**
   * @param {HTMLCanvasElement} canvas its dataset.frames counts the frames drawn
   * @param {{decode?: (blob: Blob) => Promise<ImageBitmap>, onFrame?: () => void, onSize?: () => void}} [options]
   */
  constructor(canvas, { decode = (blob) => createImageBitmap(blob), onFrame, onSize } = {}) {
    this.canvas = canvas;
    this.context = canvas.getContext('2d', { alpha: false });
    this.decode = decode;
    this.onFrame = onFrame;
    this.onSize = onSize;
    this.drawn = 0;
    this.bad = 0;
    /** @type {Uint8Array | null} */
    this.newest = null;
    this.busy = false;
    this.paused = false;
    this.generation = 0;
    canvas.dataset.frames = '0';
  }

  get hasPicture() {
    return this.drawn > 0;
  }

  /** @param {Uint8Array} payload an 8-byte time stamp and one JPEG file */
  show(payload) {
    const jpeg = payload.subarray(STAMP_BYTES);
    if (!isDrawable(jpeg)) {
      this.bad += 1;
      return;
    }
    this.newest = jpeg;
    this.work();
  }

  /** While paused, only the newest frame is kept; it is drawn on the way back. */
  pause(/** @type {boolean} */ on) {
    this.paused = on;
    if (!on) this.work();
  }

  /** Forgets what is on its way; the drawn picture stays. */
  drop() {
    this.newest = null;
    this.generation += 1;
  }

  /** A fresh viewer for another machine: no picture at all. */
  reset() {
    this.drop();
    this.drawn = 0;
    this.bad = 0;
    this.canvas.dataset.frames = '0';
    this.canvas.width = 1;
    this.canvas.height = 1;
  }

  /** @private */
  async work() {
    if (this.busy || this.paused) return;
    this.busy = true;
    while (this.newest && !this.paused) {
      const jpeg = this.newest;
      this.newest = null;
      await this.drawOne(jpeg, this.generation);
    }
    this.busy = false;
  }

  /** @private */
  async drawOne(/** @type {Uint8Array} */ jpeg, /** @type {number} */ generation) {
    let bitmap;
    try {
      bitmap = await this.decode(new Blob([jpeg], { type: 'image/jpeg' }));
    } catch {
      this.bad += 1;
      return;
    }
    try {
      if (generation !== this.generation) return;
      const { canvas } = this;
      const resized = canvas.width !== bitmap.width || canvas.height !== bitmap.height;
      if (resized) {
        canvas.width = bitmap.width;
        canvas.height = bitmap.height;
      }
      this.context?.drawImage(bitmap, 0, 0);
      this.drawn += 1;
      canvas.dataset.frames = String(this.drawn);
      if (resized || this.drawn === 1) this.onSize?.();
      this.onFrame?.();
    } finally {
      bitmap.close();
    }
  }
}
