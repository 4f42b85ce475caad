// The queue of file transfers: runs up to MAX_RUNNING transfers at a time over the session's messages, and
// uses no elements of the page. The machine does not confirm uploads, so the code that adds an upload has to
// list the folder afterwards and call finish().
import { emit } from '../base/custom_events.js';
import { Msg } from '../link/messages.js';
import { Downloads } from './downloads.js';
import { UploadWindow } from './upload_window.js';

/** @typedef {import('./transfer.js').Transfer} Transfer */
/** @typedef {import('./download_sink.js').DownloadSink} DownloadSink */

const CHUNK_BYTES = 256 * 1024;
const CHUNK_HEADER_BYTES = 8;
const MAX_RUNNING = 3;

/**
 * @typedef {object} Sender the functions of the session and the link that the queue uses
 * @property {(type: number, value: object) => void} sendJson
 * @property {(type: number, payload: Uint8Array) => void} send
 * @property {(message: object) => boolean} sendControl to the relay; false when the link is down
 * @property {() => number | null} session the number of the open session
 * @property {(path: string) => Promise<import('./listing.js').Entry | undefined>} entryOf lists the folder of a
 *   file and returns the file's entry
 */

/** Events: 'change' (detail: the transfer). */
export class TransferQueue extends EventTarget {
  #sender;
  #openSink;
  #window = new UploadWindow();
  /** @type {Transfer[]} */
  #waiting = [];
  /** @type {Set<Transfer>} */
  #running = new Set();
  #requests = 0;
  /**
   * Unanswered requests for transfer ids, by the number of the request.
   * @type {Map<number, {resolve: (id: number) => void, reject: (why: Error) => void}>}
   */
  #idRequests = new Map();
  /** @type {Map<number, Transfer>} transfers that are open on the machine, by id */
  #open = new Map();
  #downloads;

  /** @param {Sender} sender @param {() => Promise<DownloadSink>} openSink */
  constructor(sender, openSink) {
    super();
    this.#sender = sender;
    this.#openSink = openSink;
    this.#downloads = new Downloads({
      finish: (transfer, state, remark) => this.finish(transfer, state, remark),
      changed: (transfer) => this.#changed(transfer),
      ended: (id) => this.#open.delete(id),
      sendControl: (message) => sender.sendControl(message),
      session: () => sender.session(),
      entryOf: (path) => sender.entryOf(path),
    });
  }

  add(/** @type {Transfer} */ transfer) {
    this.#waiting.push(transfer);
    this.#changed(transfer);
    this.#runNext();
  }

  /**
   * Cancels a transfer. Uploaded bytes stay on the machine; downloaded bytes that still arrive are dropped.
   */
  cancel(/** @type {Transfer} */ transfer) {
    const begun = transfer.state !== 'waiting';
    this.finish(transfer, 'cancelled', begun ? `${transfer.kind}Cancelled` : '');
  }

  /** Ends all transfers of one kind, for which the representative no longer has the right. */
  cancelAll(/** @type {Transfer['kind']} */ kind) {
    const concerned = new Set([...this.#waiting, ...this.#open.values()]);
    for (const transfer of concerned) if (transfer.kind === kind) this.finish(transfer, 'failed', 'noRight');
  }

  /** Handles a control message of the relay. */
  receiveControl(/** @type {import('../link/link.js').ControlMessage} */ message) {
    const { type, session, request, transfer: transferId } = message;
    if (type === 'uploaded' && session === this.#sender.session()) this.#window.passed(message.bytes);
    if (type !== 'transfer' && type !== 'error') return;
    const text = message.code === 'no-right' ? 'noRight' : String(message.message ?? '');
    const asked = this.#idRequests.get(numberOf(request));
    if (asked) {
      this.#idRequests.delete(numberOf(request));
      if (type === 'transfer') asked.resolve(numberOf(transferId));
      else asked.reject(new Error(text));
    }
    const transfer = type === 'error' && this.#open.get(numberOf(transferId));
    if (transfer) this.finish(transfer, 'failed', text);
  }

  sessionOver() {
    this.#window.reset();
    for (const { reject } of this.#idRequests.values()) reject(new Error('sessionOver'));
    this.#idRequests.clear();
    for (const transfer of [...this.#running, ...this.#waiting]) {
      // A transfer that is being checked was sent completely; its check determines the result.
      if (transfer.state === 'checking') continue;
      this.finish(transfer, 'failed', transfer.kind === 'upload' ? 'sessionOver' : 'downloadOver');
    }
  }

  /** Handles a chunk of a download. */
  receiveChunk(/** @type {Uint8Array<ArrayBuffer>} */ payload) {
    this.#downloads.receiveChunk(payload);
  }

  /** Handles the machine's message that ends a download. */
  receiveEnd(/** @type {Uint8Array} */ payload) {
    this.#downloads.receiveEnd(payload);
  }

  /** Handles the end of the machine's connection. */
  machineGone() {
    this.#downloads.machineGone();
  }

  /** Ends a transfer, also on the machine if it is still open there. A second call changes nothing. */
  finish(
    /** @type {Transfer} */ transfer,
    /** @type {'done' | 'failed' | 'cancelled'} */ state,
    remark = '',
  ) {
    if (!transfer.active) return;
    transfer.end(state, remark);
    this.#waiting = this.#waiting.filter((other) => other !== transfer);
    for (const [id, other] of this.#open) if (other === transfer) this.#release(id);
    this.#changed(transfer);
  }

  /**
   * Ends a transfer early by an end message. After this message the machine closes an upload, and the relay
   * drops the rest of a download.
   */
  #release(/** @type {number} */ id) {
    this.#open.delete(id);
    this.#downloads.release(id);
    this.#sendEnd(id);
  }

  #sendEnd(/** @type {number} */ id) {
    this.#sender.sendJson(Msg.FileTransferEnd, { transfer_id: id });
  }

  #runNext() {
    while (this.#running.size < MAX_RUNNING) {
      const transfer = this.#waiting.shift();
      if (!transfer) return;
      this.#running.add(transfer);
      transfer.start();
      this.#changed(transfer);
      this.#run(transfer)
        .catch((error) => this.finish(transfer, 'failed', error.message || 'machineFailed'))
        .finally(() => {
          this.#running.delete(transfer);
          this.#runNext();
        });
    }
  }

  async #run(/** @type {Transfer} */ transfer) {
    const id = await this.#requestId();
    if (!transfer.active) {
      this.#sendEnd(id);
      return;
    }
    if (transfer.kind === 'upload') await this.#upload(transfer, id);
    else await this.#download(transfer, id);
  }

  /** Requests an id for a transfer from the relay. @returns {Promise<number>} */
  #requestId() {
    const request = ++this.#requests;
    return new Promise((resolve, reject) => {
      this.#idRequests.set(request, { resolve, reject });
      const session = this.#sender.session();
      if (session !== null && this.#sender.sendControl({ type: 'transfer', session, request })) return;
      this.#idRequests.delete(request);
      reject(new Error('sessionOver'));
    });
  }

  async #download(/** @type {Transfer} */ transfer, /** @type {number} */ id) {
    const sink = await this.#openSink();
    if (!transfer.active) {
      sink.abort();
      this.#sendEnd(id);
      return;
    }
    this.#open.set(id, transfer);
    this.#downloads.begin(id, transfer, sink);
    this.#sender.sendJson(Msg.DownloadRequest, { transfer_id: id, path: transfer.path });
    await transfer.ended;
  }

  async #upload(/** @type {Transfer} */ transfer, /** @type {number} */ id) {
    const { file, path } = transfer;
    if (!file) throw new Error('cannotRead');
    this.#open.set(id, transfer);
    this.#sender.sendJson(Msg.UploadBegin, { transfer_id: id, path, size: file.size });
    for (let [at, index] = [0, 0]; at < file.size; at += CHUNK_BYTES, index++) {
      await this.#window.waitForRoom();
      const bytes = await read(file.slice(at, at + CHUNK_BYTES));
      // The transfer may have been cancelled or refused, or the session may have ended.
      if (!transfer.active) return;
      this.#sender.send(Msg.FileChunk, chunk(id, index, bytes));
      this.#window.sent(bytes.length, () => {
        transfer.advance(bytes.length);
        this.#changed(transfer);
      });
    }
    this.#open.delete(id);
    this.#sendEnd(id);
    transfer.state = 'checking';
    this.#changed(transfer);
  }

  #changed(/** @type {Transfer} */ transfer) {
    emit(this, 'change', transfer);
  }
}

/** The value if it is a number; else NaN, which is never a key in the maps. */
function numberOf(/** @type {unknown} */ value) {
  return typeof value === 'number' ? value : Number.NaN;
}

async function read(/** @type {Blob} */ part) {
  try {
    return new Uint8Array(await part.arrayBuffer());
  } catch {
    throw new Error('cannotRead');
  }
}

function chunk(/** @type {number} */ id, /** @type {number} */ index, /** @type {Uint8Array} */ bytes) {
  const payload = new Uint8Array(CHUNK_HEADER_BYTES + bytes.length);
  const view = new DataView(payload.buffer);
  view.setUint32(0, id);
  view.setUint32(4, index);
  payload.set(bytes, CHUNK_HEADER_BYTES);
  return payload;
}
