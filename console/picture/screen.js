// The canvas that shows the machine's screen at the machine's own size. The last picture stays until the next
// one is drawn.
import { PictureTimes } from './picture_times.js';

export class Screen {
  times = new PictureTimes();
  /** The number of pictures drawn since the last reset. */
  drawn = 0;
  #context;
  #onFrame;
  #onSize;

  /**
   * @param {HTMLCanvasElement} canvas its dataset.frames counts the pictures drawn
   * @param {{onFrame?: () => void, onSize?: () => void}} [listeners]
   */
  constructor(canvas, { onFrame, onSize } = {}) {
    this.canvas = canvas;
    this.#context = canvas.getContext('2d', { alpha: false });
    this.#onFrame = onFrame;
    this.#onSize = onSize;
    this.reset();
  }

  /**
   * Draws the picture and closes it.
   * @param {ImageBitmap | VideoFrame} picture
   * @param {number} width
   * @param {number} height
   * @param {number} stamp the machine's time of its capture
   */
  draw(picture, width, height, stamp) {
    const { canvas } = this;
    const resized = canvas.width !== width || canvas.height !== height;
    if (resized) {
      canvas.width = width;
      canvas.height = height;
    }
    this.#context?.drawImage(picture, 0, 0);
    picture.close();
    this.times.drawn(stamp);
    this.drawn += 1;
    canvas.dataset.frames = String(this.drawn);
    if (resized || this.drawn === 1) this.#onSize?.();
    this.#onFrame?.();
  }

  /** Removes the picture, before a session with another machine. */
  reset() {
    this.drawn = 0;
    this.canvas.dataset.frames = '0';
    this.canvas.width = 1;
    this.canvas.height = 1;
  }
}
