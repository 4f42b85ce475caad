// The downloads and uploads of a session, also across a return of the browser.
import { createHash } from 'node:crypto';
import { readFileSync, rmSync, statSync } from 'node:fs';
import { join } from 'node:path';
import { Msg } from '../../console/link/messages.js';

/** @typedef {import('./session.mjs').Session} Session */
/** @typedef {import('../../console/link/link.js').ControlMessage} ControlMessage */
/** @typedef {{transfer: number, kind: string, bytes: number}} Kept */

const CHUNK_BYTES = 256 * 1024;
const HEADER_BYTES = 8;
/** Bytes of uploads on their way, as the console limits them. */
const WINDOW_BYTES = 4 * 1024 * 1024;
/** After so many chunks a browser says what it has stored. */
const STORED_EVERY = 2;

/** Counts the requests of all sessions, because the answer does not name the session. */
let requests = 0;

class Transfer {
  /** The relay's number; 0 before it is known. */
  id = 0;
  /** Bytes that have arrived, or that were sent. */
  bytes = 0;
  chunks = 0;
  /** @type {'open' | 'ended' | 'lost'} */
  state = 'open';
  /** Whether the representative has ended the download. */
  cancelled = false;
  /** Whether an upload sends; not between a return and the relay's answer. */
  flows = true;
  /** Whether the end of an upload was sent. */
  isSent = false;
  /** How many bytes of all uploads were sent before this one, and the bytes of its file. */
  position = 0;
  size = 0;

  /** @param {'download' | 'upload'} kind @param {string} name */
  constructor(kind, name) {
    this.kind = kind;
    this.name = name;
    this.hash = createHash('sha256');
  }
}

export class Transfers {
  /** @type {Map<number, Transfer>} by the number of the request */
  #requested = new Map();
  /** @type {Map<number, Transfer>} */
  #open = new Map();
  #session;
  /** Bytes of all uploads of the session that were sent, and those of them that the relay has passed on. */
  #sent = 0;
  #passed = 0;

  constructor(/** @type {Session} */ session) {
    this.#session = session;
  }

  /**
   * Fetches a file of the machine and compares it. With `cancel`, ends the download after its first chunk.
   */
  async download(/** @type {{name: string, size: number, hash: string}} */ file, cancel = false) {
    const session = this.#session;
    const transfer = await this.#begun('download', file.name);
    transfer.cancelled = cancel;
    session.sendJson(Msg.DownloadRequest, {
      transfer_id: transfer.id,
      path: session.machine.path(file.name),
    });
    if (cancel) session.sendJson(Msg.FileTransferEnd, { transfer_id: transfer.id });
    await this.#until(transfer, () => transfer.state === 'ended');
    if (cancel) return;
    if (transfer.bytes !== file.size || transfer.hash.digest('hex') !== file.hash)
      session.world.wrong(
        `${session.label}: ${file.name} arrived with ${transfer.bytes} bytes or another content`,
      );
    session.world.counts.downloads++;
  }

  /** Writes a file to the machine and compares it. @param {string} name @param {Buffer} content */
  async upload(name, content) {
    const session = this.#session;
    const transfer = await this.#begun('upload', name);
    const path = session.machine.path(name);
    [transfer.position, transfer.size] = [this.#sent, content.length];
    session.sendJson(Msg.UploadBegin, { transfer_id: transfer.id, path, size: content.length });
    const host = join(session.machine.folder, name);
    const arrived = () => {
      this.#sendMore(transfer, content);
      return holds(host, content);
    };
    await this.#until(transfer, arrived);
    this.#open.delete(transfer.id);
    rmSync(host);
    session.world.counts.uploads++;
  }

  /** The number that was asked for. */
  number(/** @type {ControlMessage} */ { request, transfer }) {
    const asked = this.#requested.get(Number(request));
    if (!asked) return;
    this.#requested.delete(Number(request));
    asked.id = Number(transfer);
    this.#open.set(asked.id, asked);
  }

  chunk(/** @type {Uint8Array} */ payload) {
    const session = this.#session;
    const view = new DataView(payload.buffer, payload.byteOffset);
    const [id, index] = [view.getUint32(0), view.getUint32(4)];
    const transfer = this.#open.get(id);
    if (transfer?.cancelled) return;
    if (transfer?.kind !== 'download' || transfer.state !== 'open' || index !== transfer.chunks)
      return session.world.wrong(
        `${session.label}: chunk ${index} of transfer ${id} after ${transfer?.chunks}`,
      );
    transfer.chunks++;
    transfer.bytes += payload.length - HEADER_BYTES;
    transfer.hash.update(payload.subarray(HEADER_BYTES));
    if (transfer.chunks % STORED_EVERY === 0) this.#stored(transfer);
  }

  end(/** @type {Record<string, unknown>} */ { transfer_id: id, ok }) {
    const session = this.#session;
    const transfer = this.#open.get(Number(id));
    if (transfer?.kind !== 'download' || transfer.state !== 'open' || ok !== true)
      return session.world.wrong(`${session.label}: the end of transfer ${id}, ok ${ok}`);
    transfer.state = 'ended';
    this.#open.delete(transfer.id);
    this.#stored(transfer, { end: true });
  }

  uploaded(/** @type {number} */ bytes) {
    this.#passed = bytes;
    if (bytes > this.#sent)
      this.#session.world.wrong(`${this.#session.label}: ${bytes} bytes uploaded of ${this.#sent}`);
  }

  /** The session was resumed: transfers that the relay has kept go on, the others have ended or are lost. */
  resumed(/** @type {ControlMessage} */ message) {
    const kept = /** @type {Kept[]} */ (message.transfers ?? []);
    const counts = /** @type {{taken?: number, passed?: number}} */ (message.uploads ?? {});
    const taken = counts.taken ?? this.#sent;
    this.#sent = taken;
    this.#passed = counts.passed ?? this.#passed;
    const unwanted = /** @type {number[]} */ (message.unwanted ?? []);
    for (const { transfer: id } of kept)
      if (!this.#open.has(id)) this.#session.sendJson(Msg.FileTransferEnd, { transfer_id: id });
    for (const transfer of this.#open.values()) {
      const isKept = kept.some(({ transfer: id }) => id === transfer.id);
      if (transfer.cancelled) transfer.state = unwanted.includes(transfer.id) ? 'open' : 'ended';
      else if (isKept)
        this.#session.command({ type: 'continue', transfer: transfer.id, bytes: transfer.bytes });
      else this.#lose(transfer, taken);
    }
  }

  continued(/** @type {ControlMessage} */ { transfer: id, bytes, chunk }) {
    const session = this.#session;
    const transfer = this.#open.get(Number(id));
    if (!transfer) return session.world.wrong(`${session.label}: transfer ${id} continues`);
    session.world.counts.continued++;
    if (transfer.kind === 'upload') {
      transfer.bytes = Number(bytes);
      transfer.isSent = false;
    } else if (bytes !== transfer.bytes || chunk !== transfer.chunks)
      session.world.wrong(`${session.label}: transfer ${id} continues at ${bytes}, not at ${transfer.bytes}`);
    transfer.flows = true;
  }

  /** The browser has lost its connection. */
  interrupt() {
    for (const transfer of this.#open.values()) transfer.flows = false;
    for (const transfer of this.#requested.values()) transfer.state = 'lost';
    this.#requested.clear();
  }

  /** Whether the error is about a transfer that the session has ended. */
  failed(/** @type {ControlMessage} */ { transfer: id }) {
    return this.#open.get(Number(id))?.cancelled ?? false;
  }

  /**
   * The relay has not kept the transfer: it has ended, or its beginning was lost with the connection, maybe with all of
   * a small file. The relay has taken `taken` bytes of all uploads.
   * @param {Transfer} transfer @param {number} taken
   */
  #lose(transfer, taken) {
    const { world, label } = this.#session;
    if (transfer.kind === 'download' && transfer.chunks > 0)
      world.wrong(
        `${label}: the relay has not kept the download ${transfer.id} after ${transfer.bytes} bytes`,
      );
    const hasBegun = transfer.size > 0 && taken > transfer.position;
    if (!transfer.isSent || (transfer.kind === 'upload' && !hasBegun)) transfer.state = 'lost';
  }

  /** Whether any transfer has begun to move bytes and has not ended. */
  get underWay() {
    return [...this.#open.values()].some(({ bytes, state }) => bytes > 0 && state === 'open');
  }

  get #window() {
    return WINDOW_BYTES - (this.#sent - this.#passed);
  }

  async #begun(/** @type {'download' | 'upload'} */ kind, /** @type {string} */ name) {
    const transfer = new Transfer(kind, name);
    const request = ++requests;
    const session = this.#session;
    this.#requested.set(request, transfer);
    session.command({ type: 'transfer', request });
    // The browser may be connected again before anybody looks whether it is.
    const over = () =>
      transfer.state === 'lost' ? 'the request was lost with the connection' : session.over;
    await session.world.until(`${session.label}: a transfer has a number`, () => transfer.id, {
      machine: session.machine.name,
      over,
    });
    return transfer;
  }

  /**
   * Waits for the end, also across a return of the browser.
   * @param {Transfer} transfer
   * @param {() => boolean} ended
   */
  #until(transfer, ended) {
    const { world, label, machine } = this.#session;
    const over = () => {
      if (transfer.state === 'lost') return 'its beginning was lost with the connection';
      return this.#session.state === 'ended' && `the session has ended: ${this.#session.reason}`;
    };
    return world.until(`${label}: the ${transfer.kind} of ${transfer.name}`, ended, {
      machine: machine.name,
      over,
    });
  }

  /**
   * Sends as much of an upload as may be on its way, and its end.
   * @param {Transfer} transfer
   * @param {Buffer} content
   */
  #sendMore(transfer, content) {
    const ready = () => transfer.flows && this.#session.owner.connected;
    while (ready() && this.#window > 0 && transfer.bytes < content.length) this.#sendChunk(transfer, content);
    if (!ready() || transfer.isSent || transfer.bytes < content.length) return;
    this.#session.sendJson(Msg.FileTransferEnd, { transfer_id: transfer.id });
    transfer.isSent = true;
  }

  #sendChunk(/** @type {Transfer} */ transfer, /** @type {Buffer} */ content) {
    const piece = content.subarray(transfer.bytes, transfer.bytes + CHUNK_BYTES);
    const payload = Buffer.alloc(HEADER_BYTES + piece.length);
    payload.writeUInt32BE(transfer.id, 0);
    payload.writeUInt32BE(transfer.chunks++, 4);
    piece.copy(payload, HEADER_BYTES);
    this.#session.send(Msg.FileChunk, payload);
    transfer.bytes += piece.length;
    this.#sent += piece.length;
  }

  #stored(/** @type {Transfer} */ { id, bytes }, more = {}) {
    this.#session.command({ type: 'stored', transfer: id, bytes, ...more });
  }
}

/** Whether the file exists and has this content. @param {string} path @param {Buffer} content */
function holds(path, content) {
  const status = statSync(path, { throwIfNoEntry: false });
  return status?.size === content.length && content.equals(readFileSync(path));
}
