// Converts sizes and positions between the page and the machine's picture.
import { POINTER_MAX, WHEEL_NOTCH } from './events.js';

const PIXELS_PER_NOTCH = 100;
const LINES_PER_NOTCH = 3;
const NOTCHES_PER_PAGE = 3;

/** @typedef {{width: number, height: number}} Size */

/**
 * The largest size with the picture's aspect ratio that fits into the space.
 * @param {Size} picture
 * @param {Size} space
 */
export function fit(picture, space) {
  const scale = Math.min(space.width / picture.width, space.height / picture.height);
  return {
    width: Math.max(1, Math.floor(picture.width * scale)),
    height: Math.max(1, Math.floor(picture.height * scale)),
  };
}

/**
 * Converts a point of the page to the range 0..POINTER_MAX, which the machine maps to its first to last
 * pixel. A point outside the picture is moved to the picture's edge.
 *
 * The machine truncates twice when it converts the position back, and Windows maps 0..65535 to one pixel more
 * than the agent does, so the result could be up to a pixel away from the intended pixel. The function
 * therefore adds a quarter of a pixel at the left or top edge of the picture, decreasing to nothing at the
 * opposite edge. This hits the intended pixel on every monitor of the desktop.
 * @param {{x: number, y: number}} point
 * @param {{left: number, top: number, width: number, height: number}} rect where the picture is drawn on the
 *   page
 * @param {Size} picture the picture's size in the machine's pixels
 */
export function toWire(point, rect, picture) {
  const axis = (/** @type {number} */ offset, /** @type {number} */ drawn, /** @type {number} */ pixels) => {
    const pixel = Math.min(Math.max(Math.floor((offset / drawn) * pixels), 0), pixels - 1);
    if (!(pixels > 1) || !Number.isFinite(pixel)) return 0;
    const aim = pixel + 0.25 * (1 - pixel / (pixels - 1));
    return Math.min(POINTER_MAX, Math.round((aim * POINTER_MAX) / (pixels - 1)));
  };
  return {
    x: axis(point.x - rect.left, rect.width, picture.width),
    y: axis(point.y - rect.top, rect.height, picture.height),
  };
}

/**
 * Converts wheel movement from pixels, lines or pages to units of 120 for each notch, and keeps the fraction
 * for the next call.
 */
export class WheelMeter {
  #rest = 0;

  /**
   * @param {{deltaY: number, deltaMode: number}} event its deltaY is positive towards the user
   * @returns {number} the movement to send now, positive away from the user; 0 when there is nothing to send
   */
  take({ deltaY, deltaMode }) {
    if (!Number.isFinite(deltaY)) return 0;
    const perUnit =
      deltaMode === 2
        ? WHEEL_NOTCH * NOTCHES_PER_PAGE
        : WHEEL_NOTCH / (deltaMode === 1 ? LINES_PER_NOTCH : PIXELS_PER_NOTCH);
    if (Math.sign(deltaY) === Math.sign(this.#rest)) this.#rest = 0;
    // Rounded, so that a hundred small steps add up to a whole notch.
    this.#rest = Math.round((this.#rest - deltaY * perUnit) * 1e6) / 1e6;
    const whole = Math.min(Math.max(Math.trunc(this.#rest), -32768), 32767);
    this.#rest = Math.min(Math.max(this.#rest - whole, -1), 1);
    return whole === 0 ? 0 : whole;
  }
}
