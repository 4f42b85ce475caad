// The queue of file transfers: runs up to MAX_RUNNING transfers at a time over the session's messages, and
// uses no elements of the page. The machine does not confirm uploads, so the code that adds an upload has to
// list the folder afterwards and call finish(). While the session is interrupted, the transfers are suspended.
import { emit } from '../../base/custom_events.js';
import { OpenTransfers, remarkFor } from './open_transfers.js';
import { TransferIds } from './transfer_ids.js';

/** @typedef {import('./transfer.js').Transfer} Transfer */
/** @typedef {import('./download_sink.js').Store} Store */
/** @typedef {import('./open_transfers.js').Sender} Sender */
/** @typedef {import('../../link/link.js').ControlMessage} ControlMessage */

const MAX_RUNNING = 3;

/** Events: 'change' (detail: the transfer), 'adopted' (detail: a transfer that an earlier page has begun). */
export class TransferQueue extends EventTarget {
  #sender;
  #store;
  #ids;
  #open;
  /** @type {Transfer[]} */
  #waiting = [];
  /** @type {Set<Transfer>} */
  #running = new Set();
  #suspended = false;
  /** @type {(() => void)[]} what waits for the end of the suspension */
  #wakes = [];

  /** @param {Sender} sender @param {Store} store */
  constructor(sender, store) {
    super();
    this.#sender = sender;
    this.#store = store;
    this.#ids = new TransferIds((message) => sender.sendControl(message));
    this.#open = new OpenTransfers(sender, store.left, {
      finish: (transfer, state, remark) => this.finish(transfer, state, remark),
      changed: (transfer) => this.#changed(transfer),
      adopted: (transfer) => emit(this, 'adopted', transfer),
      runs: (transfer) => this.#running.add(transfer),
      sent: (transfer) => this.#stopped(transfer),
    });
  }

  /** Whether the transfers wait for the session to go on. */
  get suspended() {
    return this.#suspended;
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
    for (const transfer of new Set([...this.#waiting, ...this.#open.all]))
      if (transfer.kind === kind && transfer.state !== 'checking') this.finish(transfer, 'failed', 'noRight');
  }

  /** Goes on with an upload that has lost its file, if this is a file of the same name and size. */
  chooseFile(/** @type {Transfer} */ transfer, /** @type {File} */ file) {
    this.#open.chooseFile(transfer, file);
  }

  /** Handles a control message of the relay. */
  receiveControl(/** @type {ControlMessage} */ message) {
    const { type, request, transfer } = message;
    if (type === 'transfer') this.#ids.receive(request, transfer);
    if (type === 'error') this.#ids.refuse(request, new Error(remarkFor(message.code, message.message)));
    this.#open.receiveControl(message);
  }

  /** Suspends the transfers, because the session is interrupted. */
  suspend() {
    this.#suspended = true;
    this.#open.suspend();
    for (const transfer of this.#running) this.#changed(transfer);
  }

  /**
   * Handles the start of a session, or the return to one.
   * @param {unknown} [transfers] the relay's list of the transfers that the session has already
   * @param {unknown} [uploads] the relay's counts of the session's uploads
   * @param {unknown} [unwanted] the downloads that were ended early, and that the machine still sends
   */
  opened(transfers, uploads, unwanted) {
    this.#suspended = false;
    this.#ids.requestAgain();
    this.#open.downloads.returned(unwanted);
    this.#open.opened(transfers, uploads);
    for (const transfer of this.#running) this.#changed(transfer);
    this.#wake();
    this.#runNext();
  }

  sessionOver() {
    this.#suspended = false;
    this.#open.sessionOver();
    this.#ids.sessionOver();
    const all = new Set([...this.#running, ...this.#open.all, ...this.#waiting]);
    this.#waiting = [];
    for (const transfer of all) {
      // A transfer that is being checked was sent completely; its check determines the result.
      if (transfer.state === 'checking') continue;
      this.finish(transfer, 'failed', transfer.kind === 'upload' ? 'sessionOver' : 'downloadOver');
    }
    this.#wake();
  }

  /** Handles a chunk of a download. */
  receiveChunk(/** @type {Uint8Array<ArrayBuffer>} */ payload) {
    this.#open.downloads.receiveChunk(payload);
  }

  /** Handles the machine's message that ends a download. */
  receiveEnd(/** @type {Uint8Array} */ payload) {
    this.#open.downloads.receiveEnd(payload);
  }

  /** Handles the end of the machine's connection. */
  machineGone() {
    this.#open.downloads.machineGone();
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
    this.#open.release(transfer);
    this.#changed(transfer);
    this.#stopped(transfer);
  }

  /** A transfer needs its place among the running ones no longer. */
  #stopped(/** @type {Transfer} */ transfer) {
    this.#running.delete(transfer);
    this.#runNext();
  }

  #runNext() {
    while (!this.#suspended && this.#running.size < MAX_RUNNING) {
      const transfer = this.#waiting.shift();
      if (!transfer) return;
      this.#running.add(transfer);
      transfer.start();
      this.#changed(transfer);
      this.#run(transfer).catch((error) => this.finish(transfer, 'failed', error.message || 'machineFailed'));
    }
  }

  async #run(/** @type {Transfer} */ transfer) {
    const id = await this.#ids.request();
    const isDownload = transfer.kind === 'download' && transfer.active;
    const sink = isDownload ? await this.#openSink(id, transfer) : null;
    while (this.#suspended) await new Promise((wake) => this.#wakes.push(() => wake(undefined)));
    if (transfer.active) {
      this.#open.begin(id, transfer, sink);
      return;
    }
    sink?.abort();
    this.#open.sendEnd(id);
  }

  #openSink(/** @type {number} */ id, /** @type {Transfer} */ { path, name, size }) {
    const [session, agent] = [this.#sender.session() ?? 0, this.#sender.agent()];
    return this.#store.open({ session, agent, transfer: id, path, name, size });
  }

  #wake() {
    for (const wake of this.#wakes.splice(0)) wake();
  }

  #changed(/** @type {Transfer} */ transfer) {
    emit(this, 'change', transfer);
  }
}
