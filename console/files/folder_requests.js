// Requests for listings of the machine's folders. The machine answers them in the order in which they were
// sent.
import { parseListing } from './listing.js';

/** @typedef {import('./listing.js').Listing} Listing */

/** The machine's listing is larger than the relay passes on. */
export class TooLargeError extends Error {
  /** @param {number} bytes the length of the listing */
  constructor(bytes) {
    super('folderTooLarge');
    this.bytes = bytes;
  }
}

/**
 * lasting: whether the request outlasts an interruption of the session.
 * @typedef {{path: string, lasting: boolean, resolve: (listing: Listing) => void, reject: (why: Error) => void}}
 *   Request
 */

export class FolderRequests {
  #send;
  /** @type {Request[]} */
  #open = [];
  #suspended = false;

  /** @param {(path: string) => boolean} send returns false when no session is open */
  constructor(send) {
    this.#send = send;
  }

  /**
   * Lists a folder. A folder that does not exist or that the agent cannot read appears empty.
   * @param {string} path '' for the drives
   * @param {{lasting?: boolean}} [options] lasting: the folder is listed again after an interruption of the session;
   *   otherwise the interruption rejects the result
   * @returns {Promise<Listing>} rejected when the session ends first, or with a TooLargeError
   */
  list(path, { lasting = false } = {}) {
    return new Promise((resolve, reject) => {
      if ((lasting && this.#suspended) || this.#send(path))
        this.#open.push({ path, lasting, resolve, reject });
      else reject(new Error('sessionOver'));
    });
  }

  /** Handles a listing from the machine. */
  receive(/** @type {Uint8Array} */ payload) {
    const listing = parseListing(payload);
    const at = this.#open.findIndex(({ path }) => path === listing?.path);
    if (listing && at >= 0) this.#open.splice(at, 1)[0].resolve(listing);
  }

  /** Handles the relay's message that it dropped a listing, which answers the oldest open request. */
  tooLarge(/** @type {number} */ bytes) {
    this.#open.shift()?.reject(new TooLargeError(bytes));
  }

  /** Handles an interruption of the session. */
  suspend() {
    this.#suspended = true;
    const open = this.#open;
    this.#open = open.filter(({ lasting }) => lasting);
    for (const { lasting, reject } of open) if (!lasting) reject(new Error('sessionOver'));
  }

  /** Sends the requests that have waited for the session to go on. */
  opened() {
    if (!this.#suspended) return;
    this.#suspended = false;
    for (const { path, lasting } of this.#open) if (lasting) this.#send(path);
  }

  sessionOver() {
    this.#suspended = false;
    for (const { reject } of this.#open.splice(0)) reject(new Error('sessionOver'));
  }
}
