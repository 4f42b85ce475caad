// The queue of transfers, without a browser: a session that ends between two steps of a transfer.
import assert from 'node:assert/strict';
import test from 'node:test';
import { Transfer } from '../../../../console/files/transfers/transfer.js';
import { TransferQueue } from '../../../../console/files/transfers/transfer_queue.js';

/** Waits until all promises that do not depend on timers or on the test have settled. */
const settled = () => new Promise((done) => setImmediate(done));
const download = (/** @type {string} */ name) =>
  new Transfer({ kind: 'download', name, path: `C:\\${name}`, size: 1 });

/** @typedef {import('../../../../console/files/transfers/download_sink.js').DownloadSink} DownloadSink */

/** A queue in a session. A sink opens when the test calls the function in `state.opening`. */
function queueWithSinks() {
  const state = {
    session: /** @type {number | null} */ (1),
    /** For each sink that is being opened, the function that completes the opening. */
    opening: /** @type {((sink: DownloadSink) => void)[]} */ ([]),
    aborted: /** @type {string[]} */ ([]),
  };
  const sender = {
    sendJson: () => {},
    send: () => {},
    sendControl: (/** @type {object} */ message) => {
      const { type, request } = /** @type {{type: string, request: number}} */ (message);
      if (type !== 'transfer') return true;
      queueMicrotask(() => queue.receiveControl({ type: 'transfer', request, transfer: request }));
      return true;
    },
    session: () => state.session,
    agent: () => 'machine',
    entryOf: async () => undefined,
  };
  const queue = new TransferQueue(sender, {
    open: () => new Promise((opened) => state.opening.push(opened)),
    left: async () => [],
  });
  const sink = (/** @type {string} */ name) => ({
    write: async () => 0,
    close: async () => new Blob(),
    abort: async () => {
      state.aborted.push(name);
    },
  });
  return { queue, state, sink };
}

test('when a session ends while sinks are being opened, all transfers fail and all sinks are aborted', async () => {
  const { queue, state, sink } = queueWithSinks();
  const first = ['a', 'b', 'c'].map(download);
  for (const transfer of first) queue.add(transfer);
  await settled();
  assert.equal(state.opening.length, 3);
  state.session = null;
  queue.sessionOver();
  assert.deepEqual(
    first.map((transfer) => [transfer.state, transfer.remark]),
    Array(3).fill(['failed', 'downloadOver']),
  );
  for (const [i, opened] of state.opening.splice(0).entries()) opened(sink(first[i].name));
  await settled();
  assert.deepEqual(state.aborted, ['a', 'b', 'c']);

  state.session = 2;
  queue.add(download('next'));
  await settled();
  assert.equal(state.opening.length, 1, 'the next transfer runs');
});

test('an end message that is not valid JSON ends the download that it names, or all if it names none', async () => {
  const { queue, state, sink } = queueWithSinks();
  const transfers = ['a', 'b', 'c'].map(download);
  for (const transfer of transfers) queue.add(transfer);
  await settled();
  for (const [i, opened] of state.opening.splice(0).entries()) opened(sink(transfers[i].name));
  await settled();
  const end = (/** @type {string} */ text) => queue.receiveEnd(new TextEncoder().encode(text));
  end('{"transfer_id":2,"ok":tr');
  end('{"transfer_id":99,"ok":tr');
  assert.deepEqual(
    transfers.map((transfer) => transfer.state),
    ['running', 'failed', 'running'],
  );
  end('\u0000');
  assert.deepEqual(
    transfers.map((transfer) => [transfer.state, transfer.remark]),
    Array(3).fill(['failed', 'unreadableEnd']),
  );
  assert.deepEqual(state.aborted, ['b', 'a', 'c']);
});
