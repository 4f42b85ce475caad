// One file transfer: its progress, its rate and its result.
import { RateMeter } from '../../base/rate_meter.js';

/**
 * 'waiting' in the queue, 'running', 'fileless' for an upload whose page was loaded again until the representative has
 * chosen its file again, 'checking' whether the whole file arrived, and at the end 'done', 'failed' or 'cancelled'.
 * @typedef {'waiting' | 'running' | 'fileless' | 'checking' | 'done' | 'failed' | 'cancelled'} TransferState
 */

export class Transfer {
  /** @type {TransferState} */
  state = 'waiting';
  /** The number of bytes transferred so far. */
  done = 0;
  /** How often the whole file of an upload was sent; a lost connection can make a repetition necessary. */
  timesSent = 0;
  /** Whether the machine may still be sending a download that has ended here. */
  stillSent = false;
  /** A key of texts.transferRemarks, or a message of the relay. */
  remark = '';
  /** @type {Blob | null} the content of a download that is done */
  blob = null;
  /** @type {import('./download_sink.js').DownloadSink | null} the sink that holds the content */
  sink = null;
  #meter = new RateMeter();
  /** @type {() => void} */
  #resolveEnded = () => {};

  /** @param {{kind: 'upload' | 'download', name: string, path: string, size: number, file?: File}} what */
  constructor({ kind, name, path, size, file }) {
    this.kind = kind;
    this.name = name;
    this.path = path;
    this.size = size;
    this.file = file;
    /** @type {Promise<void>} resolves when the transfer has ended, whatever the result */
    this.ended = new Promise((resolve) => {
      this.#resolveEnded = resolve;
    });
  }

  get active() {
    return ['waiting', 'running', 'fileless', 'checking'].includes(this.state);
  }

  /** Bytes per second. */
  get rate() {
    return this.#meter.read().kilobytesPerSecond * 1000;
  }

  start() {
    this.state = 'running';
    this.#meter.restart();
  }

  advance(/** @type {number} */ bytes) {
    this.done += bytes;
    this.#meter.add(bytes);
  }

  /** Ends the transfer with this result; later calls change nothing. */
  end(/** @type {'done' | 'failed' | 'cancelled'} */ state, remark = '') {
    if (!this.active) return;
    this.state = state;
    this.remark = remark;
    this.#resolveEnded();
  }
}
