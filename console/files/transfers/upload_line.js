// Sends the bytes of uploads in chunks, no further ahead of the machine than the window allows.
import { Msg } from '../../link/messages.js';
import { UploadWindow } from './upload_window.js';

/** @typedef {import('./transfer.js').Transfer} Transfer */

const CHUNK_BYTES = 256 * 1024;
const CHUNK_HEADER_BYTES = 8;

export class UploadLine {
  #send;
  #changed;
  #window = new UploadWindow();
  #runs = 0;
  /** @type {WeakMap<Transfer, number>} the run that sends the file of each upload; an earlier one stops */
  #current = new WeakMap();

  /**
   * @param {(type: number, payload: Uint8Array) => void} send
   * @param {(transfer: Transfer) => void} changed called when bytes of an upload have passed the relay
   */
  constructor(send, changed) {
    this.#send = send;
    this.#changed = changed;
  }

  get window() {
    return this.#window;
  }

  /**
   * Sends an upload's file from the byte `from` on. Resolves with true when all of it was sent, and with false when the
   * upload has ended or its session was interrupted. Rejected when the file cannot be read.
   * @param {number} id
   * @param {Transfer} transfer
   * @param {File} file
   * @param {number} from
   */
  async send(id, transfer, file, from) {
    const run = ++this.#runs;
    this.#current.set(transfer, run);
    for (let [at, index] = [from, 0]; at < file.size; at += CHUNK_BYTES, index++) {
      await this.#window.waitForRoom();
      const bytes = await read(file.slice(at, at + CHUNK_BYTES));
      if (!transfer.active || this.#current.get(transfer) !== run) return false;
      if (!bytes) throw new Error('cannotRead');
      this.#send(Msg.FileChunk, chunk(id, index, bytes));
      this.#window.sent(bytes.length, () => {
        transfer.advance(bytes.length);
        this.#changed(transfer);
      });
    }
    return true;
  }

  /** Stops sending, when the session is interrupted or over. */
  stop() {
    this.#current = new WeakMap();
  }
}

/** @returns {Promise<Uint8Array | null>} null for a file that cannot be read */
async function read(/** @type {Blob} */ part) {
  try {
    return new Uint8Array(await part.arrayBuffer());
  } catch {
    return null;
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
