// When each picture arrived, was drawn and was displayed.

/** The largest number of pictures of each kind that are remembered; a second's at the highest rate. */
const MOST = 60;

/**
 * A picture that was displayed. stamp: the machine's time of its capture; received: the time of its arrival by the
 * page's clock; decoder: the milliseconds from there to the drawing; screen: those from there to the display.
 * @typedef {{stamp: number, received: number, decoder: number, screen: number}} ShownPicture
 */

/** The page's clock and display; tests pass others. */
const PAGE = {
  now: () => performance.now(),
  /** Calls the function before the next display of the page; never while the page is hidden. */
  nextDisplay: (/** @type {() => void} */ act) => requestAnimationFrame(act),
  hidden: () => document.hidden,
};

export class PictureTimes {
  #page;
  /** @type {Map<number, number>} the times of arrival of the pictures that are not drawn yet, by their stamp */
  #received = new Map();
  /** @type {{stamp: number, received: number, drawn: number}[]} */
  #drawn = [];
  /** @type {ShownPicture[]} */
  #shown = [];

  constructor(page = PAGE) {
    this.#page = page;
  }

  received(/** @type {number} */ stamp) {
    this.#received.set(stamp, this.#page.now());
    for (const oldest of this.#received.keys()) {
      if (this.#received.size <= MOST) break;
      this.#received.delete(oldest);
    }
  }

  /** A picture was drawn. Those that arrived before it are not going to be. */
  drawn(/** @type {number} */ stamp) {
    const received = this.#received.get(stamp);
    if (received === undefined) return;
    for (const earlier of this.#received.keys()) {
      this.#received.delete(earlier);
      if (earlier === stamp) break;
    }
    this.#drawn.push({ stamp, received, drawn: this.#page.now() });
    if (this.#page.hidden()) this.#displayed();
    else if (this.#drawn.length === 1) this.#page.nextDisplay(() => this.#displayed());
    else if (this.#drawn.length > MOST) this.#drawn.shift();
  }

  /** The pictures that were displayed since the last call, at most the last MOST. */
  take() {
    const shown = this.#shown;
    this.#shown = [];
    return shown;
  }

  /** Forgets the pictures that are not drawn yet. */
  clear() {
    this.#received.clear();
  }

  /** In a hidden page, a picture counts as displayed when it is drawn. */
  #displayed() {
    const now = this.#page.now();
    const hidden = this.#page.hidden();
    for (const { stamp, received, drawn } of this.#drawn)
      this.#shown.push({ stamp, received, decoder: drawn - received, screen: hidden ? 0 : now - drawn });
    this.#drawn = [];
    this.#shown = this.#shown.slice(-MOST);
  }
}
