// The downloads that the machine is sending: stores their bytes and checks whether each is complete. Reports
// to the relay how many bytes are stored, so that it reads from the machine no faster than this computer's disk
// writes.
import { readJson } from '../link/envelope.js';
import { completenessOf } from './arrival.js';

/** @typedef {import('./transfer.js').Transfer} Transfer */
/** @typedef {import('./download_sink.js').DownloadSink} DownloadSink */
/**
 * @typedef {{transfer: Transfer, sink: DownloadSink, nextChunk: number, written: Promise<void>}} Incoming
 */
/** @typedef {{id: number, ok: boolean, error: unknown, readable: boolean}} End */

const CHUNK_HEADER_BYTES = 8;
/** Finds the number of the transfer in an end message that is not valid JSON. */
const TRANSFER_ID = /"transfer_id"\s*:\s*(\d+)/;

/**
 * @typedef {object} Surroundings what the downloads use of the queue and the session
 * @property {(transfer: Transfer, state: 'done' | 'failed', remark?: string) => void} finish
 * @property {(transfer: Transfer) => void} changed
 * @property {(id: number) => void} ended the machine has ended the download with this id
 * @property {(message: object) => boolean} sendControl
 * @property {() => number | null} session the number of the open session
 * @property {(path: string) => Promise<import('./listing.js').Entry | undefined>} entryOf lists the folder of a
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
  /** The session in which bytes are confirmed, and the number of bytes confirmed in it. */
  #session = /** @type {number | null} */ (null);
  #confirmed = 0;

  constructor(/** @type {Surroundings} */ use) {
    this.#use = use;
  }

  /** Prepares for the chunks of a download, before it is requested. */
  begin(/** @type {number} */ id, /** @type {Transfer} */ transfer, /** @type {DownloadSink} */ sink) {
    this.#incoming.set(id, { transfer, sink, nextChunk: 0, written: Promise.resolve() });
    if (this.#session === this.#use.session()) return;
    this.#session = this.#use.session();
    this.#confirmed = 0;
    // From the first confirmation on, the relay waits for the next ones.
    this.#confirm(this.#session, 0);
  }

  /** Ends a download early. The machine goes on sending; the relay drops the rest. */
  release(/** @type {number} */ id) {
    const incoming = this.#incoming.get(id);
    if (!incoming) return;
    incoming.sink.abort();
    this.#incoming.delete(id);
    this.#unwanted.set(id, incoming.transfer);
    incoming.transfer.stillSent = true;
  }

  /** Handles the end of the machine's connection, which also ends what the machine was sending. */
  machineGone() {
    for (const id of [...this.#unwanted.keys()]) this.#notSent(id);
  }

  async receiveChunk(/** @type {Uint8Array<ArrayBuffer>} */ payload) {
    if (payload.length < CHUNK_HEADER_BYTES) return;
    const view = new DataView(payload.buffer, payload.byteOffset);
    const session = this.#session;
    const incoming = this.#incoming.get(view.getUint32(0));
    if (incoming) await this.#store(incoming, view.getUint32(4), payload.subarray(CHUNK_HEADER_BYTES));
    this.#confirm(session, payload.length - CHUNK_HEADER_BYTES);
  }

  /** Stores a chunk; resolves when its bytes are on the disk or are no longer needed. */
  async #store(
    /** @type {Incoming} */ incoming,
    /** @type {number} */ index,
    /** @type {Uint8Array<ArrayBuffer>} */ bytes,
  ) {
    const { transfer } = incoming;
    if (index !== incoming.nextChunk) {
      this.#use.finish(transfer, 'failed', 'outOfOrder');
      return;
    }
    incoming.nextChunk = (incoming.nextChunk + 1) >>> 0;
    transfer.advance(bytes.length);
    this.#use.changed(transfer);
    const write = incoming.sink.write(bytes);
    incoming.written = Promise.all([incoming.written, write]).then(() => {});
    incoming.written.catch(() => this.#use.finish(transfer, 'failed', 'noRoom'));
    // After a cancellation, a write that the disk never completes is not waited for.
    await Promise.race([write, transfer.ended]).catch(() => {});
  }

  #confirm(/** @type {number | null} */ session, /** @type {number} */ bytes) {
    if (session === null || session !== this.#session) return;
    this.#confirmed += bytes;
    this.#use.sendControl({ type: 'stored', session, bytes: this.#confirmed });
  }

  /** Handles the machine's message that ends a download. */
  async receiveEnd(/** @type {Uint8Array} */ payload) {
    const end = readEnd(payload);
    this.#notSent(end.id);
    if (!end.readable) this.#failUnreadable(end.id);
    const incoming = this.#incoming.get(end.id);
    if (!incoming) return;
    this.#incoming.delete(end.id);
    this.#use.ended(end.id);
    const { transfer, sink } = incoming;
    if (!end.ok) {
      sink.abort();
      this.#use.finish(transfer, 'failed', end.error === 'cannot open' ? 'cannotOpen' : 'machineFailed');
      return;
    }
    transfer.state = 'checking';
    this.#use.changed(transfer);
    try {
      await incoming.written;
      transfer.blob = await sink.close();
      transfer.sink = sink;
    } catch {
      sink.abort();
      this.#use.finish(transfer, 'failed', 'noRoom');
      return;
    }
    const { state, remark } = await this.#check(transfer);
    this.#use.finish(transfer, state, remark);
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
      if (incoming) this.#use.finish(incoming.transfer, 'failed', 'unreadableEnd');
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
