// Clipboard contents that are not transferred at once: the browser has no focus, a message is too large, or
// the session is in “view only”.
import assert from 'node:assert/strict';
import test from 'node:test';
import { packFiles, packText } from '../../../console/clipboard/payload.js';
import { clip, fromMachine, GRANTED, local, notice, pasteOn, refocus } from '../support/clipboard_page.mjs';
import { BROWSER } from '../support/console_page.mjs';
import { fixture, openSession } from '../support/fixture.mjs';
import { deliver, holdFileReads, KEEP_SOCKETS } from '../support/page_scripts.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
/** A page that has no focus while `window.away` is true, and counts how often its clipboard was read. */
const AWAY = {
  page: {
    ...GRANTED.page,
    script: `if (window.Clipboard) {
  const { writeText, read } = Clipboard.prototype;
  Clipboard.prototype.writeText = async function (text) {
    if (window.away) throw new DOMException('no focus', 'NotAllowedError');
    return writeText.call(this, text);
  };
  window.reads = 0;
  Clipboard.prototype.read = async function () {
    const items = await read.call(this);
    window.reads += 1;
    return items;
  };
}`,
  },
};
/** Only with the permission to read can the page tell whether something was copied on this computer. */
const NEEDS_READING = { skip: BROWSER === 'firefox' && 'Firefox has no permission to read the clipboard' };

/** @typedef {import('playwright-core').Page} Page */

/** Delivers a text of the machine while the page has no focus, and waits for its notice. */
async function receiveAway(
  /** @type {import('../support/scripted_agent.mjs').ScriptedAgent} */ agent,
  /** @type {Page} */ p,
  /** @type {string} */ text,
) {
  await p.evaluate(() => {
    window.away = true;
  });
  fromMachine(agent, packText(text));
  await notice(p, 'text').waitFor();
  await p.evaluate(() => {
    window.away = false;
  });
}

/** Gives the focus back to the page, and waits until the page has looked at its clipboard. */
async function returned(/** @type {Page} */ p) {
  const before = await p.evaluate(() => window.reads);
  await refocus(p);
  await until('the clipboard is read', async () => (await p.evaluate(() => window.reads)) > before);
}

test(
  'a text that waited for the focus does not overwrite a text that was copied here since',
  NEEDS_READING,
  async (t) => {
    const { agent, page } = await openSession(t, shared, AWAY);
    const p = page.page;
    await local.setText(p, 'fyrst');
    await returned(p);
    assert.equal((await clip(agent)).text, 'fyrst');
    await receiveAway(agent, p, 'frá tölvunni');
    await local.setText(p, 'afritað síðar');
    await returned(p);
    await returned(p);
    assert.equal(await local.text(p), 'afritað síðar');
    await notice(p, 'text').getByRole('button', { name: 'Copy' }).click();
    await notice(p, 'copied').waitFor();
    assert.equal(await local.text(p), 'frá tölvunni', 'the notice still offered the text');
    await returned(p);
    assert.ok(!agent.has(AgentMsg.ClipboardData), 'nothing was sent to the machine');
  },
);

test(
  'a text that waited for the focus is written if nothing was copied here, and if it is not declined',
  NEEDS_READING,
  async (t) => {
    const { agent, page } = await openSession(t, shared, AWAY);
    const p = page.page;
    await local.setText(p, 'óbreytt');
    await returned(p);
    await clip(agent);
    await receiveAway(agent, p, 'hafnað');
    await notice(p, 'text').locator('.clip-notice-close').click();
    await returned(p);
    assert.equal(await local.text(p), 'óbreytt');
    await receiveAway(agent, p, 'eldra');
    fromMachine(agent, packFiles([{ name: 'skrá', bytes: new Uint8Array(1) }]));
    await notice(p, 'files').waitFor();
    await returned(p);
    assert.equal(await local.text(p), 'óbreytt', 'the files are newer than the text');
    await receiveAway(agent, p, 'nýtt');
    await returned(p);
    await notice(p, 'copied').waitFor();
    assert.equal(await local.text(p), 'nýtt');
    assert.ok(!agent.has(AgentMsg.ClipboardData), 'nothing was sent to the machine');
  },
);

test('a clipboard of the machine that is too large to be transferred is reported in words', async (t) => {
  const { agent, page } = await openSession(t, shared, { page: { script: KEEP_SOCKETS } });
  const p = page.page;
  const large = 'a'.repeat(100_000);
  const paste = () => pasteOn(p, `data.setData('text/plain', '${large}')`);
  await paste();
  await clip(agent);
  const report = { type: 'too-large', session: agent.session, bytes: 80_000_000 };
  await deliver(p, { ...report, message: AgentMsg.DirListResult });
  assert.equal(await p.locator('.clip-notice').count(), 0, 'a listing is not a clipboard');
  await deliver(p, { ...report, message: AgentMsg.ClipboardData });
  await notice(p, 'machineTooLarge').waitFor();
  assert.match(await notice(p, 'machineTooLarge').innerText(), /copied on the machine is too large/);
  await page.shot('clip-machine-too-large');
  agent.sendJson(AgentMsg.DirListResult, agent.session, { path: '', parent: '', entries: [] });
  await agent.events(2);
  await paste();
  assert.equal((await clip(agent)).text, large, 'the machine’s clipboard is no longer known');
});

test('in “view only” nothing is sent to the machine’s clipboard, and a notice says so', async (t) => {
  const { agent, page } = await openSession(t, shared, GRANTED);
  const p = page.page;
  await local.setText(p, 'mitt');
  await p.check('#view-only');
  await pasteOn(p, 'data.setData("text/plain", "límt")');
  await p.click('#clip-menu summary');
  assert.ok(await p.locator('#clip-send').isDisabled());
  await p.click('#clip-menu summary');
  const files = await p.evaluateHandle(() => {
    const transfer = new DataTransfer();
    transfer.items.add(new File(['x'], 'x.txt'));
    return transfer;
  });
  await p.dispatchEvent('#stage', 'drop', { dataTransfer: files });
  await notice(p, 'viewOnly').waitFor();
  await page.shot('clip-view-only');
  await p.uncheck('#view-only');
  await p.click('#clip-menu summary');
  await p.click('#clip-send');
  assert.deepEqual(await clip(agent), { kind: 'text', text: 'mitt' });
  await notice(p, 'sent').waitFor();
  assert.ok(!agent.has(AgentMsg.ClipboardData), 'nothing else was sent');
});

test('files that are still being read when “view only” begins are not sent', async (t) => {
  const { agent, page } = await openSession(t, shared, GRANTED);
  const p = page.page;
  await holdFileReads(p);
  await pasteOn(p, 'data.items.add(new File(["x"], "x.txt"))');
  await p.check('#view-only');
  // Reads end in the order in which they began.
  await p.evaluate(() => {
    window.release();
    return new Blob(['later']).arrayBuffer().then(() => {});
  });
  await p.uncheck('#view-only');
  await local.setText(p, 'mitt');
  await p.click('#clip-menu summary');
  await p.click('#clip-send');
  assert.deepEqual(await clip(agent), { kind: 'text', text: 'mitt' });
});
