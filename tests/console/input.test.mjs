// The representative's hands: the exact events that reach the machine.
import assert from 'node:assert/strict';
import test from 'node:test';
import { Button, button, key, move, unicode, wheel } from '../../console/input/events.js';
import { toWire } from '../../console/input/geometry.js';
import { keyNamed } from '../../console/input/keymap.js';
import { fixture, session } from './support/fixture.mjs';
import { AgentMsg } from './support/scripted_agent.mjs';
import { until } from './support/waiting.mjs';

const shared = fixture();
const WIDTH = 640;
const HEIGHT = 360;

/** A session whose key catcher has the focus, and with nothing sent yet. */
async function working(t) {
  const { agent, page } = await session(t, shared, { width: WIDTH, height: HEIGHT });
  await agent.next(AgentMsg.ThumbnailRequest);
  await until('the keys go to the machine', () =>
    page.page.evaluate(() => document.activeElement?.id === 'key-catcher'),
  );
  return { agent, page, mouse: page.page.mouse, keyboard: page.page.keyboard };
}

/** The point of the page under which a pixel of the machine is shown, and the move that aims at it. */
async function aim(page, x, y) {
  const box = await page.canvas.boundingBox();
  const at = { x: box.x + ((x + 0.5) * box.width) / WIDTH, y: box.y + ((y + 0.5) * box.height) / HEIGHT };
  const wire = toWire(
    at,
    { left: box.x, top: box.y, width: box.width, height: box.height },
    { width: WIDTH, height: HEIGHT },
  );
  return { ...at, event: move(wire.x, wire.y) };
}

const tapped = (code) => [key(keyNamed(code), true), key(keyNamed(code), false)];

/** What has arrived once a mark, typed last, is there too. */
async function allUntilMark(agent, keyboard, mark = 'Ω') {
  await keyboard.insertText(mark);
  const last = unicode(mark).at(-1);
  await until('the mark arrives', () => agent.inputs.some((event) => String(event) === String(last)));
  return agent.inputs.splice(0).slice(0, -2);
}

test('a click is a move, a press and a release at the pixel that is shown', async (t) => {
  const { agent, page, mouse } = await working(t);
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

test('each mouse button is its own, and the page’s own menu stays away', async (t) => {
  const { agent, page, mouse } = await working(t);
  const { x, y } = await aim(page, 100, 100);
  await mouse.move(x, y);
  await agent.events(1);
  for (const [name, which] of [
    ['right', Button.right],
    ['middle', Button.middle],
  ]) {
    await mouse.down({ button: name });
    await mouse.up({ button: name });
    const events = await agent.events(4);
    assert.deepEqual([events[1], events[3]], [button(which, true), button(which, false)]);
  }
});

test('a drag that leaves the picture is held at its edge and still ends', async (t) => {
  const { agent, page, mouse } = await working(t);
  const inside = await aim(page, 600, 300);
  await mouse.move(inside.x, inside.y);
  await agent.events(1);
  await mouse.down();
  await agent.events(2);
  const box = await page.canvas.boundingBox();
  await mouse.move(box.x + box.width / 2, box.y + box.height + 200);
  const [outside] = await agent.events(1);
  assert.deepEqual(outside.slice(3), [0xff, 0x7f], 'the last row');
  await mouse.up();
  assert.deepEqual((await agent.events(2))[1], button(Button.left, false));
});

test('the wheel turns 120 a notch, towards the user negative', async (t) => {
  const { agent, page, mouse } = await working(t);
  const { x, y, event } = await aim(page, 50, 60);
  await mouse.move(x, y);
  await agent.events(1);
  await mouse.wheel(0, 100);
  assert.deepEqual(await agent.events(2), [event, wheel(-120)]);
  await mouse.wheel(0, -300);
  assert.deepEqual(await agent.events(2), [event, wheel(360)]);
});

test('letters go as characters, and everything else as keys', async (t) => {
  const { agent, page, keyboard } = await working(t);
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
    ...tapped('Enter'),
    ...tapped('ArrowLeft'),
  ]);
  assert.equal(await page.page.inputValue('#key-catcher'), '', 'nothing piles up in the page');
});

test('a shortcut goes as keys and does nothing in the browser', async (t) => {
  const { agent, page, keyboard } = await working(t);
  await keyboard.press('Control+s');
  await keyboard.press('F5');
  assert.deepEqual(await allUntilMark(agent, keyboard), [
    key(keyNamed('ControlLeft'), true),
    ...tapped('KeyS'),
    key(keyNamed('ControlLeft'), false),
    ...tapped('F5'),
  ]);
  assert.ok(await page.page.locator('#view-session').isVisible());
});

test('by position, letters go as keys', async (t) => {
  const { agent, page, keyboard } = await working(t);
  await page.page.click('#keys-menu summary');
  await page.page.selectOption('#key-mode', 'position');
  await page.page.evaluate(() => document.getElementById('key-catcher').focus());
  await keyboard.press('a');
  assert.deepEqual(await agent.events(2), tapped('KeyA'));
});

test('a key that is down when the window loses the focus is let go', async (t) => {
  const { agent, page, keyboard } = await working(t);
  await keyboard.down('ArrowDown');
  assert.deepEqual(await agent.events(1), [key(keyNamed('ArrowDown'), true)]);
  await page.page.evaluate(() => document.activeElement.blur());
  assert.deepEqual(await agent.events(1), [key(keyNamed('ArrowDown'), false)]);
});

test('view only lets go of what is down and then sends nothing, until it is switched off', async (t) => {
  const { agent, page, mouse, keyboard } = await working(t);
  const { x, y } = await aim(page, 10, 10);
  await mouse.move(x, y);
  await agent.events(1);
  await keyboard.down('F2');
  await agent.events(1);
  await page.page.evaluate(() => document.getElementById('view-only').click());
  assert.deepEqual(await agent.events(1), [key(keyNamed('F2'), false)]);
  await mouse.click(x + 50, y + 50);
  await mouse.wheel(0, 100);
  await keyboard.type('abc');
  await page.shot('view-only');
  await page.page.uncheck('#view-only');
  await page.page.evaluate(() => document.getElementById('key-catcher').focus());
  assert.deepEqual(
    (await allUntilMark(agent, keyboard)).filter(([type]) => type !== 1),
    [],
  );
});

test('keys that a browser keeps for itself are sent from the menu', async (t) => {
  const { agent, page } = await working(t);
  const from = async (/** @type {string} */ name) => {
    await page.page.click('#keys-menu summary');
    if (name === 'alt-tab') await page.shot('keys-menu');
    await page.page.click(`[data-combination=${name}]`);
    assert.ok(!(await page.page.locator('#keys-menu .panel').isVisible()), 'the menu closes');
  };
  await from('alt-tab');
  const alt = keyNamed('AltLeft');
  assert.deepEqual(await agent.events(4), [key(alt, true), ...tapped('Tab'), key(alt, false)]);
  await from('windows');
  assert.deepEqual(await agent.events(2), tapped('MetaLeft'));
  await page.page.click('#machine-menu summary');
  await page.shot('machine-menu');
  await page.page.click('#attention');
  assert.equal((await agent.next(AgentMsg.SecureAttention)).payload.length, 0);
  assert.equal(agent.inputs.length, 0);
});

test('a whole text is typed in paced batches, with its line ends as Enter', async (t) => {
  const { agent, page } = await working(t);
  const text = 'Ahoy, þú!\nSecond line';
  await page.page.click('#keys-menu summary');
  await page.page.click('#type-text');
  await page.page.fill('#type-box', text);
  await page.shot('type-text');
  await page.page.click('#type-dialog button[value=type]');
  const wanted = [...text].flatMap((one) => (one === '\n' ? tapped('Enter') : unicode(one)));
  assert.deepEqual(await agent.events(wanted.length), wanted);
  await page.page.click('#keys-menu summary');
  await page.page.click('#type-text');
  assert.equal(await page.page.inputValue('#type-box'), '', 'a text is not kept');
});

test('what is held is let go before a session ends', async (t) => {
  const { agent, page, mouse, keyboard } = await working(t);
  const { x, y } = await aim(page, 10, 10);
  await mouse.move(x, y);
  await agent.events(1);
  await mouse.down();
  await keyboard.down('Shift');
  await agent.events(3);
  await page.page.evaluate(() => document.getElementById('session-end').click());
  const [shift, , left] = await agent.events(3);
  assert.deepEqual([shift, left], [key(keyNamed('ShiftLeft'), false), button(Button.left, false)]);
  await agent.next(AgentMsg.SessionEnd);
});
