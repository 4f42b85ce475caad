// Uploads through the file panel, byte for byte.
import assert from 'node:assert/strict';
import { randomBytes } from 'node:crypto';
import test from 'node:test';
import { fixture } from '../support/fixture.mjs';
import { CHUNK_BYTES, contentOf } from '../support/machine_folders.mjs';
import { DISK, fileRow, MiB, namesIn, openPanel, openUsers, sha256 } from '../support/panel_page.mjs';
import { transferIs, transferRow, transferText } from '../support/transfer_rows.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

test('files are uploaded completely and in order, and checked afterwards', async (t) => {
  const data = randomBytes(3 * MiB + 5);
  const { p, page, machine } = await openPanel(t, shared);
  await openUsers(p);
  await p.setInputFiles('#files-input', [
    { name: 'gögn.bin', mimeType: 'a/b', buffer: data },
    { name: 'tómt', mimeType: 'a/b', buffer: Buffer.alloc(0) },
  ]);
  await transferIs(p, 'gögn.bin', 'done');
  await transferIs(p, 'tómt', 'done');
  const upload = machine.uploadTo('C:\\Users\\gögn.bin');
  assert.equal(upload.size, data.length);
  assert.deepEqual(
    upload.chunks.map(({ index }) => index),
    upload.chunks.map((_, i) => i),
  );
  assert.ok(upload.chunks.every(({ bytes }) => bytes.length <= CHUNK_BYTES));
  assert.equal(sha256(contentOf(upload)), sha256(data));
  assert.deepEqual(machine.uploadTo('C:\\Users\\tómt').chunks, []);
  await fileRow(p, 'gögn.bin').waitFor();
  await page.shot('files-uploaded');
});

test('the names of uploaded files are changed where Windows forbids them', async (t) => {
  const { p, machine } = await openPanel(t, shared);
  await openUsers(p);
  await p.setInputFiles('#files-input', [
    { name: 'what?: "no" .', mimeType: 'a/b', buffer: Buffer.from('1') },
    { name: 'nul.txt', mimeType: 'a/b', buffer: Buffer.from('2') },
  ]);
  await until(
    'both have begun',
    () => machine.uploadTo('C:\\Users\\what__ _no___') && machine.uploadTo('C:\\Users\\_nul.txt'),
  );
});

test('files that arrived incompletely or not at all are shown as failed', async (t) => {
  const { p, machine } = await openPanel(t, shared);
  await openUsers(p);
  machine.losing = (path, data) => (path.endsWith('short') ? data.subarray(0, 2) : null);
  await p.setInputFiles(
    '#files-input',
    ['short', 'lost'].map((name) => ({ name, mimeType: 'a/b', buffer: Buffer.from('12345') })),
  );
  await transferIs(p, 'short', 'failed');
  await transferIs(p, 'lost', 'failed');
  assert.match(await transferText(p, 'short'), /only a part arrived/);
  assert.match(await transferText(p, 'lost'), /could not create the file/);
});

test('files are uploaded by drop and by paste', async (t) => {
  const { p, machine } = await openPanel(t, shared);
  await openUsers(p);
  const data = await p.evaluateHandle(() => {
    const transfer = new DataTransfer();
    transfer.items.add(new File(['dropped'], 'a.txt'));
    return transfer;
  });
  await p.dispatchEvent('#files', 'dragover', { dataTransfer: data });
  assert.ok(await p.locator('#files.is-target').count());
  await p.dispatchEvent('#files', 'drop', { dataTransfer: data });
  await transferIs(p, 'a.txt', 'done');
  await p.locator('#files-list').evaluate((list) => {
    const clipboardData = new DataTransfer();
    clipboardData.items.add(new File(['pasted'], 'b.txt'));
    list.dispatchEvent(new ClipboardEvent('paste', { clipboardData }));
  });
  await transferIs(p, 'b.txt', 'done');
  assert.equal(contentOf(machine.uploadTo('C:\\Users\\b.txt')).toString(), 'pasted');
});

test('a cancelled upload is closed on the machine, and its row says that part of the file stays there', async (t) => {
  const { agent, p, machine } = await openPanel(t, shared);
  await openUsers(p);
  await p.evaluate(() => {
    // Reading a chunk of a large file never completes.
    Blob.prototype.arrayBuffer = function read() {
      return this.size < 1000 ? new Response(this).arrayBuffer() : new Promise(() => {});
    };
  });
  await p.setInputFiles('#files-input', [{ name: 'large', mimeType: 'a/b', buffer: Buffer.alloc(2 * MiB) }]);
  const upload = await until('it has begun', () => machine.uploadTo('C:\\Users\\large'));
  await transferRow(p, 'large').locator('.transfer-cancel').click();
  await until('the machine has closed it', () => upload.ended);
  assert.match(await transferText(p, 'large'), /Cancelled · the part that arrived stays/);
  assert.ok(agent.session);
});

test('an upload waits while the machine does not read, and the relay goes on to read from the browser', async (t) => {
  const data = randomBytes(24 * MiB);
  const { agent, p, page, machine } = await openPanel(t, shared, DISK, {
    page: {
      script: `
    window.counts = { mostWaiting: 0, sent: 0, passed: 0, pongs: 0 };
    const { send } = WebSocket.prototype;
    const count = ({ data }) => {
      const message = typeof data === 'string' ? JSON.parse(data) : {};
      if (message.type === 'uploaded') window.counts.passed = message.bytes;
      if (message.type === 'pong') window.counts.pongs++;
    };
    WebSocket.prototype.send = function (data) {
      this.addEventListener('message', count);
      send.call(this, data);
      if (typeof data !== 'string') window.counts.sent += data.byteLength;
      window.counts.mostWaiting = Math.max(window.counts.mostWaiting, this.bufferedAmount);
    };`,
    },
  });
  const counts = () => p.evaluate(() => ({ ...window.counts }));
  await openUsers(p);
  await p.setInputFiles('#files-input', [{ name: 'slow.bin', mimeType: 'a/b', buffer: data }]);
  await until('it has begun', () => machine.uploadTo('C:\\Users\\slow.bin'));
  agent.socket.pause();
  const full = await until('the console waits for the machine', async () => {
    const { sent, passed, pongs } = await counts();
    return sent - passed >= MiB && { sent, pongs };
  });
  await until('the relay answers further pings', async () => (await counts()).pongs > full.pongs + 1);
  assert.ok((await counts()).sent <= full.sent + 4 * MiB, 'at most a few MiB are sent ahead of the machine');
  assert.equal(await transferRow(p, 'slow.bin').getAttribute('data-state'), 'running');
  assert.equal(await page.note(), '');
  agent.socket.resume();
  await transferIs(p, 'slow.bin', 'done');
  assert.ok((await counts()).mostWaiting <= 5 * MiB, 'at most a few MiB wait in the browser');
  assert.equal(sha256(contentOf(machine.uploadTo('C:\\Users\\slow.bin'))), sha256(data));
});

test('the end of the session ends all transfers in the console and on the machine', async (t) => {
  const { agent, p, machine, page } = await openPanel(t, shared);
  machine.folders['C:\\Users'].push({ name: 'down.bin', size: 10 * MiB });
  await openUsers(p);
  machine.holding = true;
  await fileRow(p, 'down.bin').dblclick();
  await until('it is requested', () => machine.held.length);
  await p.evaluate(() => {
    Blob.prototype.arrayBuffer = () => new Promise(() => {});
  });
  await p.setInputFiles('#files-input', [{ name: 'up.bin', mimeType: 'a/b', buffer: Buffer.alloc(2 * MiB) }]);
  const upload = await until('it has begun', () => machine.uploadTo('C:\\Users\\up.bin'));
  agent.drop();
  await page.waitForNote(/gone offline/);
  for (const name of ['down.bin', 'up.bin']) {
    await transferIs(p, name, 'failed');
    assert.match(await transferText(p, name), /the session ended/);
  }
  await agent.connect();
  await until('the machine receives the end of the upload after its return', () => upload.ended);
  await until(
    'the panel shows the folder again',
    async () => (await p.locator('#files').getAttribute('aria-busy')) === 'false',
  );
  assert.ok((await namesIn(p)).includes('down.bin'));
});
