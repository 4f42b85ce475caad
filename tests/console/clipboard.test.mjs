// The clipboard between this computer and the machine: texts, pictures and files, each way.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import test from 'node:test';
import { packFiles, packImage, packText, parseClip } from '../../console/clipboard/payload.js';
import { fixture, session } from './support/fixture.mjs';
import { MachineFolders } from './support/folders.mjs';
import { AgentMsg } from './support/scripted_agent.mjs';
import { until } from './support/waiting.mjs';

const shared = fixture();
const MiB = 1024 * 1024;
const GRANTED = { page: { permissions: ['clipboard-read', 'clipboard-write'] } };
/** A browser that lets nothing be written without a click, and nothing be read. */
const STRICT = {
  page: {
    script: `
  Clipboard.prototype.writeText = async function (text) {
    if (window.event?.type !== 'click') throw new DOMException('no', 'NotAllowedError');
    window.written = text;
  };
  Clipboard.prototype.read = async () => { throw new DOMException('no', 'NotAllowedError'); };
  Permissions.prototype.query = async () => { throw new TypeError('unknown'); };`,
  },
};
const png = (...args) => execFileSync('convert', [...args, 'png32:-'], { maxBuffer: 1 << 26 });

const fromMachine = (agent, payload) => agent.send(AgentMsg.ClipboardData, agent.session, payload);
const clip = async (agent) => parseClip((await agent.next(AgentMsg.ClipboardData)).payload);
const localText = (p) => p.evaluate(() => navigator.clipboard.readText());
const setLocal = (p, text) => p.evaluate((value) => navigator.clipboard.writeText(value), text);
const chip = (p, kind) => p.locator(`.chip[data-kind=${kind}]`);
const refocus = (p) => p.evaluate(() => dispatchEvent(new Event('focus')));
/** Ctrl+V as the keyboard sends it, with what the browser would paste. */
async function pasteOn(p, fill) {
  await p.locator('#key-catcher').evaluate((catcher, source) => {
    const data = new DataTransfer();
    new Function('data', source)(data);
    catcher.focus();
    const key = (type) =>
      catcher.dispatchEvent(
        new KeyboardEvent(type, { key: 'v', code: 'KeyV', ctrlKey: true, bubbles: true, cancelable: true }),
      );
    key('keydown');
    catcher.dispatchEvent(
      new ClipboardEvent('paste', { clipboardData: data, bubbles: true, cancelable: true }),
    );
    key('keyup');
  }, fill);
}

test('a text of the machine is on this clipboard at once, and does not go back', async (t) => {
  const { agent, page } = await session(t, shared, GRANTED);
  const p = page.page;
  fromMachine(agent, packText('þjóð\r\nlína 2'));
  await chip(p, 'copied').waitFor();
  assert.equal(await localText(p), 'þjóð\nlína 2', 'with the line ends of this computer');
  await page.shot('clip-copied');
  await refocus(p);
  await setLocal(p, 'annað\nog meira');
  await refocus(p);
  assert.deepEqual(await clip(agent), { kind: 'text', text: 'annað\r\nog meira' });
  await refocus(p);
  await setLocal(p, 'þriðja');
  await refocus(p);
  assert.equal((await clip(agent)).text, 'þriðja', 'nothing was sent twice in between');
});

test('where the browser wants a click, a card offers the text', async (t) => {
  const { agent, page } = await session(t, shared, STRICT);
  const p = page.page;
  fromMachine(agent, packText('leyndarmál'));
  await chip(p, 'text').waitFor();
  await page.shot('clip-text');
  await chip(p, 'text').getByRole('button', { name: 'Copy' }).click();
  await chip(p, 'copied').waitFor();
  assert.equal(await p.evaluate(() => window.written), 'leyndarmál');
  await p.click('#clip-menu summary');
  await page.shot('clip-menu');
  await p.click('#clip-send');
  await chip(p, 'unreadable').waitFor();
});

test('a text of one MiB goes both ways whole', async (t) => {
  const { agent, page } = await session(t, shared, GRANTED);
  const p = page.page;
  const long = 'þ'.repeat(MiB / 2);
  fromMachine(agent, packText(long));
  await chip(p, 'copied').waitFor();
  assert.equal(await localText(p), long);
  await setLocal(p, `${long}.`);
  await refocus(p);
  assert.equal((await clip(agent)).text, `${long}.`);
});

test('pictures go both ways with every pixel', async (t) => {
  const { agent, page } = await session(t, shared, GRANTED);
  const p = page.page;
  const picture = png('-size', '64x40', 'gradient:#ff0000-#0000ff');
  const pixels = (bytes) =>
    execFileSync('convert', ['png:-', '-depth', '8', 'rgba:-'], { input: bytes, maxBuffer: 1 << 26 });
  fromMachine(agent, packImage(Uint8Array.of(0x89, 0x50, 1, 2, 3)));
  fromMachine(agent, packImage(picture));
  await chip(p, 'copied').waitFor();
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
  assert.deepEqual(pixels((await clip(agent)).png), pixels(other), 'and the first did not go back');
});

test('a picture that cannot be written at once is offered and can be saved', async (t) => {
  const { agent, page } = await session(t, shared, {
    page: { script: 'Clipboard.prototype.write = async () => { throw new Error("no"); };' },
  });
  const p = page.page;
  const picture = png('-size', '200x120', 'plasma:fractal');
  fromMachine(agent, packImage(picture));
  await chip(p, 'image').locator('img').waitFor();
  await page.shot('clip-image');
  const [download] = await Promise.all([
    p.waitForEvent('download'),
    chip(p, 'image').getByRole('button', { name: 'Save' }).click(),
  ]);
  assert.equal(download.suggestedFilename(), 'picture.png');
  assert.deepEqual(readFileSync(await download.path()), picture);
});

test('files of the machine are a list to save from', async (t) => {
  const { agent, page } = await session(t, shared);
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
  await chip(p, 'files').waitFor();
  assert.deepEqual(await chip(p, 'files').locator('li bdi').allInnerTexts(), [
    'skýrsla.txt',
    '<b>.bin',
    'tóm',
  ]);
  await page.shot('clip-files');
  const [download] = await Promise.all([
    p.waitForEvent('download'),
    chip(p, 'files').locator('li').first().getByRole('button').click(),
  ]);
  assert.equal(download.suggestedFilename(), 'skýrsla.txt');
  assert.equal(readFileSync(await download.path(), 'utf8'), 'innihald');
  const all = [];
  p.on('download', (one) => all.push(one));
  await chip(p, 'files').getByRole('button', { name: 'Save all' }).click();
  await until('all are saved', () => all.length === 3);
  await pasteOn(p, 'data.items.add(new File(["x"], "x.txt"))');
  await chip(p, 'filesSent').waitFor();
  assert.equal(await chip(p, 'files').count(), 1, 'words about the other way take nothing away');
  await chip(p, 'files').locator('.chip-close').click();
  await chip(p, 'filesSent').locator('.chip-close').click();
  assert.equal(await p.locator('.chip').count(), 0);
});

test('Ctrl+V gives the clipboard to the machine before the key', async (t) => {
  const { agent, page } = await session(t, shared, STRICT);
  const p = page.page;
  const machine = new MachineFolders(agent, { '': [] });
  machine.answering = false;
  await pasteOn(p, 'data.setData("text/plain", "límt")');
  assert.equal((await clip(agent)).text, 'límt');
  // On a slow line the machine has the clipboard long after the browser sent it.
  await until('it is asked for a sign that it has it', () =>
    agent.inbox.some(({ type }) => type === AgentMsg.DirListRequest),
  );
  assert.deepEqual(agent.inputs, []);
  machine.answering = true;
  machine.serve();
  const keys = await agent.events(2);
  assert.deepEqual(
    keys.map((event) => [event[1], event[2]]),
    [
      [1, 0x56],
      [0, 0x56],
    ],
  );
  // The same again is on the machine already: only the key goes.
  await pasteOn(p, 'data.setData("text/plain", "límt")');
  await agent.events(2);
  await pasteOn(p, '');
  await agent.events(2);
  assert.equal(agent.inbox.filter(({ type }) => type === AgentMsg.ClipboardData).length, 0);
});

test('files are pasted and dropped by value, and too large ones are offered for upload', async (t) => {
  const { agent, page } = await session(t, shared);
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
  await chip(p, 'filesSent').waitFor();
  const drop = async (size) => {
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
  assert.equal((await clip(agent)).files[0].bytes.length, 8 * MiB - rest, 'exactly what one message takes');
  await drop(8 * MiB - rest + 1);
  await chip(p, 'filesTooLarge').waitFor();
  await page.shot('clip-too-large');
  await chip(p, 'filesTooLarge')
    .getByRole('button', { name: /Upload/ })
    .click();
  assert.ok(await p.locator('#files-put').isDisabled(), 'the drives take no files');
  await p.locator('.file', { hasText: 'C:' }).dblclick();
  await p.locator('#files-empty').waitFor();
  await p.click('#files-put');
  await until('it is there', () => machine.uploadTo('C:\\stór.bin')?.ended);
});

test('nothing is shared when it is switched off, and nothing goes out while only viewing', async (t) => {
  const { agent, page } = await session(t, shared, GRANTED);
  const p = page.page;
  await setLocal(p, 'mitt');
  await p.check('#view-only');
  await refocus(p);
  await pasteOn(p, 'data.setData("text/plain", "límt")');
  await p.uncheck('#view-only');
  await p.click('#clip-menu summary');
  await p.uncheck('#clip-automatic');
  await refocus(p);
  fromMachine(agent, packText('hitt'));
  agent.rename('Heard by now');
  await until('what was sent before is there', async () =>
    (await p.locator('#view-machines').innerHTML()).includes('Heard by now'),
  );
  assert.equal(await localText(p), 'mitt');
  await p.click('#clip-send');
  assert.equal((await clip(agent)).text, 'mitt', 'asked for it goes all the same');
  await chip(p, 'sent').waitFor();
  assert.equal(agent.inbox.filter(({ type }) => type === AgentMsg.ClipboardData).length, 0);
});
