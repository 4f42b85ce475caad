// One file on its way, as its row on the page needs it: how far it is, how fast, and what became of it.
import { RateMeter } from '../base/status.js';

/**
 * 'waiting' for its turn, 'running', 'checking' what arrived, and at last 'done', 'failed' or 'cancelled'.
 * @typedef {'waiting' | 'running' | 'checking' | 'done' | 'failed' | 'cancelled'} TransferState
 */

export class Transfer {
  /** @param {{kind: 'upload' | 'download', name: string, path: string, size: number, file?: File}} what */
  constructor({ kind, name, path, size, file }) {
    this.kind = kind;
    this.name = name;
    this.path = path;
    this.size = size;
    this.file = file;
    /** @type {TransferState} */
    this.state = 'waiting';
    /** Bytes so far. */
    this.done = 0;
    /** A key of texts.transferRemarks, or a sentence of the relay. */
    this.remark = '';
    /** @type {Blob | null} of a download that is done */
    this.blob = null;
    /** @type {import('./download_sink.js').Sink | null} what keeps the Blob */
    this.sink = null;
    this.meter = new RateMeter();
    this.ended = new Promise((resolve) => {
      this.resolveEnd = resolve;
    });
  }

  get active() {
    return this.state === 'waiting' || this.state === 'running' || this.state === 'checking';
  }

  advance(/** @type {number} */ bytes) {
    this.done += bytes;
    this.meter.add(bytes);
  }

  /** Bytes a second. */
  get rate() {
    return this.meter.read().kilobytesPerSecond * 1000;
  }

  /** Only the first end counts. */
  end(/** @type {'done' | 'failed' | 'cancelled'} */ state, remark = '') {
    if (!this.active) return;
    this.state = state;
    this.remark = remark;
    this.resolveEnd?.(undefined);
  }
}
