// The area of the page that shows the picture: at the size that fits, at its actual size (a pixel of the
// picture is a pixel of the display), or zoomed with two fingers. A picture larger than the area can be moved.
import { byId } from '../base/dom.js';
import { fit } from '../input/geometry.js';

/** How much larger than the fitted size the picture can be zoomed. */
const MAX_ZOOM = 4;
/** A zoom this near to the fitted size becomes the fitted size. */
const SNAP = 0.03;
/** Browsers round positions to 1/64 CSS pixel. */
const ROUNDING = 0.1;

/** @typedef {import('../input/touch.js').Point} Point */
/** @typedef {import('../input/geometry.js').Size} Size */

export class Stage {
  #element = byId('stage');
  #area = byId('screen-area');
  #actualSize = byId('actual-size', HTMLInputElement);
  #screen;
  /** @type {number | null} the zoom that was chosen with the fingers */
  #chosen = null;

  /** @param {import('../picture/screen.js').Screen} screen */
  constructor(screen) {
    this.#screen = screen;
    this.#actualSize.addEventListener('change', () => this.reset());
    new ResizeObserver(() => this.layOut()).observe(this.#area);
    this.#followDensity();
  }

  /** The representative's choice of the size, for the return to a session. */
  get choices() {
    return {
      read: () => ({ actual: this.#actualSize.checked }),
      restore: (/** @type {Record<string, unknown>} */ { actual }) => {
        this.#actualSize.checked = actual === true;
        this.reset();
      },
    };
  }

  get element() {
    return this.#element;
  }

  get area() {
    return this.#area;
  }

  /** The picture's size relative to the size that fits. */
  get zoom() {
    if (this.#chosen !== null) return this.#chosen;
    return this.#actualSize.checked ? this.#actualZoom : 1;
  }

  /** Whether a part of the picture is outside the area. */
  get isLarger() {
    const { scrollWidth, clientWidth, scrollHeight, clientHeight } = this.#area;
    return scrollWidth > clientWidth || scrollHeight > clientHeight;
  }

  /** The place in the picture under a point of the page; the picture's edges are at 0 and 1. */
  anchorAt(/** @type {Point} */ { x, y }) {
    const { left, top, width, height } = this.#screen.canvas.getBoundingClientRect();
    return { x: (x - left) / width, y: (y - top) / height };
  }

  /**
   * Zooms the picture, and moves it until the anchor is under the point, as far as its edges allow.
   * @param {number} zoom relative to the size that fits; limited to sensible values
   * @param {Point} anchor
   * @param {Point} at
   */
  show(zoom, anchor, at) {
    if (zoom !== this.zoom) this.#zoomTo(zoom);
    this.layOut();
    const now = this.anchorAt(at);
    const { width, height } = this.#screen.canvas.getBoundingClientRect();
    this.#area.scrollLeft += (anchor.x - now.x) * width;
    this.#area.scrollTop += (anchor.y - now.y) * height;
  }

  #zoomTo(/** @type {number} */ zoom) {
    const actual = this.#actualZoom;
    const limited = Math.min(Math.max(zoom, Math.min(1, actual)), Math.max(MAX_ZOOM, actual));
    this.#chosen = Math.abs(limited - 1) < SNAP ? null : limited;
    this.#actualSize.checked = false;
  }

  /** Ends a zoom that was chosen with the fingers. */
  reset() {
    this.#chosen = null;
    this.layOut();
  }

  layOut() {
    const { canvas, drawn } = this.#screen;
    const isActual = this.#chosen === null && this.#actualSize.checked;
    this.#area.classList.toggle('actual', isActual);
    this.#area.classList.toggle('movable', this.zoom !== 1);
    // A canvas without a picture would show as a black rectangle.
    canvas.hidden = drawn === 0;
    const size = this.#size(isActual);
    canvas.style.width = `${size.width}px`;
    canvas.style.height = `${size.height}px`;
    // Read after the size is set, because scroll bars make the area smaller.
    const { clientWidth, clientHeight } = this.#area;
    const { left, top } = this.#area.getBoundingClientRect();
    canvas.style.marginLeft = `${margin(left, clientWidth - size.width)}px`;
    canvas.style.marginTop = `${margin(top, clientHeight - size.height)}px`;
  }

  /** @returns {Size} the size that fits, in CSS pixels */
  get #fitted() {
    const { width, height } = this.#area.getBoundingClientRect();
    return fit(this.#screen.canvas, { width: Math.floor(width), height: Math.floor(height) });
  }

  get #actualZoom() {
    return this.#screen.canvas.width / devicePixelRatio / this.#fitted.width;
  }

  /** @returns {Size} in CSS pixels */
  #size(/** @type {boolean} */ isActual) {
    const { canvas } = this.#screen;
    if (isActual) return { width: canvas.width / devicePixelRatio, height: canvas.height / devicePixelRatio };
    const { width, height } = this.#fitted;
    return { width: width * this.zoom, height: height * this.zoom };
  }

  /** Lays the picture out again when the window moves to a display of another density. */
  #followDensity() {
    const change = () => {
      this.layOut();
      this.#followDensity();
    };
    matchMedia(`(resolution: ${devicePixelRatio}dppx)`).addEventListener('change', change, { once: true });
  }
}

/**
 * The margin that centres the picture, or none for a picture larger than the area, moved to the display's next
 * pixel: between two pixels, the picture would be blurred.
 * @param {number} edge the area's edge on the page
 * @param {number} room the area's size less the picture's
 */
function margin(edge, room) {
  const wanted = edge + Math.max(0, room) / 2;
  return Math.ceil(wanted * devicePixelRatio - ROUNDING) / devicePixelRatio - edge;
}
