// Asks the machine for its folders, one after the other as they are wanted. It answers in the order of the questions.
import { parseListing } from './listing.js';

export class Folders {
  /** @param {(path: string) => boolean} ask false when there is no session to ask in */
  constructor(ask) {
    this.ask = ask;
    /** @type {{path: string, resolve: (listing: import('./listing.js').Listing) => void, reject: (why: Error) => void}[]} */
    this.questions = [];
  }

  /**
   * A folder that is missing or closed to the agent looks like an empty one.
   * @param {string} path '' for the drives
   * @returns {Promise<import('./listing.js').Listing>} rejected when the session ends first
   */
  list(path) {
    return new Promise((resolve, reject) => {
      if (this.ask(path)) this.questions.push({ path, resolve, reject });
      else reject(new Error('sessionOver'));
    });
  }

  receive(/** @type {Uint8Array} */ payload) {
    const listing = parseListing(payload);
    const at = this.questions.findIndex(({ path }) => path === listing?.path);
    if (listing && at >= 0) this.questions.splice(at, 1)[0].resolve(listing);
  }

  sessionOver() {
    this.questions.splice(0).forEach(({ reject }) => reject(new Error('sessionOver')));
  }
}
