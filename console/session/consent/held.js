// The session that the relay may hold for this page while the link is down.

export class Held {
  #link;
  /** @type {number | null} a session that is to be closed when the link is back */
  #toClose = null;
  /** @type {number | null} the relay's number of the session that this page can resume */
  number = null;

  constructor(/** @type {import('../../link/link.js').Link} */ link) {
    this.#link = link;
  }

  /** @returns {boolean} false when the link is down */
  resume() {
    return this.#link.sendControl({ type: 'resume', session: this.number });
  }

  /** Closes a session at the relay, when the link is back if it is down. */
  close(/** @type {number} */ session) {
    if (!this.#link.sendControl({ type: 'close', session })) this.#toClose = session;
  }

  /** To be called when the link is back. */
  linkUp() {
    if (this.#toClose !== null) this.#link.sendControl({ type: 'close', session: this.#toClose });
    this.#toClose = null;
  }
}
