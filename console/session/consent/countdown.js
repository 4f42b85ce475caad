// The time that a machine's user has left to answer a request for a session, or that an interruption lasts.
import { byId } from '../../base/dom.js';
import { duration } from '../../base/formats.js';
import { consentTexts } from './texts.js';

const STEP_MS = 250;
/** An interruption shows how long it lasts from this time on, in seconds. */
const COUNTED_S = 3;

export class Countdown {
  /** @type {ReturnType<typeof setInterval> | undefined} */
  #timer;
  #element = byId('session-note-time');

  /**
   * Shows the time until the answer is due. The first step passes without it, because unattended machines
   * answer at once.
   * @param {number} seconds
   */
  start(seconds) {
    const end = performance.now() + seconds * 1000;
    this.#run(() => consentTexts.timeLeft(duration((end - performance.now()) / 1000)));
  }

  /** Shows the time since this call. */
  startCounting() {
    const start = performance.now();
    this.#run(() => {
      const seconds = (performance.now() - start) / 1000;
      return seconds < COUNTED_S ? '' : consentTexts.waited(duration(seconds));
    });
  }

  #run(/** @type {() => string} */ text) {
    this.stop();
    this.#timer = setInterval(() => {
      this.#element.textContent = text();
      this.#element.hidden = this.#element.textContent === '';
    }, STEP_MS);
  }

  stop() {
    clearInterval(this.#timer);
    this.#element.hidden = true;
  }
}
