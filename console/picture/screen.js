// The canvas that shows the machine's screen at the machine's own size. The last good picture stays until a better
// one is there.

export class Screen {
  /**
   * @param {HTMLCanvasElement} canvas its dataset.frames counts the frames drawn
   * @param {{onFrame?: () => void, onSize?: () => void}} [options]
   */
  constructor(canvas, { onFrame, onSize } = {}) {
    this.canvas = canvas;
    this.context = canvas.getContext('2d', { alpha: false });
    this.onFrame = onFrame;
    this.onSize = onSize;
    this.reset();
  }

  /** Draws and closes the picture. */
  draw(
    /** @type {ImageBitmap | VideoFrame} */ picture,
    /** @type {number} */ width,
    /** @type {number} */ height,
  ) {
    const { canvas } = this;
    const resized = canvas.width !== width || canvas.height !== height;
    if (resized) {
      canvas.width = width;
      canvas.height = height;
    }
    this.context?.drawImage(picture, 0, 0);
    picture.close();
    this.drawn += 1;
    canvas.dataset.frames = String(this.drawn);
    if (resized || this.drawn === 1) this.onSize?.();
    this.onFrame?.();
  }

  /** For another machine: no picture at all. */
  reset() {
    this.drawn = 0;
    this.canvas.dataset.frames = '0';
    this.canvas.width = 1;
    this.canvas.height = 1;
  }
}
