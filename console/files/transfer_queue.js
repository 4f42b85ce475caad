// Carries files: a queue of transfers, a few of them at a time, over the session's messages. It knows nothing of the
// page. The machine confirms no upload, so whoever queues one looks afterwards what arrived.
import { readJson } from '../link/envelope.js';
import { Msg } from '../link/messages.js';
import { Transfer } from './transfer.js';
import { Flow } from './upload_window.js';

const CHUNK_BYTES = 256 * 1024;
const CHUNK_HEADER_BYTES = 8;
const AT_ONCE = 3;

/**
 * @typedef {object} Road what the session offers
 * @property {(type: number, value: object) => void} sendJson
 * @property {(type: number, payload: Uint8Array) => void} sendBytes
 * @property {(message: object) => boolean} sendControl false when the link is down
 * @property {() => number | null} session the number of the accepted session
 */

/** Events: 'change' (detail: the transfer). */
export class Courier extends EventTarget {
  /** @param {Road} road @param {() => Promise<import('./download_sink.js').Sink>} openSink */
  constructor(road, openSink) {
    super();
    this.road = road;
    this.openSink = openSink;
    this.flow = new Flow();
    /** @type {Transfer[]} */
    this.queue = [];
    /** @type {Set<Transfer>} those that have one of the places */
    this.running = new Set();
    this.requests = 0;
    /** @type {Map<number, {resolve: (id: number) => void, reject: (why: Error) => void}>} numbers asked for */
    this.asked = new Map();
    /** @type {Map<number, Transfer>} those under way, by number */
    this.open = new Map();
    /** @type {Map<number, import('./download_sink.js').Sink & {next: number, written: Promise<void>}>} */
    this.sinks = new Map();
  }

  add(/** @type {Transfer} */ transfer) {
    this.queue.push(transfer);
    this.changed(transfer);
    this.next();
  }

  /** What was sent stays on the machine, and what the machine still sends is thrown away. */
  cancel(/** @type {Transfer} */ transfer) {
    const begun = transfer.state !== 'waiting';
    this.finish(transfer, 'cancelled', begun ? `${transfer.kind}Cancelled` : '');
  }

  /** A control message of the relay. */
  control(/** @type {{type: string, [field: string]: any}} */ message) {
    if (message.type === 'pong') this.flow.pong(message.id);
    const asked = this.asked.get(message.request);
    if (asked && (message.type === 'transfer' || message.type === 'error')) {
      this.asked.delete(message.request);
      if (message.type === 'transfer') asked.resolve(message.transfer);
      else asked.reject(new Error(String(message.message ?? '')));
    }
    const transfer = message.type === 'error' && this.open.get(message.transfer);
    if (transfer) this.finish(transfer, 'failed', String(message.message ?? ''));
  }

  /** The session is over. */
  sessionOver() {
    this.flow.reset();
    for (const { reject } of this.asked.values()) reject(new Error('sessionOver'));
    this.asked.clear();
    for (const transfer of [...this.running, ...this.queue]) {
      // What is being checked has all come.
      if (transfer.state !== 'checking') this.finish(transfer, 'failed', 'sessionOver');
    }
  }

  /** A chunk of the machine. */
  receiveChunk(/** @type {Uint8Array} */ payload) {
    if (payload.length < CHUNK_HEADER_BYTES) return;
    const view = new DataView(payload.buffer, payload.byteOffset);
    const transfer = this.open.get(view.getUint32(0));
    const sink = this.sinks.get(view.getUint32(0));
    if (!transfer || !sink || transfer.state !== 'running') return;
    if (view.getUint32(4) !== sink.next) {
      this.finish(transfer, 'failed', 'outOfOrder');
      return;
    }
    sink.next = (sink.next + 1) >>> 0;
    transfer.advance(payload.length - CHUNK_HEADER_BYTES);
    sink.written = Promise.all([sink.written, sink.write(payload.subarray(CHUNK_HEADER_BYTES))]).then(
      () => {},
    );
    sink.written.catch(() => this.finish(transfer, 'failed', 'noRoom'));
    this.changed(transfer);
  }

  /** The machine's end of a download. */
  async receiveEnd(/** @type {Uint8Array} */ payload) {
    const { transfer_id: id, ok, error } = /** @type {any} */ (readJson(payload) ?? {});
    const transfer = this.open.get(id);
    const sink = this.sinks.get(id);
    if (!transfer || !sink || transfer.state !== 'running') return;
    this.open.delete(id);
    this.sinks.delete(id);
    if (ok !== true) {
      sink.abort();
      this.finish(transfer, 'failed', error === 'cannot open' ? 'cannotOpen' : 'machineFailed');
      return;
    }
    transfer.state = 'checking';
    this.changed(transfer);
    try {
      await sink.written;
      transfer.blob = await sink.close();
      transfer.sink = sink;
      this.finish(transfer, 'done', transfer.done === transfer.size ? '' : 'otherSize');
    } catch {
      sink.abort();
      this.finish(transfer, 'failed', 'noRoom');
    }
  }

  /** Ends a transfer in every sense; a second end changes nothing. */
  finish(
    /** @type {Transfer} */ transfer,
    /** @type {'done' | 'failed' | 'cancelled'} */ state,
    remark = '',
  ) {
    if (!transfer.active) return;
    transfer.end(state, remark);
    this.queue = this.queue.filter((other) => other !== transfer);
    for (const [id, other] of this.open) if (other === transfer) this.release(id);
    this.changed(transfer);
  }

  /** @private What is not over by itself is ended: the machine closes an upload, the relay drops a download. */
  release(/** @type {number} */ id) {
    this.open.delete(id);
    this.sinks.get(id)?.abort();
    this.sinks.delete(id);
    this.road.sendJson(Msg.FileTransferEnd, { transfer_id: id });
  }

  /** @private */
  next() {
    while (this.running.size < AT_ONCE) {
      const transfer = this.queue.shift();
      if (!transfer) return;
      this.running.add(transfer);
      transfer.state = 'running';
      transfer.meter.restart();
      this.changed(transfer);
      this.run(transfer)
        .catch((error) => this.finish(transfer, 'failed', error.message || 'machineFailed'))
        .finally(() => {
          this.running.delete(transfer);
          this.next();
        });
    }
  }

  /** @private */
  async run(/** @type {Transfer} */ transfer) {
    const id = await this.number();
    if (!transfer.active) {
      this.road.sendJson(Msg.FileTransferEnd, { transfer_id: id });
      return;
    }
    if (transfer.kind === 'upload') await this.upload(transfer, id);
    else await this.download(transfer, id);
  }

  /** @private A number that the relay gives out for one transfer. @returns {Promise<number>} */
  number() {
    const request = ++this.requests;
    return new Promise((resolve, reject) => {
      this.asked.set(request, { resolve, reject });
      const session = this.road.session();
      if (session !== null && this.road.sendControl({ type: 'transfer', session, request })) return;
      this.asked.delete(request);
      reject(new Error('sessionOver'));
    });
  }

  /** @private */
  async download(/** @type {Transfer} */ transfer, /** @type {number} */ id) {
    const sink = await this.openSink();
    if (!transfer.active) {
      sink.abort();
      this.road.sendJson(Msg.FileTransferEnd, { transfer_id: id });
      return;
    }
    this.open.set(id, transfer);
    this.sinks.set(id, Object.assign(sink, { next: 0, written: Promise.resolve() }));
    this.road.sendJson(Msg.DownloadRequest, { transfer_id: id, path: transfer.path });
    await transfer.ended;
  }

  /** @private */
  async upload(/** @type {Transfer} */ transfer, /** @type {number} */ id) {
    const file = /** @type {File} */ (transfer.file);
    this.open.set(id, transfer);
    this.road.sendJson(Msg.UploadBegin, { transfer_id: id, path: transfer.path, size: file.size });
    for (let [at, index] = [0, 0]; at < file.size; at += CHUNK_BYTES, index++) {
      await this.flow.room();
      const bytes = await read(file.slice(at, at + CHUNK_BYTES));
      // Cancelled, refused, or the session ended meanwhile.
      if (!transfer.active) return;
      this.road.sendBytes(Msg.FileChunk, chunk(id, index, bytes));
      const ping = this.flow.sent(bytes.length, () => {
        transfer.advance(bytes.length);
        this.changed(transfer);
      });
      this.road.sendControl({ type: 'ping', id: ping });
    }
    this.open.delete(id);
    this.road.sendJson(Msg.FileTransferEnd, { transfer_id: id });
    transfer.state = 'checking';
    this.changed(transfer);
  }

  /** @private */
  changed(/** @type {Transfer} */ transfer) {
    this.dispatchEvent(new CustomEvent('change', { detail: transfer }));
  }
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
