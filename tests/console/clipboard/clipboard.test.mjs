// The clipboard between this computer and the machine: texts, pictures and files in both directions.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import test from 'node:test';
import { packFiles, packImage, packText } from '../../../console/clipboard/payload.js';
import {
  clip,
  fromMachine,
  GRANTED,
  local,
  notice,
  pasteOn,
  refocus,
  STRICT,
} from '../support/clipboard_page.mjs';
import { fixture, openSession } from '../support/fixture.mjs';
import { MachineFolders } from '../support/machine_folders.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
const MiB = 1024 * 1024;

const png = (/** @type {string[]} */ ...args) =>
  execFileSync('convert', [...args, 'png32:-'], { maxBuffer: 1 << 26 });

test('a text from the machine is written to this computer’s clipboard at once and is not sent back', async (t) => {
  const { agent, page } = await openSession(t, shared, GRANTED);
  const p = page.page;
  fromMachine(agent, packText('þjóð\r\nlína 2'));
  await notice(p, 'copied').waitFor();
  assert.equal(await local.text(p), 'þjóð\nlína 2', 'the text has the line ends of this computer');
  await page.shot('clip-copied');
  await refocus(p);
  await local.setText(p, 'annað\nog meira');
  await refocus(p);
  assert.deepEqual(await clip(agent), { kind: 'text', text: 'annað\r\nog meira' });
  await refocus(p);
  await local.setText(p, 'þriðja');
  await refocus(p);
  assert.equal((await clip(agent)).text, 'þriðja', 'nothing was sent twice in between');
});

test('in a browser that copies only at a click, a notice offers the machine’s text', async (t) => {
  const { agent, page } = await openSession(t, shared, STRICT);
  const p = page.page;
  fromMachine(agent, packText('leyndarmál'));
  await notice(p, 'text').waitFor();
  await page.shot('clip-text');
  await notice(p, 'text').getByRole('button', { name: 'Copy' }).click();
  await notice(p, 'copied').waitFor();
  assert.equal(await p.evaluate(() => window.written), 'leyndarmál');
  await p.click('#clip-menu summary');
  await page.shot('clip-menu');
  await p.click('#clip-send');
  await notice(p, 'unreadable').waitFor();
});

test('a text of 1 MiB is transferred in both directions', async (t) => {
  const { agent, page } = await openSession(t, shared, GRANTED);
  const p = page.page;
  const long = 'þ'.repeat(MiB / 2);
  fromMachine(agent, packText(long));
  await notice(p, 'copied').waitFor();
  assert.equal(await local.text(p), long);
  await local.setText(p, `${long}.`);
  await refocus(p);
  assert.equal((await clip(agent)).text, `${long}.`);
});

test('pictures are transferred in both directions without a changed pixel', async (t) => {
  const { agent, page } = await openSession(t, shared, GRANTED);
  const p = page.page;
  const picture = png('-size', '64x40', 'gradient:#ff0000-#0000ff');
  const pixels = (/** @type {Uint8Array} */ bytes) =>
    execFileSync('convert', ['png:-', '-depth', '8', 'rgba:-'], { input: bytes, maxBuffer: 1 << 26 });
  fromMachine(agent, packImage(Uint8Array.of(0x89, 0x50, 1, 2, 3)));
  fromMachine(agent, packImage(picture));
  await notice(p, 'copied').waitFor();
  const local = Buffer.from(
    await p.evaluate(async () => {
      const [item] = await navigator.clipboard.read();
      return [...new Uint8Array(await (await item.getType('image/png')).arrayBuffer())];
    }),
  );
  assert.deepEqual(pixels(local), pixels(picture));
  await refocus(p);
  const other = png('-size', '30x20', 'gradient:#00ff00-#000000');
  await p.evaluate(
    async (bytes) => {
      await navigator.clipboard.write([
        new ClipboardItem({ 'image/png': new Blob([Uint8Array.from(bytes)], { type: 'image/png' }) }),
      ]);
    },
    [...other],
  );
  await refocus(p);
  assert.deepEqual(pixels((await clip(agent)).png), pixels(other), 'the machine’s picture is not sent back');
});

test('a picture that the browser refuses to copy is offered in a notice and can be saved', async (t) => {
  const { agent, page } = await openSession(t, shared, {
    page: { script: 'Clipboard.prototype.write = async () => { throw new Error("no"); };' },
  });
  const p = page.page;
  const picture = png('-size', '200x120', 'plasma:fractal');
  fromMachine(agent, packImage(picture));
  await notice(p, 'image').locator('img').waitFor();
  await page.shot('clip-image');
  const [download] = await Promise.all([
    p.waitForEvent('download'),
    notice(p, 'image').getByRole('button', { name: 'Save' }).click(),
  ]);
  assert.equal(download.suggestedFilename(), 'picture.png');
  assert.deepEqual(readFileSync(await download.path()), picture);
});

test('files from the machine are listed in a notice and can be saved', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const p = page.page;
  fromMachine(agent, Uint8Array.of(3, 0));
  fromMachine(agent, Uint8Array.of(9, 9));
  fromMachine(agent, new Uint8Array(0));
  const files = [
    { name: '../../skýrsla.txt', bytes: Buffer.from('innihald') },
    { name: '<b>.bin', bytes: Buffer.alloc(70_000, 7) },
    { name: 'tóm', bytes: Buffer.alloc(0) },
  ];
  fromMachine(agent, packFiles(files));
  await notice(p, 'files').waitFor();
  assert.deepEqual(await notice(p, 'files').locator('li bdi').allInnerTexts(), [
    'skýrsla.txt',
    '<b>.bin',
    'tóm',
  ]);
  await page.shot('clip-files');
  const [download] = await Promise.all([
    p.waitForEvent('download'),
    notice(p, 'files').locator('li').first().getByRole('button').click(),
  ]);
  assert.equal(download.suggestedFilename(), 'skýrsla.txt');
  assert.equal(readFileSync(await download.path(), 'utf8'), 'innihald');
  const all = [];
  p.on('download', (one) => all.push(one));
  await notice(p, 'files').getByRole('button', { name: 'Save all' }).click();
  await until('all are saved', () => all.length === 3);
  await pasteOn(p, 'data.items.add(new File(["x"], "x.txt"))');
  await notice(p, 'filesSent').waitFor();
  assert.equal(await notice(p, 'files').count(), 1, 'the received files are still shown');
  await notice(p, 'files').locator('.clip-notice-close').click();
  await notice(p, 'filesSent').locator('.clip-notice-close').click();
  assert.equal(await p.locator('.clip-notice').count(), 0);
});

test('pasted files are sent with their content, and files that are too large are offered for upload', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const p = page.page;
  const machine = new MachineFolders(agent, { '': [{ name: 'C:', dir: true }], 'C:\\': [] });
  await pasteOn(p, 'data.items.add(new File(["eitt"], "a:b.txt")); data.items.add(new File([], "tvö"))');
  const { files } = await clip(agent);
  assert.deepEqual(
    files.map(({ name, bytes }) => [name, Buffer.from(bytes).toString()]),
    [
      ['a_b.txt', 'eitt'],
      ['tvö', ''],
    ],
  );
  await notice(p, 'filesSent').waitFor();
  const drop = async (/** @type {number} */ size) => {
    const data = await p.evaluateHandle((bytes) => {
      const transfer = new DataTransfer();
      transfer.items.add(new File([new Uint8Array(bytes)], 'stór.bin'));
      return transfer;
    }, size);
    await p.dispatchEvent('#stage', 'dragover', { dataTransfer: data });
    assert.equal(await p.locator('#stage.is-target').count(), 1);
    await p.dispatchEvent('#stage', 'drop', { dataTransfer: data });
  };
  const rest = 1 + 4 + 4 + 'stór.bin'.length + 1 + 8;
  await drop(8 * MiB - rest);
  assert.equal((await clip(agent)).files[0].bytes.length, 8 * MiB - rest, 'exactly the largest message');
  await drop(8 * MiB - rest + 1);
  await notice(p, 'filesTooLarge').waitFor();
  await page.shot('clip-too-large');
  await notice(p, 'filesTooLarge')
    .getByRole('button', { name: /Upload/ })
    .click();
  assert.ok(await p.locator('#files-put').isDisabled(), 'files cannot be uploaded to the list of drives');
  await p.locator('.file', { hasText: 'C:' }).dblclick();
  await p.locator('#files-empty').waitFor();
  await p.click('#files-put');
  await until('the upload has ended', () => machine.uploadTo('C:\\stór.bin')?.ended);
});

test('the clipboard is not shared while sharing is off, and is not sent in “view only”', async (t) => {
  const { agent, page } = await openSession(t, shared, GRANTED);
  const p = page.page;
  await local.setText(p, 'mitt');
  await p.check('#view-only');
  await refocus(p);
  await pasteOn(p, 'data.setData("text/plain", "límt")');
  await p.uncheck('#view-only');
  await p.click('#clip-menu summary');
  await p.uncheck('#clip-automatic');
  await refocus(p);
  fromMachine(agent, packText('hitt'));
  agent.rename('Renamed afterwards');
  await until('everything sent before the new name has arrived', async () =>
    (await p.locator('#view-machines').innerHTML()).includes('Renamed afterwards'),
  );
  assert.equal(await local.text(p), 'mitt');
  await p.click('#clip-send');
  assert.equal((await clip(agent)).text, 'mitt', 'a click sends the clipboard although sharing is off');
  await notice(p, 'sent').waitFor();
  assert.equal(agent.inbox.filter(({ type }) => type === AgentMsg.ClipboardData).length, 0);
});
