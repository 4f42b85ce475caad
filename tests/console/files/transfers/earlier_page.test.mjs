// The queue of transfers, without a browser: transfers that the page had begun before it was loaded again.
import assert from 'node:assert/strict';
import test from 'node:test';
import { Msg } from '../../../../console/link/messages.js';
import {
  chunkOf,
  continued,
  endOf,
  fakeSink,
  listedDownload,
  listedUpload,
  makeQueue,
  settled,
} from './fake_queue.mjs';

test('an upload of an earlier page waits for a file of the same name and size', async () => {
  const { queue, state, goOn } = makeQueue();
  await goOn([listedUpload({ size: 5, bytes: 2 })]);
  const [transfer] = state.adopted;
  assert.deepEqual([transfer.state, transfer.name, transfer.done], ['fileless', 'u', 2]);
  for (const other of [new File(['12345'], 'x'), new File(['1234'], 'u')]) {
    queue.chooseFile(transfer, other);
    assert.deepEqual([transfer.state, transfer.remark], ['fileless', 'otherFile']);
  }
  assert.deepEqual(state.sent, []);
  queue.chooseFile(transfer, new File(['12345'], 'u'));
  assert.deepEqual(state.sent, [{ type: 'continue', transfer: 1, bytes: 0 }]);
  queue.receiveControl(continued({ bytes: 2, chunk: 0 }));
  await settled();
  assert.deepEqual(state.machine, [
    [Msg.FileChunk, 1, 3],
    [Msg.FileTransferEnd, 1],
  ]);
});

test('a file that is chosen during another interruption is sent after it', async () => {
  const { queue, state, interrupt, goOn } = makeQueue();
  await goOn([listedUpload({ size: 5, bytes: 2 })]);
  interrupt();
  queue.chooseFile(state.adopted[0], new File(['12345'], 'u'));
  await goOn([listedUpload({ size: 5, bytes: 2 })]);
  assert.deepEqual(state.sent, [{ type: 'continue', transfer: 1, bytes: 0 }]);
});

test('an upload of an earlier page that has reached the relay completely needs no file', async () => {
  const { state, goOn } = makeQueue();
  await goOn([listedUpload({ bytes: 3 })]);
  assert.deepEqual(state.machine, [[Msg.FileTransferEnd, 1]]);
  assert.equal(state.adopted[0].state, 'checking');
});

/** What a closed page has left of a download. */
function leftOf(/** @type {object} */ more = {}) {
  const { state, sink } = fakeSink();
  const facts = { session: 1, agent: 'machine', transfer: 1, path: 'C:\\d', name: 'd', size: 3 };
  return { state, left: { sink, record: { ...facts, parts: 1, bytes: 2, chunks: 2, ...more } } };
}

test('a download of an earlier page goes on after the parts that it has stored', async () => {
  const { left } = leftOf();
  const other = leftOf({ transfer: 8 });
  const { queue, state, goOn } = makeQueue({ left: [left, other.left] });
  await goOn([listedDownload({ bytes: 1 })]);
  const [transfer] = state.adopted;
  assert.deepEqual([transfer.name, transfer.size, transfer.done], ['d', 3, 2]);
  assert.deepEqual(state.sent, [{ type: 'continue', transfer: 1, bytes: 2 }]);
  assert.ok(other.state.aborted, 'what nobody needs is deleted');
  queue.receiveControl(continued({ bytes: 2, chunk: 2 }));
  queue.receiveChunk(chunkOf(1, 2));
  queue.receiveEnd(endOf(1));
  await settled();
  assert.equal(transfer.state, 'done');
});

test('a download of an earlier page is ended when its parts are missing or are those of another', async () => {
  for (const more of [{ transfer: 2 }, { path: 'C:\\x' }, { bytes: 0, chunks: 0 }]) {
    const found = leftOf(more);
    const { state, goOn } = makeQueue({ left: [found.left] });
    await goOn([listedDownload({ bytes: 1 })]);
    const [transfer] = state.adopted;
    assert.deepEqual([transfer.state, transfer.remark, transfer.name], ['failed', 'lostHere', 'd']);
    assert.deepEqual(state.machine, [[Msg.FileTransferEnd, 1]]);
    assert.ok(found.state.aborted);
  }
});

test('the parts of an earlier page are not lost when the session is interrupted during the search for them', async () => {
  const { state, left } = leftOf();
  const { queue, state: seen, interrupt, goOn } = makeQueue({ left: [left] });
  queue.opened([listedDownload({ bytes: 1 })], undefined);
  interrupt();
  await settled();
  assert.equal(seen.adopted.length, 0);
  await goOn([listedDownload({ bytes: 1 })]);
  assert.deepEqual(seen.sent, [{ type: 'continue', transfer: 1, bytes: 2 }]);
  assert.ok(!state.aborted);
});
