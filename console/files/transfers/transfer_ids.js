// Requests for the numbers by which the relay and the machine know transfers.

/** @typedef {import('../../link/link.js').ControlMessage} ControlMessage */

export class TransferIds {
  #send;
  #requests = 0;
  /**
   * Unanswered requests by their number.
   * @type {Map<number, {resolve: (id: number) => void, reject: (why: Error) => void}>}
   */
  #open = new Map();

  /** @param {(message: object) => boolean} send to the relay; returns false when no session is open */
  constructor(send) {
    this.#send = send;
  }

  /** @returns {Promise<number>} rejected when the session ends first, or with the relay's refusal */
  request() {
    const request = ++this.#requests;
    return new Promise((resolve, reject) => {
      if (this.#send({ type: 'transfer', request })) this.#open.set(request, { resolve, reject });
      else reject(new Error('sessionOver'));
    });
  }

  /** Repeats the unanswered requests, after an interruption of the session. */
  requestAgain() {
    for (const request of this.#open.keys()) this.#send({ type: 'transfer', request });
  }

  /** Handles the relay's answer to a request. @param {unknown} request @param {unknown} id */
  receive(request, id) {
    if (typeof id === 'number') this.#take(request)?.resolve(id);
  }

  /** Handles an error message of the relay, which may be about a request. @param {unknown} request */
  refuse(request, /** @type {Error} */ why) {
    this.#take(request)?.reject(why);
  }

  sessionOver() {
    for (const request of [...this.#open.keys()]) this.refuse(request, new Error('sessionOver'));
  }

  #take(/** @type {unknown} */ request) {
    const found = typeof request === 'number' ? this.#open.get(request) : undefined;
    if (found) this.#open.delete(Number(request));
    return found;
  }
}
