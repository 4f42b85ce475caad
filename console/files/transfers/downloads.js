// The downloads that the machine is sending: stores their bytes and checks whether each is complete. Reports
// to the relay how many bytes of each are stored: it keeps the rest, and sends no more than this computer's disk
// writes.
import { readJson } from '../../link/envelope.js';
import { completenessOf } from './arrival.js';

/** @typedef {import('./transfer.js').Transfer} Transfer */
/** @typedef {import('./download_sink.js').DownloadSink} DownloadSink */
/**
 * stored: the bytes that a reload of the page does not lose. ended: whether the machine has ended the download.
 * @typedef {{transfer: Transfer, sink: DownloadSink, nextChunk: number, stored: number, ended: boolean,
 *   written: Promise<void>}} Incoming
 */
/** @typedef {{id: number, ok: boolean, error: unknown, readable: boolean}} End */

const CHUNK_HEADER_BYTES = 8;
/** Finds the number of the transfer in an end message that is not valid JSON. */
const TRANSFER_ID = /"transfer_id"\s*:\s*(\d+)/;

/**
 * @typedef {object} Surroundings what the downloads use of the queue and the session
 * @property {(transfer: Transfer, state: 'done' | 'failed', remark?: string) => void} finish
 * @property {(transfer: Transfer) => void} changed
 * @property {(id: number) => void} ended this page needs nothing more of the download with this id
 * @property {(message: object) => boolean} sendControl
 * @property {(path: string) => Promise<import('../listing.js').Entry | undefined>} entryOf lists the folder of a
 *   file and returns the file's entry
 */

export class Downloads {
  #use;
  /** @type {Map<number, Incoming>} by the id of the transfer */
  #incoming = new Map();
  /**
   * Downloads that have ended here and that the machine may still be sending, by id.
   * @type {Map<number, Transfer>}
   */
  #unwanted = new Map();

  constructor(/** @type {Surroundings} */ use) {
    this.#use = use;
  }

  /**
   * Prepares for the chunks of a download, before it is requested or continued.
   * @param {number} id
   * @param {Transfer} transfer
   * @param {DownloadSink} sink
   * @param {number} [chunks] the number of chunks that the sink contains
   */
  begin(id, transfer, sink, chunks = 0) {
    const stored = transfer.done;
    const written = Promise.resolve();
    this.#incoming.set(id, { transfer, sink, nextChunk: chunks, stored, ended: false, written });
  }

  /** Asks the relay, after an interruption of the session, to go on after the bytes that have arrived. */
  askOn(/** @type {number} */ id) {
    const incoming = this.#incoming.get(id);
    if (!incoming || incoming.ended) return;
    this.#use.sendControl({ type: 'continue', transfer: id, bytes: incoming.transfer.done });
  }

  /** Handles the relay's answer: the next chunk has this index and comes after so many bytes. */
  goOn(/** @type {number} */ id, /** @type {unknown} */ bytes, /** @type {unknown} */ chunk) {
    const incoming = this.#incoming.get(id);
    if (!incoming) return;
    if (bytes !== incoming.transfer.done || chunk !== incoming.nextChunk)
      this.#use.finish(incoming.transfer, 'failed', 'outOfOrder');
    // What was stored during the interruption could not be reported.
    else this.#report(id, incoming.stored);
  }

  /** Ends a download early. The machine goes on sending; the relay drops the rest. */
  release(/** @type {number} */ id) {
    const incoming = this.#incoming.get(id);
    if (!incoming) return;
    incoming.sink.abort();
    this.#incoming.delete(id);
    if (incoming.ended) return;
    this.#unwanted.set(id, incoming.transfer);
    incoming.transfer.stillSent = true;
  }

  /** Handles the return to a session, with the relay's list of the unwanted downloads that the machine still sends. */
  returned(/** @type {unknown} */ unwanted) {
    if (!Array.isArray(unwanted)) return;
    for (const id of [...this.#unwanted.keys()]) if (!unwanted.includes(id)) this.#notSent(id);
  }

  /** Handles the end of the machine's connection, which also ends what the machine was sending. */
  machineGone() {
    for (const id of [...this.#unwanted.keys()]) this.#notSent(id);
  }

  receiveChunk(/** @type {Uint8Array<ArrayBuffer>} */ payload) {
    if (payload.length < CHUNK_HEADER_BYTES) return;
    const view = new DataView(payload.buffer, payload.byteOffset);
    const [id, index] = [view.getUint32(0), view.getUint32(4)];
    const incoming = this.#incoming.get(id);
    if (!incoming) return;
    const { transfer } = incoming;
    if (index !== incoming.nextChunk) {
      this.#use.finish(transfer, 'failed', 'outOfOrder');
      return;
    }
    const bytes = payload.subarray(CHUNK_HEADER_BYTES);
    incoming.nextChunk = (incoming.nextChunk + 1) >>> 0;
    transfer.advance(bytes.length);
    this.#use.changed(transfer);
    const write = incoming.sink.write(bytes).then((stored) => this.#stored(id, incoming, stored));
    incoming.written = Promise.all([incoming.written, write]).then(() => {});
    incoming.written.catch(() => this.#use.finish(transfer, 'failed', 'noRoom'));
  }

  #stored(/** @type {number} */ id, /** @type {Incoming} */ incoming, /** @type {number} */ stored) {
    if (stored <= incoming.stored || this.#incoming.get(id) !== incoming) return;
    incoming.stored = stored;
    this.#report(id, stored);
  }

  /** Reports to the relay how many bytes it need not keep. @param {{end?: true}} [more] */
  #report(/** @type {number} */ id, /** @type {number} */ bytes, more = {}) {
    this.#use.sendControl({ type: 'stored', transfer: id, bytes, ...more });
  }

  /** Handles the machine's message that ends a download. */
  async receiveEnd(/** @type {Uint8Array} */ payload) {
    const end = readEnd(payload);
    this.#notSent(end.id);
    if (!end.readable) this.#failUnreadable(end.id);
    const incoming = this.#incoming.get(end.id);
    if (!incoming || incoming.ended) return;
    incoming.ended = true;
    const { state, remark } = end.ok ? await this.#complete(incoming) : failureOf(end);
    if (!incoming.transfer.blob) incoming.sink.abort();
    // Until now, a page that is loaded again could continue the download.
    this.#incoming.delete(end.id);
    this.#report(end.id, incoming.transfer.done, { end: true });
    this.#use.ended(end.id);
    this.#use.finish(incoming.transfer, state, remark);
  }

  /** Waits until a download is stored, and judges whether it is complete. */
  async #complete(/** @type {Incoming} */ incoming) {
    const { transfer, sink } = incoming;
    transfer.state = 'checking';
    this.#use.changed(transfer);
    try {
      await incoming.written;
      transfer.blob = await sink.close();
      transfer.sink = sink;
    } catch {
      return { state: /** @type {const} */ ('failed'), remark: 'noRoom' };
    }
    return this.#check(transfer);
  }

  /**
   * Compares the size of a download with the size in the folder's listing. The machine reports a download as
   * complete also after a read error within the file.
   */
  async #check(/** @type {Transfer} */ { done, size, path }) {
    if (done === size) return { state: /** @type {const} */ ('done'), remark: '' };
    const after = await this.#use.entryOf(path).catch(() => undefined);
    return completenessOf(done, size, after);
  }

  /**
   * Ends the download that an unreadable end message names, or all downloads when it names none: the console
   * cannot know which of them will still be sent.
   */
  #failUnreadable(/** @type {number} */ id) {
    const ids = this.#incoming.has(id) ? [id] : Number.isNaN(id) ? [...this.#incoming.keys()] : [];
    for (const one of ids) {
      const incoming = this.#incoming.get(one);
      if (incoming && !incoming.ended) this.#use.finish(incoming.transfer, 'failed', 'unreadableEnd');
      if (one === id) this.#notSent(one);
    }
  }

  #notSent(/** @type {number} */ id) {
    const transfer = this.#unwanted.get(id);
    if (!transfer) return;
    this.#unwanted.delete(id);
    transfer.stillSent = false;
    this.#use.changed(transfer);
  }
}

/** @returns {{state: 'failed', remark: string}} */
function failureOf(/** @type {End} */ { error }) {
  return { state: 'failed', remark: error === 'cannot open' ? 'cannotOpen' : 'machineFailed' };
}

/** @returns {End} id: NaN when the message names no transfer */
function readEnd(/** @type {Uint8Array} */ payload) {
  const fields = readJson(payload);
  if (fields) {
    const { transfer_id: id, ok, error } = fields;
    return { id: typeof id === 'number' ? id : Number.NaN, ok: ok === true, error, readable: true };
  }
  const found = TRANSFER_ID.exec(new TextDecoder().decode(payload));
  return { id: found ? Number(found[1]) : Number.NaN, ok: false, error: undefined, readable: false };
}
