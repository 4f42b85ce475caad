// A queue of transfers without a browser, with a relay and a machine that only record what they receive.
import { Transfer } from '../../../../console/files/transfers/transfer.js';
import { TransferQueue } from '../../../../console/files/transfers/transfer_queue.js';

/** @typedef {import('../../../../console/files/transfers/download_sink.js').LeftDownload} LeftDownload */

export const CHUNK = 256 * 1024;

/** Waits until all promises that do not depend on timers or on the test have settled. */
export async function settled() {
  for (let i = 0; i < 20; i++) await new Promise((done) => setImmediate(done));
}

/** A sink that stores parts of `part` chunks. */
export function fakeSink(part = 1) {
  const state = { bytes: 0, chunks: 0, stored: 0, aborted: false };
  const sink = {
    write: async (/** @type {Uint8Array} */ bytes) => {
      state.bytes += bytes.length;
      if (++state.chunks % part === 0) state.stored = state.bytes;
      return state.stored;
    },
    close: async () => new Blob([new Uint8Array(state.bytes)]),
    abort: async () => {
      state.aborted = true;
    },
  };
  return { state, sink };
}

/** A queue in session 1, whose relay gives numbers from 1 on while `numbering` is true. */
export function makeQueue({ left = /** @type {LeftDownload[]} */ ([]), part = 1 } = {}) {
  const state = {
    session: /** @type {number | null} */ (1),
    numbering: true,
    /** Control messages to the relay without their session. */
    sent: /** @type {Record<string, unknown>[]} */ ([]),
    /** Messages to the machine: type and transfer; for chunks also the length. */
    machine: /** @type {unknown[][]} */ ([]),
    sinks: /** @type {ReturnType<typeof fakeSink>[]} */ ([]),
    adopted: /** @type {Transfer[]} */ ([]),
  };
  let numbers = 0;
  const sender = {
    sendJson: (/** @type {number} */ type, /** @type {object} */ value) => {
      const { transfer_id: id } = /** @type {{transfer_id: number}} */ (value);
      if (state.session !== null) state.machine.push([type, id]);
    },
    send: (/** @type {number} */ type, /** @type {Uint8Array} */ payload) => {
      if (state.session !== null) state.machine.push([type, payload[3], payload.length - 8]);
    },
    sendControl: (/** @type {object} */ message) => {
      if (state.session === null) return false;
      const { type, request } = /** @type {{type: string, request: number}} */ (message);
      state.sent.push({ ...message });
      if (type === 'transfer' && state.numbering)
        queueMicrotask(() => queue.receiveControl({ type: 'transfer', request, transfer: ++numbers }));
      return true;
    },
    session: () => state.session,
    agent: () => 'machine',
    entryOf: async () => undefined,
  };
  const queue = new TransferQueue(sender, {
    open: async () => {
      const made = fakeSink(part);
      state.sinks.push(made);
      return made.sink;
    },
    left: async () => left.splice(0),
  });
  queue.addEventListener('adopted', (event) =>
    state.adopted.push(/** @type {CustomEvent<Transfer>} */ (event).detail),
  );
  const interrupt = () => {
    state.session = null;
    queue.suspend();
    state.sent = [];
    state.machine = [];
  };
  const goOn = async (
    /** @type {object[]} */ transfers,
    uploads = { taken: 0, passed: 0 },
    unwanted = /** @type {number[]} */ ([]),
  ) => {
    state.session = 1;
    queue.opened(transfers, uploads, unwanted);
    await settled();
  };
  return { queue, state, interrupt, goOn };
}

export const download = (size = 3) => new Transfer({ kind: 'download', name: 'd', path: 'C:\\d', size });
export const upload = (size = 3) => {
  const file = new File([new Uint8Array(size)], 'u');
  return new Transfer({ kind: 'upload', name: 'u', path: 'C:\\u', size, file });
};

/** The machine's next chunk of a download. */
export function chunkOf(/** @type {number} */ id, /** @type {number} */ index, length = 1) {
  const payload = new Uint8Array(8 + length);
  new DataView(payload.buffer).setUint32(0, id);
  new DataView(payload.buffer).setUint32(4, index);
  return payload;
}

export const endOf = (/** @type {number} */ id, ok = true) =>
  new TextEncoder().encode(JSON.stringify({ transfer_id: id, ok }));
export const listedDownload = (/** @type {object} */ more = {}) => ({
  transfer: 1,
  kind: 'download',
  path: 'C:\\d',
  bytes: 0,
  ...more,
});
export const listedUpload = (/** @type {object} */ more = {}) => ({
  transfer: 1,
  kind: 'upload',
  path: 'C:\\u',
  size: 3,
  bytes: 0,
  ...more,
});
export const continued = (/** @type {object} */ more) => ({
  type: 'continued',
  session: 1,
  transfer: 1,
  ...more,
});
