// The transfers that are open at the relay and the machine. After an interruption of the session the relay lists those
// that it has, and each goes on where it was. A page that was loaded again takes over the transfers in the list.
import { lastPart, windowsName } from '../../base/paths.js';
import { Msg } from '../../link/messages.js';
import { adoptedUpload, LeftDownloads, readList } from './adoption.js';
import { Downloads } from './downloads.js';
import { Transfer } from './transfer.js';
import { UploadLine } from './upload_line.js';

/** @typedef {import('./adoption.js').Listed} Listed */
/** @typedef {import('./download_sink.js').DownloadSink} DownloadSink */
/** @typedef {import('../../link/link.js').ControlMessage} ControlMessage */

/** The remarks for the relay's codes of errors: keys of texts. */
const REMARKS = new Map([
  ['no-right', 'noRight'],
  ['spool-full', 'spoolFull'],
  ['spool-failed', 'spoolFailed'],
  ['not-kept', 'notKept'],
]);

/**
 * @typedef {object} Sender the functions of the session and the link that the transfers use
 * @property {(type: number, value: object) => void} sendJson
 * @property {(type: number, payload: Uint8Array) => void} send
 * @property {(message: object) => boolean} sendControl to the relay, about the open session; false when none is open
 * @property {() => number | null} session the number of the open session
 * @property {() => string} agent the id of its machine
 * @property {(path: string) => Promise<import('../listing.js').Entry | undefined>} entryOf lists the folder of a
 *   file and returns the file's entry
 */
/**
 * @typedef {object} Surroundings what the open transfers use of the queue
 * @property {(transfer: Transfer, state: 'done' | 'failed', remark?: string) => void} finish
 * @property {(transfer: Transfer) => void} changed
 * @property {(transfer: Transfer) => void} adopted an earlier page has begun this transfer
 * @property {(transfer: Transfer) => void} runs the transfer is running without having waited in the queue
 * @property {(transfer: Transfer) => void} sent the whole file of this upload was sent
 */

/** What is said about a transfer that the relay ends with this code; without a text for it, the relay's message. */
export function remarkFor(/** @type {unknown} */ code, /** @type {unknown} */ message = code) {
  return REMARKS.get(String(code)) ?? String(message ?? '');
}

export class OpenTransfers {
  #sender;
  #use;
  #line;
  #left;
  /** @type {Map<number, Transfer>} by id */
  #open = new Map();
  /** @type {Map<number, Transfer>} uploads that were sent completely and are being checked, by id */
  #sent = new Map();
  /** @type {Set<number>} the ids of all transfers that this page has had */
  #known = new Set();
  /** Counts the returns to a session, its interruptions and its end. */
  #turn = 0;

  /** @param {Sender} sender @param {import('./download_sink.js').Store['left']} left @param {Surroundings} use */
  constructor(sender, left, use) {
    this.#sender = sender;
    this.#use = use;
    this.#line = new UploadLine((type, payload) => sender.send(type, payload), use.changed);
    this.#left = new LeftDownloads(left);
    this.downloads = new Downloads({
      finish: use.finish,
      changed: use.changed,
      ended: (id) => this.#open.delete(id),
      sendControl: (message) => sender.sendControl(message),
      entryOf: (path) => sender.entryOf(path),
    });
  }

  get all() {
    return this.#open.values();
  }

  /**
   * Asks the machine to send or to take a file.
   * @param {number} id
   * @param {Transfer} transfer
   * @param {DownloadSink | null} sink where a download is stored
   */
  begin(id, transfer, sink) {
    this.#known.add(id);
    this.#open.set(id, transfer);
    if (sink) this.downloads.begin(id, transfer, sink);
    this.#request(id, transfer);
  }

  /**
   * Ends a transfer early by an end message. After this message the machine closes an upload, and the relay
   * drops the rest of a download.
   */
  release(/** @type {Transfer} */ transfer) {
    for (const [id, other] of this.#open) {
      if (other !== transfer) continue;
      this.#open.delete(id);
      this.downloads.release(id);
      this.sendEnd(id);
    }
  }

  sendEnd(/** @type {number} */ id) {
    this.#sender.sendJson(Msg.FileTransferEnd, { transfer_id: id });
  }

  /** Goes on with an upload that has lost its file, if this is a file of the same name and size. */
  chooseFile(/** @type {Transfer} */ transfer, /** @type {File} */ file) {
    if (transfer.state !== 'fileless') return;
    const isSame = windowsName(file.name) === transfer.name && file.size === transfer.size;
    transfer.remark = isSame ? '' : 'otherFile';
    if (isSame) {
      transfer.file = file;
      transfer.start();
      this.#use.runs(transfer);
      for (const [id, other] of this.#open) if (other === transfer) this.#askOn(id, transfer);
    }
    this.#use.changed(transfer);
  }

  /** Handles a control message of the relay. */
  receiveControl(/** @type {ControlMessage} */ message) {
    const { type, session, transfer: id, bytes, chunk, code } = message;
    const isOwn = session === this.#sender.session();
    if (type === 'uploaded' && isOwn) this.#line.window.passed(bytes);
    if (typeof id !== 'number') return;
    if (type === 'continued' && isOwn) this.#goOn(id, bytes, chunk);
    const transfer = type === 'error' && this.#open.get(id);
    if (transfer && transfer.state !== 'checking')
      this.#use.finish(transfer, 'failed', remarkFor(code, message.message));
  }

  /** Stops sending, because the session is interrupted. */
  suspend() {
    this.#turn++;
    this.#line.stop();
    for (const transfer of [...this.all, ...this.#sent.values()]) this.#use.changed(transfer);
  }

  sessionOver() {
    this.#turn++;
    this.#line.stop();
    this.#line.window.reset();
  }

  /**
   * Handles the start of a session, or the return to one.
   * @param {unknown} transfers the relay's list of the transfers that the session has already
   * @param {unknown} uploads the relay's counts of the session's uploads
   */
  opened(transfers, uploads) {
    const turn = ++this.#turn;
    const { taken, passed } = /** @type {Record<string, unknown>} */ (uploads ?? {});
    if (typeof taken === 'number' && typeof passed === 'number') this.#line.window.goOn(taken, passed);
    const listed = new Map(readList(transfers).map((one) => [one.id, one]));
    for (const [id, transfer] of this.#sent) {
      if (listed.has(id)) this.#sendAgain(id, transfer);
      this.#use.changed(transfer);
    }
    for (const [id, transfer] of this.#open) this.#return(id, transfer, listed.get(id));
    const unknown = [...listed.values()].filter(({ id }) => !this.#known.has(id));
    // The end of these transfers has not reached the relay.
    for (const id of listed.keys()) if (this.#known.has(id) && !this.#open.has(id)) this.sendEnd(id);
    for (const one of unknown) if (one.kind === 'upload') this.#adoptUpload(one);
    const downloads = unknown.filter(({ kind }) => kind === 'download');
    if (downloads.length) this.#adoptDownloads(downloads, turn);
  }

  #request(/** @type {number} */ id, /** @type {Transfer} */ transfer) {
    const { kind, path, size } = transfer;
    if (kind === 'download') {
      this.#sender.sendJson(Msg.DownloadRequest, { transfer_id: id, path });
      return;
    }
    this.#sender.sendJson(Msg.UploadBegin, { transfer_id: id, path, size });
    this.#sendFile(id, transfer, 0);
  }

  /** Sends an upload's file from the byte `from` on, and its end. */
  async #sendFile(/** @type {number} */ id, /** @type {Transfer} */ transfer, /** @type {number} */ from) {
    try {
      if (transfer.file && !(await this.#line.send(id, transfer, transfer.file, from))) return;
    } catch (error) {
      this.#use.finish(transfer, 'failed', /** @type {Error} */ (error).message);
      return;
    }
    this.#open.delete(id);
    this.#sent.set(id, transfer);
    transfer.ended.then(() => this.#sent.delete(id));
    this.sendEnd(id);
    transfer.state = 'checking';
    transfer.timesSent++;
    this.#use.changed(transfer);
    this.#use.sent(transfer);
  }

  /** Goes on with an upload whose end, and perhaps its last bytes, have not reached the relay. */
  #sendAgain(/** @type {number} */ id, /** @type {Transfer} */ transfer) {
    transfer.state = 'running';
    this.#sent.delete(id);
    this.#open.set(id, transfer);
    this.#use.runs(transfer);
  }

  /** Goes on with a transfer after an interruption. listed: as the relay lists it, if it does */
  #return(
    /** @type {number} */ id,
    /** @type {Transfer} */ transfer,
    /** @type {Listed | undefined} */ listed,
  ) {
    this.#use.changed(transfer);
    if (transfer.state === 'checking') return;
    if (listed?.error) this.#use.finish(transfer, 'failed', remarkFor(listed.error));
    else if (listed) this.#askOn(id, transfer);
    else if (transfer.state === 'running' && transfer.done === 0) {
      // The request for the file has not reached the relay.
      this.#request(id, transfer);
    } else this.#use.finish(transfer, 'failed', 'notKept');
  }

  /** Asks the relay to go on with a transfer. */
  #askOn(/** @type {number} */ id, /** @type {Transfer} */ transfer) {
    if (transfer.kind === 'download') this.downloads.askOn(id);
    else if (transfer.file) this.#sender.sendControl({ type: 'continue', transfer: id, bytes: 0 });
  }

  /** Handles the relay's answer to #askOn. */
  #goOn(/** @type {number} */ id, /** @type {unknown} */ bytes, /** @type {unknown} */ chunk) {
    const transfer = this.#open.get(id);
    if (transfer?.kind === 'download') this.downloads.goOn(id, bytes, chunk);
    else if (transfer?.file && typeof bytes === 'number') this.#sendFile(id, transfer, bytes);
  }

  #adoptUpload(/** @type {Listed} */ listed) {
    const transfer = adoptedUpload(listed);
    this.#adopt(listed.id, transfer);
    if (transfer.state === 'running') this.#sendFile(listed.id, transfer, listed.size);
  }

  /** Goes on with downloads of an earlier page as far as what it stored is there, and ends the others. */
  async #adoptDownloads(/** @type {Listed[]} */ list, /** @type {number} */ turn) {
    await this.#left.search(this.#sender.session() ?? 0, this.#sender.agent());
    // The next return brings another list.
    if (turn !== this.#turn) return;
    for (const one of list) {
      const found = this.#left.take(one);
      // The relay does not know the path any more when a download is over.
      if (!found && !one.path) continue;
      const transfer = found?.transfer ?? lostDownload(one);
      if (found) this.downloads.begin(one.id, transfer, found.sink, found.chunks);
      this.#adopt(one.id, transfer);
      if (found) this.#return(one.id, transfer, one);
      else this.#use.finish(transfer, 'failed', one.error ? remarkFor(one.error) : 'lostHere');
    }
    this.#left.clear();
  }

  #adopt(/** @type {number} */ id, /** @type {Transfer} */ transfer) {
    this.#known.add(id);
    this.#open.set(id, transfer);
    if (transfer.state === 'running') this.#use.runs(transfer);
    this.#use.adopted(transfer);
    this.#use.changed(transfer);
  }
}

/** A download of which this computer has nothing any more. */
function lostDownload(/** @type {Listed} */ { path, bytes: size }) {
  return new Transfer({ kind: 'download', name: lastPart(path), path, size });
}
