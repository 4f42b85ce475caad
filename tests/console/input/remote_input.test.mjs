// The representative's pointer and keyboard: the exact events that reach the machine.
import assert from 'node:assert/strict';
import test from 'node:test';
import { Button, button, key, move, unicode, wheel } from '../../../console/input/events.js';
import { toWire } from '../../../console/input/geometry.js';
import { keyNamed } from '../../../console/input/keymap.js';
import { fixture, openSession } from '../support/fixture.mjs';
import { present } from '../support/present.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
const WIDTH = 640;
const HEIGHT = 360;

/**
 * A session whose key input has the focus, before any input was sent.
 * @param {import('node:test').TestContext} t
 */
async function inputSession(t) {
  const { agent, page } = await openSession(t, shared, { width: WIDTH, height: HEIGHT });
  await agent.next(AgentMsg.ThumbnailRequest);
  await until('the keys go to the machine', () =>
    page.page.evaluate(() => document.activeElement?.id === 'key-input'),
  );
  return { agent, page, mouse: page.page.mouse, keyboard: page.page.keyboard };
}

/**
 * The point of the page at which a pixel of the machine is shown, and the input event that the agent receives when
 * the pointer moves to that point.
 * @param {import('../support/console_page.mjs').ConsolePage} page
 * @param {number} x
 * @param {number} y
 */
async function aim(page, x, y) {
  const box = await page.canvasBox();
  const at = { x: box.x + ((x + 0.5) * box.width) / WIDTH, y: box.y + ((y + 0.5) * box.height) / HEIGHT };
  const wire = toWire(
    at,
    { left: box.x, top: box.y, width: box.width, height: box.height },
    { width: WIDTH, height: HEIGHT },
  );
  return { ...at, event: move(wire.x, wire.y) };
}

const pressed = (/** @type {string} */ code) => [key(keyNamed(code), true), key(keyNamed(code), false)];

/**
 * Types a character as a mark and returns the events that arrived before the mark.
 * @param {import('../support/scripted_agent.mjs').ScriptedAgent} agent
 * @param {import('playwright-core').Keyboard} keyboard
 */
async function allUntilMark(agent, keyboard, mark = 'Ω') {
  await keyboard.insertText(mark);
  const last = unicode(mark).at(-1);
  await until('the mark arrives', () => agent.inputs.some((event) => String(event) === String(last)));
  return agent.inputs.splice(0).slice(0, -2);
}

test('a click is sent as a move, a press and a release at the pixel under the pointer', async (t) => {
  const { agent, page, mouse } = await inputSession(t);
  for (const [x, y] of [
    [0, 0],
    [321, 77],
    [639, 359],
  ]) {
    const target = await aim(page, x, y);
    await mouse.move(target.x, target.y);
    assert.deepEqual(await agent.events(1), [target.event]);
    await mouse.down();
    await mouse.up();
    assert.deepEqual(await agent.events(4), [
      target.event,
      button(Button.left, true),
      target.event,
      button(Button.left, false),
    ]);
  }
});

test('a press at a new position is sent after a move of its own', async (t) => {
  const { agent, page } = await inputSession(t);
  const { x, y, event } = await aim(page, 400, 200);
  await page.canvas.dispatchEvent('pointerdown', { pointerType: 'mouse', button: 0, clientX: x, clientY: y });
  assert.deepEqual(await agent.events(3), [event, event, button(Button.left, true)]);
});

test('the right and middle mouse buttons are sent, and the browser’s menu does not open', async (t) => {
  const { agent, page, mouse } = await inputSession(t);
  const { x, y } = await aim(page, 100, 100);
  await mouse.move(x, y);
  await agent.events(1);
  for (const name of /** @type {const} */ (['right', 'middle'])) {
    const which = Button[name];
    await mouse.down({ button: name });
    await mouse.up({ button: name });
    const events = await agent.events(4);
    assert.deepEqual([events[1], events[3]], [button(which, true), button(which, false)]);
  }
});

test('a drag that leaves the picture continues at the picture’s edge until the button is released', async (t) => {
  const { agent, page, mouse } = await inputSession(t);
  const inside = await aim(page, 600, 300);
  await mouse.move(inside.x, inside.y);
  await agent.events(1);
  await mouse.down();
  await agent.events(2);
  // Below the picture; WebDriver BiDi cannot move the pointer out of the window.
  const box = await page.canvasBox();
  const { height } = present(page.page.viewportSize());
  await mouse.move(box.x + box.width / 2, Math.ceil(box.y + box.height + height) / 2);
  const [outside] = await agent.events(1);
  assert.deepEqual(outside.slice(3), [0xff, 0x7f], 'the last row');
  await mouse.up();
  assert.deepEqual((await agent.events(2))[1], button(Button.left, false));
});

test('a notch of the wheel is sent as 120, or as −120 towards the user', async (t) => {
  const { agent, page, mouse } = await inputSession(t);
  const { x, y, event } = await aim(page, 50, 60);
  await mouse.move(x, y);
  await agent.events(1);
  await mouse.wheel(0, 100);
  assert.deepEqual(await agent.events(2), [event, wheel(-120)]);
  await mouse.wheel(0, -300);
  assert.deepEqual(await agent.events(2), [event, wheel(360)]);
});

test('letters are sent as characters, and everything else as keys', async (t) => {
  const { agent, page, keyboard } = await inputSession(t);
  await keyboard.press('a');
  await keyboard.press('Shift+A');
  await keyboard.insertText('ð😀');
  await keyboard.press('Enter');
  await keyboard.press('ArrowLeft');
  assert.deepEqual(await allUntilMark(agent, keyboard), [
    ...unicode('a'),
    key(keyNamed('ShiftLeft'), true),
    ...unicode('A'),
    key(keyNamed('ShiftLeft'), false),
    ...unicode('ð😀'),
    ...pressed('Enter'),
    ...pressed('ArrowLeft'),
  ]);
  assert.equal(await page.page.inputValue('#key-input'), '', 'the field stays empty');
});

test('a shortcut is sent as keys and does nothing in the browser', async (t) => {
  const { agent, page, keyboard } = await inputSession(t);
  await keyboard.press('Control+s');
  await keyboard.press('F5');
  assert.deepEqual(await allUntilMark(agent, keyboard), [
    key(keyNamed('ControlLeft'), true),
    ...pressed('KeyS'),
    key(keyNamed('ControlLeft'), false),
    ...pressed('F5'),
  ]);
  assert.ok(await page.page.locator('#view-session').isVisible());
});

test('in position mode, letters are sent as keys', async (t) => {
  const { agent, page, keyboard } = await inputSession(t);
  await page.page.click('#keys-menu summary');
  await page.page.selectOption('#key-mode', 'position');
  await page.page.evaluate(() => document.getElementById('key-input')?.focus());
  await keyboard.press('a');
  assert.deepEqual(await agent.events(2), pressed('KeyA'));
});

test('a key that is down when the focus is lost is released', async (t) => {
  const { agent, page, keyboard } = await inputSession(t);
  await keyboard.down('ArrowDown');
  assert.deepEqual(await agent.events(1), [key(keyNamed('ArrowDown'), true)]);
  await page.page.evaluate(() => /** @type {HTMLElement} */ (document.activeElement).blur());
  assert.deepEqual(await agent.events(1), [key(keyNamed('ArrowDown'), false)]);
});

test('“view only” releases all keys and sends nothing until it is switched off', async (t) => {
  const { agent, page, mouse, keyboard } = await inputSession(t);
  const { x, y } = await aim(page, 10, 10);
  await mouse.move(x, y);
  await agent.events(1);
  await keyboard.down('F2');
  await agent.events(1);
  await page.page.evaluate(() => document.getElementById('view-only')?.click());
  assert.deepEqual(await agent.events(1), [key(keyNamed('F2'), false)]);
  await mouse.click(x + 50, y + 50);
  await mouse.wheel(0, 100);
  await keyboard.type('abc');
  await page.shot('view-only');
  await page.page.uncheck('#view-only');
  await page.page.evaluate(() => document.getElementById('key-input')?.focus());
  assert.deepEqual(
    (await allUntilMark(agent, keyboard)).filter(([type]) => type !== 1),
    [],
  );
});

test('key combinations that a browser does not pass to the page can be sent from the menu', async (t) => {
  const { agent, page } = await inputSession(t);
  const from = async (/** @type {string} */ name) => {
    await page.page.click('#keys-menu summary');
    if (name === 'alt-tab') await page.shot('keys-menu');
    await page.page.click(`[data-combination=${name}]`);
    assert.ok(!(await page.page.locator('#keys-menu .panel').isVisible()), 'the menu closes');
  };
  await from('alt-tab');
  const alt = keyNamed('AltLeft');
  assert.deepEqual(await agent.events(4), [key(alt, true), ...pressed('Tab'), key(alt, false)]);
  await from('windows');
  assert.deepEqual(await agent.events(2), pressed('MetaLeft'));
  await page.page.click('#machine-menu summary');
  await page.shot('machine-menu');
  await page.page.click('#attention');
  assert.equal((await agent.next(AgentMsg.SecureAttention)).payload.length, 0);
  assert.equal(agent.inputs.length, 0);
});

test('a whole text is typed on the machine, with its line ends as Enter', async (t) => {
  const { agent, page } = await inputSession(t);
  const text = 'Ahoy, þú!\nSecond line';
  await page.page.click('#keys-menu summary');
  await page.page.click('#type-text');
  await page.page.fill('#type-box', text);
  await page.shot('type-text');
  await page.page.click('#type-dialog button[value=type]');
  const wanted = [...text].flatMap((one) => (one === '\n' ? pressed('Enter') : unicode(one)));
  assert.deepEqual(await agent.events(wanted.length), wanted);
  await page.page.click('#keys-menu summary');
  await page.page.click('#type-text');
  assert.equal(await page.page.inputValue('#type-box'), '', 'the text is not kept');
});

test('held keys and buttons are released before a session ends', async (t) => {
  const { agent, page, mouse, keyboard } = await inputSession(t);
  const { x, y } = await aim(page, 10, 10);
  await mouse.move(x, y);
  await agent.events(1);
  await mouse.down();
  await keyboard.down('Shift');
  await agent.events(3);
  await page.page.evaluate(() => document.getElementById('session-end')?.click());
  const [shift, , left] = await agent.events(3);
  assert.deepEqual([shift, left], [key(keyNamed('ShiftLeft'), false), button(Button.left, false)]);
  await agent.next(AgentMsg.SessionEnd);
});
