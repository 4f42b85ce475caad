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

export class FolderRequests {
  #send;
  /** @type {{path: string, resolve: (listing: Listing) => void, reject: (why: Error) => void}[]} */
  #open = [];

  /** @param {(path: string) => boolean} send returns false when no session is open */
  constructor(send) {
    this.#send = send;
  }

  /**
   * Lists a folder. A folder that does not exist or that the agent cannot read appears empty.
   * @param {string} path '' for the drives
   * @returns {Promise<Listing>} rejected when the session ends first, or with a TooLargeError
   */
  list(path) {
    return new Promise((resolve, reject) => {
      if (this.#send(path)) this.#open.push({ path, resolve, reject });
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

  sessionOver() {
    for (const { reject } of this.#open.splice(0)) reject(new Error('sessionOver'));
  }
}
