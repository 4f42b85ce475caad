// Ctrl+V on the picture: what is sent to the machine, and in which order.
import assert from 'node:assert/strict';
import test from 'node:test';
import { packFiles, packText } from '../../../console/clipboard/payload.js';
import { Button, button, key, unicode } from '../../../console/input/events.js';
import { keyNamed } from '../../../console/input/keymap.js';
import { clip, fromMachine, notice, pasteOn, STRICT } from '../support/clipboard_page.mjs';
import { fixture, openSession } from '../support/fixture.mjs';
import { MachineFolders } from '../support/machine_folders.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
const V_KEY = [key(keyNamed('KeyV'), true), key(keyNamed('KeyV'), false)];

/** @typedef {import('../support/scripted_agent.mjs').ScriptedAgent} ScriptedAgent */

/** A session with a machine that answers requests for listings, in a browser that lets no script read. */
async function pasteSession(/** @type {import('node:test').TestContext} */ t) {
  const { agent, page } = await openSession(t, shared, STRICT);
  return { agent, page, p: page.page, machine: new MachineFolders(agent, { '': [] }) };
}

const pasteText = (/** @type {import('playwright-core').Page} */ p, /** @type {string} */ text) =>
  pasteOn(p, `data.setData('text/plain', ${JSON.stringify(text)})`);

/** The console asks for a listing after the clipboard, to know when the machine has received it. */
const asked = (/** @type {ScriptedAgent} */ agent) =>
  until('the machine is asked for a listing', () => agent.has(AgentMsg.DirListRequest));

/** Lets the machine answer the requests that have arrived, but no later ones. */
function answerOnce(/** @type {MachineFolders} */ machine) {
  machine.answering = true;
  machine.serve();
  machine.answering = false;
}

test('Ctrl+V sends the clipboard to the machine before the key', async (t) => {
  const { agent, p, machine } = await pasteSession(t);
  machine.answering = false;
  await pasteText(p, 'límt');
  assert.equal((await clip(agent)).text, 'límt');
  // On a slow connection the machine receives the clipboard long after the browser has sent it.
  await asked(agent);
  assert.deepEqual(agent.inputs, []);
  machine.answering = true;
  machine.serve();
  assert.deepEqual(await agent.events(2), V_KEY);
  await pasteOn(p, '');
  assert.deepEqual(await agent.events(2), V_KEY);
  assert.ok(!agent.has(AgentMsg.ClipboardData), 'an empty clipboard is not sent');
});

test('clicks, keys and text that come after Ctrl+V reach the machine after the pasted keys', async (t) => {
  const { agent, page, p, machine } = await pasteSession(t);
  machine.answering = false;
  await pasteText(p, 'límt');
  await asked(agent);
  const { x, y, width, height } = await page.canvasBox();
  await p.mouse.click(x + width / 2, y + height / 2);
  await p.keyboard.press('a');
  await p.keyboard.insertText('þ');
  assert.deepEqual(agent.inputs, []);
  answerOnce(machine);
  const wanted = [
    ...V_KEY,
    button(Button.left, true),
    button(Button.left, false),
    ...unicode('a'),
    ...unicode('þ'),
  ];
  const last = String(wanted.at(-1));
  await until('the text arrives', () => agent.inputs.some((event) => String(event) === last));
  const isMove = (/** @type {number[]} */ event) => event[0] === 1;
  assert.deepEqual(
    agent.inputs.filter((event) => !isMove(event)),
    wanted,
  );
});

test('the second of two pastes is sent after the keys of the first', async (t) => {
  const { agent, p, machine } = await pasteSession(t);
  machine.answering = false;
  await pasteText(p, 'eitt');
  await pasteText(p, 'tvö');
  assert.equal((await clip(agent)).text, 'eitt');
  await asked(agent);
  assert.ok(!agent.has(AgentMsg.ClipboardData));
  answerOnce(machine);
  assert.equal((await clip(agent)).text, 'tvö');
  assert.deepEqual(agent.inputs.splice(0), V_KEY);
  await asked(agent);
  answerOnce(machine);
  assert.deepEqual(await agent.events(2), V_KEY);
});

test('“view only” drops the keys of a paste that is under way', async (t) => {
  const { agent, p, machine } = await pasteSession(t);
  machine.answering = false;
  await pasteText(p, 'límt');
  await asked(agent);
  await p.check('#view-only');
  answerOnce(machine);
  await p.uncheck('#view-only');
  await p.locator('#key-input').focus();
  await p.keyboard.insertText('þ');
  assert.deepEqual(await agent.events(3), [V_KEY[1], ...unicode('þ')], 'only the release was sent');
});

test('a small text is sent at each Ctrl+V, and a large text only until the machine has it', async (t) => {
  const { agent, p } = await pasteSession(t);
  const small = 'a'.repeat(64 * 1024 - 1);
  for (const text of [small, small, `${small}b`]) {
    await pasteText(p, text);
    assert.equal((await clip(agent)).text, text);
    assert.deepEqual(await agent.events(2), V_KEY);
  }
  await pasteText(p, `${small}b`);
  assert.deepEqual(await agent.events(2), V_KEY);
  assert.ok(!agent.has(AgentMsg.ClipboardData), 'the large text was not sent again');
});

test('a text that the machine’s clipboard no longer contains is sent again at Ctrl+V', async (t) => {
  const { agent, p } = await pasteSession(t);
  const large = 'a'.repeat(100_000);
  const sent = async (/** @type {string} */ why) => {
    await pasteText(p, large);
    assert.deepEqual(await agent.events(2), V_KEY);
    assert.ok(agent.has(AgentMsg.ClipboardData), why);
    await clip(agent);
  };
  await sent('the text is new');
  fromMachine(agent, packFiles([{ name: 'skrá', bytes: new Uint8Array(1) }]));
  await notice(p, 'files').waitFor();
  await sent('files were copied on the machine');
  fromMachine(agent, packText('annað'));
  await notice(p, 'text').waitFor();
  await sent('the browser could not write the text that was copied on the machine');
  await p.evaluate(() => {
    /** @type {HTMLInputElement} */ (document.getElementById('clip-automatic')).checked = false;
  });
  fromMachine(agent, packText('þriðja'));
  agent.rename('Renamed afterwards');
  await until('everything sent before the new name has arrived', async () =>
    (await p.locator('#view-machines').innerHTML()).includes('Renamed afterwards'),
  );
  await p.evaluate(() => {
    /** @type {HTMLInputElement} */ (document.getElementById('clip-automatic')).checked = true;
  });
  await sent('the machine’s clipboard changed while sharing was off');
});

test('Ctrl+V pastes what Ctrl+C has copied on the machine, unless something else was copied since', async (t) => {
  const { agent, p, machine } = await pasteSession(t);
  const copyKeys = async () => {
    await p.keyboard.press('Control+c');
    await agent.events(4);
  };
  await copyKeys();
  machine.answering = false;
  await pasteText(p, 'eldri');
  await asked(agent);
  fromMachine(agent, packFiles([{ name: 'skrá', bytes: new Uint8Array(1) }]));
  answerOnce(machine);
  machine.answering = true;
  assert.deepEqual(await agent.events(2), V_KEY);
  await pasteText(p, 'eldri');
  assert.deepEqual(await agent.events(2), V_KEY);
  assert.ok(!agent.has(AgentMsg.ClipboardData), 'the files on the machine’s clipboard were kept');
  await p.evaluate(() => dispatchEvent(new Event('blur')));
  await pasteText(p, 'eldri');
  assert.equal((await clip(agent)).text, 'eldri', 'the page was left, so this clipboard may be newer');
  await agent.events(2);
  await copyKeys();
  await pasteText(p, 'eldri');
  assert.equal((await clip(agent)).text, 'eldri', 'Ctrl+C has copied nothing');
});
