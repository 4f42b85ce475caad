// The queue of transfers, without a browser: a session that is interrupted and goes on.
import assert from 'node:assert/strict';
import test from 'node:test';
import { onDetail } from '../../../../console/base/custom_events.js';
import { Uploads } from '../../../../console/files/transfers/uploads.js';
import { Msg } from '../../../../console/link/messages.js';
import {
  CHUNK,
  chunkOf,
  continued,
  download,
  endOf,
  listedDownload,
  listedUpload,
  makeQueue,
  settled,
  upload,
} from './fake_queue.mjs';

test('each part of a download is confirmed when it is stored, and the end when all is', async () => {
  const { queue, state } = makeQueue({ part: 2 });
  const transfer = download();
  queue.add(transfer);
  await settled();
  for (let i = 0; i < 3; i++) queue.receiveChunk(chunkOf(1, i));
  await settled();
  const stored = () => state.sent.filter(({ type }) => type === 'stored');
  assert.deepEqual(stored(), [{ type: 'stored', transfer: 1, bytes: 2 }]);
  queue.receiveEnd(endOf(1));
  await settled();
  assert.deepEqual(stored()[1], { type: 'stored', transfer: 1, bytes: 3, end: true });
  assert.equal(transfer.state, 'done');
});

test('the end of a download is confirmed too when it is empty or has failed on the machine', async () => {
  const { queue, state } = makeQueue();
  for (const size of [0, 5]) queue.add(download(size));
  await settled();
  queue.receiveEnd(endOf(1));
  queue.receiveEnd(endOf(2, false));
  await settled();
  assert.deepEqual(
    state.sent.filter(({ end }) => end),
    [
      { type: 'stored', transfer: 2, bytes: 0, end: true },
      { type: 'stored', transfer: 1, bytes: 0, end: true },
    ],
  );
});

test('a download goes on with the chunk after the last that arrived', async () => {
  const { queue, state, interrupt, goOn } = makeQueue({ part: 2 });
  const transfer = download();
  queue.add(transfer);
  await settled();
  queue.receiveChunk(chunkOf(1, 0));
  interrupt();
  assert.ok(queue.suspended);
  assert.equal(transfer.state, 'running');
  await goOn([listedDownload()]);
  assert.deepEqual(state.sent, [{ type: 'continue', transfer: 1, bytes: 1 }]);
  queue.receiveControl(continued({ bytes: 1, chunk: 1 }));
  for (const index of [1, 2]) queue.receiveChunk(chunkOf(1, index));
  queue.receiveEnd(endOf(1));
  await settled();
  assert.equal(transfer.state, 'done');
  assert.deepEqual(state.machine, [], 'the machine is asked nothing');
});

test('what was stored during an interruption is confirmed after it', async () => {
  const { queue, state, interrupt, goOn } = makeQueue();
  queue.add(download());
  await settled();
  queue.receiveChunk(chunkOf(1, 0));
  interrupt();
  await settled();
  await goOn([listedDownload()]);
  queue.receiveControl(continued({ bytes: 1, chunk: 1 }));
  assert.deepEqual(state.sent.at(-1), { type: 'stored', transfer: 1, bytes: 1 });
});

test('a download fails when the relay goes on elsewhere, and a continued message of another session is ignored', async () => {
  for (const other of [{ bytes: 2 }, { chunk: 2 }]) {
    const { queue, interrupt, goOn } = makeQueue();
    const transfer = download();
    queue.add(transfer);
    await settled();
    queue.receiveChunk(chunkOf(1, 0));
    interrupt();
    await goOn([listedDownload()]);
    queue.receiveControl(continued({ bytes: 9, chunk: 9, session: 2 }));
    assert.equal(transfer.state, 'running');
    queue.receiveControl(continued({ bytes: 1, chunk: 1, ...other }));
    assert.deepEqual([transfer.state, transfer.remark], ['failed', 'outOfOrder']);
  }
});

test('a number that was asked for is asked for again, and what has not begun waits', async () => {
  const { queue, state, interrupt, goOn } = makeQueue();
  state.numbering = false;
  const transfers = Array.from({ length: 5 }, () => download());
  for (const transfer of transfers) queue.add(transfer);
  interrupt();
  queue.add(download());
  state.numbering = true;
  await goOn([]);
  assert.deepEqual(
    state.sent.filter(({ type }) => type === 'transfer').map(({ request }) => request),
    [1, 2, 3],
  );
  assert.deepEqual(state.machine, [
    [Msg.DownloadRequest, 1],
    [Msg.DownloadRequest, 2],
    [Msg.DownloadRequest, 3],
  ]);
  assert.deepEqual(
    transfers.map((transfer) => transfer.state),
    ['running', 'running', 'running', 'waiting', 'waiting'],
  );
});

test('a transfer that is added during an interruption begins after it', async () => {
  const { queue, interrupt, goOn } = makeQueue();
  interrupt();
  const transfer = download();
  queue.add(transfer);
  await settled();
  assert.equal(transfer.state, 'waiting');
  await goOn([]);
  assert.equal(transfer.state, 'running');
});

test('a request that the relay has not received is sent again, and what it does not have any more fails', async () => {
  const { queue, state, interrupt, goOn } = makeQueue();
  const transfers = [download(), upload(9 * CHUNK), download()];
  for (const transfer of transfers) queue.add(transfer);
  await settled();
  queue.receiveChunk(chunkOf(3, 0));
  interrupt();
  await goOn([]);
  const sentOf = (/** @type {number} */ id) => state.machine.filter(([, transfer]) => transfer === id);
  assert.deepEqual(sentOf(1), [[Msg.DownloadRequest, 1]]);
  assert.deepEqual(sentOf(2), [[Msg.UploadBegin, 2], ...Array(4).fill([Msg.FileChunk, 2, CHUNK])]);
  assert.deepEqual([transfers[2].state, transfers[2].remark], ['failed', 'notKept']);
  assert.equal(state.sinks[1].state.aborted, true);
});

test('an upload goes on where the relay stands', async () => {
  const { queue, state, interrupt, goOn } = makeQueue();
  const transfer = upload(6 * CHUNK + 5);
  queue.add(transfer);
  await settled();
  assert.equal(state.machine.length, 1 + 4, 'the window is full');
  interrupt();
  await goOn([listedUpload({ size: transfer.size, bytes: 3 * CHUNK })], {
    taken: 3 * CHUNK,
    passed: 2 * CHUNK,
  });
  assert.equal(transfer.done, 2 * CHUNK);
  assert.deepEqual(state.machine, [], 'the relay is asked first');
  assert.deepEqual(state.sent, [{ type: 'continue', transfer: 1, bytes: 0 }]);
  queue.receiveControl(continued({ bytes: 3 * CHUNK, chunk: 0 }));
  await settled();
  for (const bytes of [5 * CHUNK, transfer.size]) {
    queue.receiveControl({ type: 'uploaded', session: 1, bytes });
    await settled();
  }
  assert.deepEqual(state.machine, [
    ...Array(3).fill([Msg.FileChunk, 1, CHUNK]),
    [Msg.FileChunk, 1, 5],
    [Msg.FileTransferEnd, 1],
  ]);
  assert.equal(transfer.done, transfer.size);
  assert.equal(transfer.state, 'checking');
});

test('the end of an upload that the relay has not received is sent again, with the bytes that are missing', async () => {
  const { queue, state, interrupt, goOn } = makeQueue();
  const transfer = upload(3);
  queue.add(transfer);
  await settled();
  assert.equal(transfer.state, 'checking');
  interrupt();
  await goOn([listedUpload({ bytes: 0 })]);
  assert.equal(transfer.state, 'running');
  queue.receiveControl(continued({ bytes: 0, chunk: 0 }));
  await settled();
  assert.deepEqual(state.machine, [
    [Msg.FileChunk, 1, 3],
    [Msg.FileTransferEnd, 1],
  ]);
  assert.deepEqual([transfer.state, transfer.timesSent], ['checking', 2]);
});

test('an upload that was sent again while its folder was being listed is checked in another listing', async () => {
  const { queue, interrupt, goOn } = makeQueue();
  /** @type {((listing: import('../../../../console/files/listing.js').Listing) => void)[]} */
  const asked = [];
  const folders = { list: () => new Promise((answer) => asked.push(answer)) };
  const uploads = new Uploads(
    queue,
    /** @type {import('../../../../console/files/folder_requests.js').FolderRequests} */ (
      /** @type {unknown} */ (folders)
    ),
    async () => 'overwrite',
  );
  const answer = async (/** @type {number} */ size) => {
    const entries = size ? [{ name: 'u', path: 'C:\\u', dir: false, size, mtime: size }] : [];
    asked.shift()?.({ path: 'C:\\', parent: '', entries });
    await settled();
  };
  /** @type {string[]} */
  const results = [];
  onDetail(queue, 'change', (/** @type {{state: string}} */ { state }) => results.push(state));
  const { file } = upload(3);
  const over = uploads.upload(file ? [{ file }] : [], 'C:\\');
  await answer(0);
  interrupt();
  await goOn([listedUpload()]);
  queue.receiveControl(continued({ bytes: 0, chunk: 0 }));
  await settled();
  assert.equal(asked.length, 1);
  await answer(2);
  assert.equal(asked.length, 1, 'the first listing is not the answer');
  await answer(3);
  await over;
  assert.equal(results.at(-1), 'done');
});

test('a transfer that was cancelled during the interruption is ended at the relay after it', async () => {
  const { queue, state, interrupt, goOn } = makeQueue();
  const transfer = download();
  queue.add(transfer);
  await settled();
  interrupt();
  queue.cancel(transfer);
  assert.equal(transfer.state, 'cancelled');
  await goOn([listedDownload()]);
  assert.deepEqual(state.machine, [[Msg.FileTransferEnd, 1]]);
});

test('errors of the relay end the transfer with their own remarks, at once or in its list', async () => {
  for (const [code, remark] of [
    ['spool-full', 'spoolFull'],
    ['spool-failed', 'spoolFailed'],
    ['not-kept', 'notKept'],
    ['no-right', 'noRight'],
  ]) {
    const { queue, interrupt, goOn } = makeQueue();
    const [first, second] = [download(), download()];
    for (const transfer of [first, second]) queue.add(transfer);
    await settled();
    queue.receiveControl({ type: 'error', transfer: 1, code, message: 'A sentence.' });
    assert.deepEqual([first.state, first.remark], ['failed', remark]);
    interrupt();
    await goOn([listedDownload({ transfer: 2, path: '', error: code })]);
    assert.deepEqual([second.state, second.remark], ['failed', remark]);
  }
});

test('the end of a session ends what was suspended', async () => {
  const { queue, interrupt } = makeQueue();
  const transfers = [download(), upload(9 * CHUNK), download(), download()];
  for (const transfer of transfers) queue.add(transfer);
  await settled();
  interrupt();
  queue.sessionOver();
  assert.deepEqual(
    transfers.map(({ state, remark }) => `${state} ${remark}`),
    ['failed downloadOver', 'failed sessionOver', 'failed downloadOver', 'failed downloadOver'],
  );
});
