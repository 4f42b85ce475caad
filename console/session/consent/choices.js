// What the representative has chosen in a session: kept by the relay, so that the page can be loaded again, or the
// session continue in another window, without choosing again.

const PAUSE_MS = 300;

/**
 * @typedef {{read: () => Record<string, unknown>, restore: (choices: Record<string, unknown>) => void}} Source
 */

export class Choices {
  #channel;
  #relay;
  #sources;
  #sent = '';
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  #timer;

  /**
   * @param {import('../../link/session_channel.js').SessionChannel} channel
   * @param {{sendControl: (message: object) => boolean}} relay
   * @param {HTMLElement} place the part of the page in which choices are made
   * @param {Source[]} sources
   */
  constructor(channel, relay, place, sources) {
    this.#channel = channel;
    this.#relay = relay;
    this.#sources = sources;
    for (const event of ['change', 'click']) place.addEventListener(event, () => this.#schedule());
    channel.addEventListener('open', () => {
      this.#sent = '';
      this.#schedule();
    });
    channel.addEventListener('closed', () => clearTimeout(this.#timer));
  }

  /** Restores what the relay kept; ignores anything that is not an object. */
  restore(/** @type {unknown} */ choices) {
    if (choices === null || typeof choices !== 'object') return;
    for (const source of this.#sources) source.restore(/** @type {Record<string, unknown>} */ (choices));
  }

  /** Sends the choices once for several clicks in a row. */
  #schedule() {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => this.#send(), PAUSE_MS);
  }

  #send() {
    if (this.#channel.session === null) return;
    const choices = Object.assign({}, ...this.#sources.map((source) => source.read()));
    const text = JSON.stringify(choices);
    if (text === this.#sent) return;
    if (this.#relay.sendControl({ type: 'choices', session: this.#channel.session, choices }))
      this.#sent = text;
  }
}
