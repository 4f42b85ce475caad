// Recognises gestures of fingers on the picture. One finger: a tap clicks, a long press clicks with the right
// button, a movement drags with the left button. Two fingers: a movement turns the wheel or, where the picture
// is larger than its area, moves the picture; spreading them zooms.

const LONG_PRESS_MS = 500;
/** Fingers that move less than this do not move; in CSS pixels, as all distances here. */
const SLOP = 10;
/** Two fingers zoom when their distance changes by this much before they move together. */
const SPREAD_SLOP = 24;
/** A second tap this soon and this near is sent at the place of the first, so that it becomes a double click. */
const DOUBLE_TAP_MS = 400;
const DOUBLE_TAP_DISTANCE = 24;

/** @typedef {{x: number, y: number}} Point a point of the page */
/**
 * What the gestures do on the machine.
 * @typedef {object} Actions
 * @property {(at: Point) => void} move
 * @property {(at: Point) => void} click
 * @property {(at: Point) => void} rightClick
 * @property {(at: Point) => void} press presses the left button
 * @property {(at: Point) => void} release releases the left button
 * @property {(at: Point, deltaY: number) => void} scroll deltaY is in CSS pixels, positive towards the user
 */
/**
 * The picture on the page. `zoom` is relative to the size that fits; `show` zooms, and shows the part of the
 * picture at `anchor` under the point `at`, as far as the picture's edges allow.
 * @typedef {{zoom: number, isLarger: boolean, anchorAt: (at: Point) => Point,
 *   show: (zoom: number, anchor: Point, at: Point) => void}} View
 */
/** @typedef {{centre: Point, distance: number, anchor: Point, zoom: number}} Pair two fingers */

export class TouchGestures {
  #actions;
  #view;
  #timers;
  /** @type {Map<number, Point>} */
  #fingers = new Map();
  /** @type {'none' | 'one' | 'drag' | 'two' | 'scroll' | 'move' | 'zoom' | 'over'} over: until all are lifted */
  #state = 'none';
  /** @type {Point} where the first finger came down */
  #down = { x: 0, y: 0 };
  /** @type {Point} where it acts */
  #start = this.#down;
  /** @type {Pair | null} the two fingers when the state began */
  #pair = null;
  #lastTap = { at: { x: 0, y: 0 }, time: -DOUBLE_TAP_MS };
  /** @type {unknown} */
  #longPress = null;

  /**
   * @param {Actions} actions
   * @param {View} view
   * @param {import('./keyboard.js').Timers} timers
   */
  constructor(actions, view, timers) {
    this.#actions = actions;
    this.#view = view;
    this.#timers = timers;
  }

  /** @param {number} finger @param {Point} at @param {number} time in milliseconds */
  down(finger, at, time) {
    const [first] = this.#fingers.values();
    this.#fingers.set(finger, at);
    this.#timers.clearTimeout(this.#longPress);
    if (this.#fingers.size === 1) {
      this.#down = at;
      this.#start = this.#isSecondTap(at, time) ? this.#lastTap.at : at;
      this.#state = 'one';
      this.#actions.move(this.#start);
      this.#longPress = this.#timers.setTimeout(() => this.#pressedLong(), LONG_PRESS_MS);
      return;
    }
    if (this.#state === 'drag') this.#actions.release(first);
    const begins = this.#fingers.size === 2 && this.#state !== 'over';
    this.#state = begins ? 'two' : 'over';
    if (begins) this.#pair = this.#measure();
  }

  /** @param {number} finger @param {Point} at */
  move(finger, at) {
    if (!this.#fingers.has(finger)) return;
    const before = this.#fingers.size === 2 ? this.#measure().centre : at;
    this.#fingers.set(finger, at);
    if (this.#state === 'one' && distance(at, this.#down) > SLOP) {
      this.#timers.clearTimeout(this.#longPress);
      this.#state = 'drag';
      this.#actions.press(this.#start);
    }
    if (this.#state === 'drag') this.#actions.move(at);
    if (this.#fingers.size === 2) this.#moveTwo(before);
  }

  /** @param {number} finger @param {Point} at @param {number} time in milliseconds */
  up(finger, at, time) {
    if (!this.#fingers.has(finger)) return;
    if (this.#state === 'one') {
      this.#actions.click(this.#start);
      this.#lastTap = { at: this.#start, time };
    }
    this.cancel(finger, at);
  }

  /** Ends a touch that the browser takes away. @param {number} finger @param {Point} at */
  cancel(finger, at) {
    if (!this.#fingers.delete(finger)) return;
    this.#timers.clearTimeout(this.#longPress);
    if (this.#state === 'drag') this.#actions.release(at);
    this.#state = this.#fingers.size ? 'over' : 'none';
  }

  #isSecondTap(/** @type {Point} */ at, /** @type {number} */ time) {
    const { at: first, time: then } = this.#lastTap;
    return time - then < DOUBLE_TAP_MS && distance(at, first) < DOUBLE_TAP_DISTANCE;
  }

  #pressedLong() {
    this.#state = 'over';
    this.#actions.rightClick(this.#start);
  }

  /** @returns {Pair} */
  #measure() {
    const [one, two] = this.#fingers.values();
    const centre = { x: (one.x + two.x) / 2, y: (one.y + two.y) / 2 };
    const anchor = this.#view.anchorAt(centre);
    return { centre, distance: Math.max(1, distance(one, two)), anchor, zoom: this.#view.zoom };
  }

  #moveTwo(/** @type {Point} */ before) {
    const pair = this.#pair;
    const now = this.#measure();
    if (!pair) return;
    const spreads = Math.abs(now.distance - pair.distance) > SPREAD_SLOP;
    const moves = distance(now.centre, pair.centre) > SLOP;
    if (this.#state === 'two' && moves) this.#begin(this.#view.isLarger ? 'move' : 'scroll', now);
    else if (spreads && ['two', 'move'].includes(this.#state)) this.#begin('zoom', now);
    else if (this.#state === 'move') this.#view.show(pair.zoom, pair.anchor, now.centre);
    else if (this.#state === 'scroll') this.#actions.scroll(pair.centre, before.y - now.centre.y);
    else if (this.#state === 'zoom')
      this.#view.show((pair.zoom * now.distance) / pair.distance, pair.anchor, now.centre);
  }

  /** What the fingers did until now is not carried out, because the picture would jump. */
  #begin(/** @type {'move' | 'scroll' | 'zoom'} */ state, /** @type {Pair} */ pair) {
    this.#state = state;
    this.#pair = pair;
  }
}

const distance = (/** @type {Point} */ a, /** @type {Point} */ b) => Math.hypot(a.x - b.x, a.y - b.y);
