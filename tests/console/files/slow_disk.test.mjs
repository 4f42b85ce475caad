// Downloads to a disk that is slower than the connection.
import assert from 'node:assert/strict';
import { randomBytes } from 'node:crypto';
import test from 'node:test';
import { fixture } from '../support/fixture.mjs';
import { DISK, fileRow, MiB, openPanel, sha256, shows } from '../support/panel_page.mjs';
import { transferIs, transferRow } from '../support/transfer_rows.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
/** The unconfirmed bytes above which the relay sends no more of a download. */
const WINDOW = 16 * MiB;

/**
 * Counts the bytes that arrive, keeps the saved content, and keeps the disk from writing parts of files until release()
 * is called. What describes a download is written as text.
 */
const SLOW_DISK = `
  window.receivedBytes = 0;
  window.released = new Promise((release) => { window.release = () => release(); });
  const Socket = window.WebSocket;
  window.WebSocket = class extends Socket {
    constructor(...parts) {
      super(...parts);
      this.addEventListener('message', ({ data }) => { window.receivedBytes += data.byteLength ?? 0; });
    }
  };
  const { createObjectURL } = URL;
  URL.createObjectURL = (blob) => {
    window.savedBlob = blob;
    return createObjectURL.call(URL, blob);
  };
  // The script also runs in Firefox's empty first page, which has no files.
  const files = window.FileSystemWritableFileStream?.prototype ?? {};
  const { write } = files;
  files.write = async function (bytes) {
    if (typeof bytes !== 'string') await window.released;
    return write.call(this, bytes);
  };`;

/** Starts a download of 40 MiB, and waits until the relay has sent as much of it as it may. */
async function heldDownload(/** @type {import('node:test').TestContext} */ t) {
  const data = randomBytes(40 * MiB);
  const parts = await openPanel(t, shared, DISK, { page: { script: SLOW_DISK } });
  const { p, machine } = parts;
  machine.folders['C:\\'].push({ name: 'large', size: data.length, data });
  await fileRow(p, 'C:').dblclick();
  await fileRow(p, 'large').dblclick();
  await until('the window is full', () => p.evaluate((bytes) => window.receivedBytes >= bytes, WINDOW));
  // The relay answers each request after it has read what it wants to read from the machine.
  await p.evaluate(async () => {
    for (let i = 0; i < 30; i++) await (await fetch('/api/agents')).json();
  });
  const received = await p.evaluate(() => window.receivedBytes);
  assert.ok(received < WINDOW + 2 * MiB, `${received} bytes are in the browser`);
  return { ...parts, data };
}

test('a download waits in the relay while the browser’s disk is slow, and is then complete', async (t) => {
  const { p, data } = await heldDownload(t);
  await p.evaluate(() => window.release());
  await transferIs(p, 'large', 'done');
  const saved = await p.evaluate(async () => {
    const hash = await crypto.subtle.digest('SHA-256', await window.savedBlob.arrayBuffer());
    return [...new Uint8Array(hash)];
  });
  assert.equal(Buffer.from(saved).toString('hex'), sha256(data));
});

test('after the cancellation of a waiting download, the folder above is still listed', async (t) => {
  const { p } = await heldDownload(t);
  await transferRow(p, 'large').locator('.transfer-cancel').click();
  await p.click('#files-up');
  await shows(p, ['C:', 'E:']);
});
