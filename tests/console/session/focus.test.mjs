// The keyboard's focus: it belongs to the picture, comes back to it, and can leave it without a mouse.
import assert from 'node:assert/strict';
import test from 'node:test';
import { key, unicode } from '../../../console/input/events.js';
import { keyNamed } from '../../../console/input/keymap.js';
import { fixture, openSession } from '../support/fixture.mjs';
import { focused, hasFocus } from '../support/focus.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

/** @param {import('node:test').TestContext} t */
async function session(t, options = {}) {
  const { agent, page } = await openSession(t, shared, options);
  await agent.next(AgentMsg.ThumbnailRequest);
  const p = page.page;
  const onPicture = (/** @type {string} */ after) => hasFocus(p, 'key-input', `after ${after}`);
  await onPicture('the start');
  return { agent, page, p, onPicture };
}

/** Types a letter and waits until it has reached the machine. */
async function typeOne(
  /** @type {Awaited<ReturnType<typeof session>>} */ { agent, p },
  /** @type {string} */ letter,
) {
  await p.keyboard.press(letter);
  const wanted = unicode(letter);
  await until(`"${letter}" arrives`, () =>
    wanted.every((event) => agent.inputs.some((one) => String(one) === String(event))),
  );
  agent.inputs.length = 0;
}

test('the keyboard goes back to the picture after each use of the toolbar by mouse', async (t) => {
  const parts = await session(t);
  const { agent, p, onPicture, page } = parts;
  agent.thumbnail({ monitor: 1, count: 2, width: 64, height: 36, jpeg: new Uint8Array([255, 216, 1]) });
  const menu = (/** @type {string} */ name) => p.click(`#${name}-menu summary`);
  await p.locator('[data-monitor="1"]').click();
  await onPicture('a choice of the display');
  await menu('picture');
  await p.selectOption('#quality', 'saving');
  await onPicture('a choice of the quality');
  await p.click('#show-pointer');
  await onPicture('a tick');
  // The first key closes the menu and reaches the machine.
  await typeOne(parts, 'q');
  await p.locator('#picture-menu .panel').waitFor({ state: 'hidden' });
  await menu('keys');
  await p.click('[data-combination=windows]');
  await onPicture('a key combination');
  await menu('machine');
  await p.click('#restart');
  await p.click('#restart-dialog button[value=cancel]');
  await onPicture('a dialog');
  await menu('machine');
  await menu('machine');
  await onPicture('a menu that is closed without a choice');
  await p.click('.toggle');
  await p.click('.toggle');
  await onPicture('view only');
  await p.click('#status-line');
  await onPicture('a click beside the picture');
  await page.shot('focus-frame');
  await p.click('#full-screen');
  await onPicture('full screen');
  await typeOne(parts, 'a');
  await p.keyboard.press(' ');
  await typeOne(parts, 'b');
  assert.ok(
    await p.evaluate(() => document.fullscreenElement !== null),
    'the space has not left full screen',
  );
});

test('the panels keep the focus until they are closed', async (t) => {
  const { agent, p, onPicture } = await session(t);
  await p.click('#panel-files-button');
  await p.locator('#files-list').focus();
  await p.evaluate(() => document.querySelector('#files-list')?.dispatchEvent(new MouseEvent('click')));
  agent.thumbnail({ monitor: 1, count: 2, width: 64, height: 36, jpeg: new Uint8Array([255, 216, 1]) });
  await p.locator('[data-monitor="1"]').waitFor();
  assert.equal(await focused(p), 'files-list');
  await p.click('#panel-files header button');
  await onPicture('the panel is closed');
});

test('Ctrl+Alt+Home leads to the toolbar and releases the keys on the machine', async (t) => {
  const { agent, p, page } = await session(t);
  await p.locator('#leave-tip').waitFor();
  await page.shot('leave-tip');
  const field = p.locator('#key-input');
  const hint = await p.evaluate(() => document.getElementById('leave-hint')?.textContent);
  assert.match(hint ?? '', /Ctrl \+ Alt \+ Home$/);
  assert.equal(await field.getAttribute('aria-describedby'), 'leave-hint');
  // AltGr is reported as Ctrl and Alt on Windows.
  await field.evaluate((element) => {
    const init = { key: 'Home', code: 'Home', ctrlKey: true, altKey: true, modifierAltGraph: true };
    element.dispatchEvent(new KeyboardEvent('keydown', { ...init, bubbles: true, cancelable: true }));
  });
  assert.equal(await focused(p), 'key-input');
  await agent.events(1);
  await p.keyboard.down('ControlRight');
  await p.keyboard.down('AltLeft');
  await p.keyboard.down('Home');
  for (const code of ['Home', 'AltLeft', 'ControlRight']) await p.keyboard.up(code);
  const [control, alt] = [keyNamed('ControlRight'), keyNamed('AltLeft')];
  assert.deepEqual(await agent.events(4), [
    key(control, true),
    key(alt, true),
    key(alt, false),
    key(control, false),
  ]);
  assert.ok(await p.evaluate(() => document.activeElement?.matches('#session-bar *')));
});

test('the toolbar can be used without a mouse, and Escape or the press of a button leads back', async (t) => {
  const { agent, p, onPicture, page } = await session(t);
  const reach = async (/** @type {string} */ selector) => {
    for (let i = 0; i < 40; i++) {
      if (await p.evaluate((wanted) => document.activeElement?.matches(wanted), selector)) return;
      await p.keyboard.press('Tab');
    }
    throw new Error(`Tab does not reach ${selector}`);
  };
  const leave = async () => {
    await p.keyboard.press('Control+Alt+Home');
    await agent.events(4);
  };
  await leave();
  await reach('#picture-menu summary');
  await p.keyboard.press('Enter');
  await reach('#quality');
  await p.keyboard.press('ArrowDown');
  await p.keyboard.press('ArrowDown');
  assert.equal(await focused(p), 'quality', 'the arrow keys go on choosing');
  // The first Escape may close the list of a select; another one closes the menu.
  for (let i = 0; i < 3 && (await focused(p)) !== 'key-input'; i++) await p.keyboard.press('Escape');
  await onPicture('Escape on the toolbar');
  await leave();
  await reach('#keys-menu summary');
  await p.keyboard.press('Enter');
  await page.shot('keys-menu-by-keyboard');
  await reach('[data-combination=windows]');
  await p.keyboard.press('Enter');
  await onPicture('a button is pressed by keyboard');
  assert.deepEqual(await agent.events(2), [
    key(keyNamed('MetaLeft'), true),
    key(keyNamed('MetaLeft'), false),
  ]);
  await leave();
  await reach('#session-end');
  await p.keyboard.press('Enter');
  await agent.next(AgentMsg.SessionEnd);
});

test('a frame shows that the keys reach the machine', async (t) => {
  const { p } = await session(t);
  const frame = () =>
    p.locator('#stage').evaluate((stage) => getComputedStyle(stage, '::before').borderTopStyle === 'solid');
  assert.ok(await frame());
  await p.locator('#session-end').focus();
  assert.ok(!(await frame()));
  await p.locator('#key-input').focus();
  assert.ok(await frame());
  await p.evaluate(() => document.getElementById('view-only')?.click());
  assert.ok(!(await frame()), 'with view only, keys do not reach the machine');
});
