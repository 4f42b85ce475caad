// The queue of transfers by itself, where a browser would not show it: what happens between two of its steps.
import assert from 'node:assert/strict';
import test from 'node:test';
import { Transfer } from '../../console/files/transfer.js';
import { Courier } from '../../console/files/transfer_queue.js';

/** Lets everything run that waits for nothing from outside. */
const settled = () => new Promise((done) => setImmediate(done));
const download = (name) => new Transfer({ kind: 'download', name, path: `C:\\${name}`, size: 1 });

test('a session that ends while the disk is still being opened leaves no place taken and no file behind', async () => {
  const opening = [];
  let session = 1;
  const aborted = [];
  const courier = new Courier(
    {
      sendJson: () => {},
      sendBytes: () => {},
      sendControl: ({ request }) => {
        queueMicrotask(() => courier.control({ type: 'transfer', request, transfer: request }));
        return true;
      },
      session: () => session,
    },
    () => new Promise((opened) => opening.push(opened)),
  );
  const sink = (name) => ({
    write: async () => {},
    close: async () => new Blob(),
    abort: async () => {
      aborted.push(name);
    },
  });

  const first = ['a', 'b', 'c'].map(download);
  first.forEach((transfer) => courier.add(transfer));
  await settled();
  assert.equal(opening.length, 3);
  session = null;
  courier.sessionOver();
  assert.deepEqual(
    first.map(({ state, remark }) => [state, remark]),
    Array(3).fill(['failed', 'sessionOver']),
  );
  opening.splice(0).forEach((opened, i) => opened(sink(first[i].name)));
  await settled();
  assert.deepEqual(aborted, ['a', 'b', 'c']);

  session = 2;
  courier.add(download('next'));
  await settled();
  assert.equal(opening.length, 1, 'the next one has a place');
});
