// Fingers on the picture: which gestures become clicks, drags and turns of the wheel on the machine, and which move
// the picture.
import assert from 'node:assert/strict';
import test from 'node:test';
import { Button, button, move, unicode } from '../../../console/input/events.js';
import { toWire } from '../../../console/input/geometry.js';
import { BROWSER } from '../support/console_page.mjs';
import { fixture, openSession } from '../support/fixture.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {{x: number, y: number}} Point */
/** @typedef {import('../support/console_page.mjs').ConsolePage} ConsolePage */

const shared = fixture();
const SIZE = { width: 1280, height: 720 };
const PHONE = { viewport: { width: 390, height: 780 }, deviceScaleFactor: 2 };

/**
 * A session on a phone. `touch` performs a gesture: each entry is an event, a finger and a point of the page.
 * @param {import('node:test').TestContext} t
 */
async function phone(t) {
  const { agent, page } = await openSession(t, shared, { ...SIZE, page: PHONE });
  await agent.next(AgentMsg.ThumbnailRequest);
  const touch = (/** @type {['down' | 'move' | 'up' | 'cancel', number, Point][]} */ ...events) =>
    page.canvas.evaluate((canvas, list) => {
      for (const [name, pointerId, { x, y }] of list) {
        const place = { clientX: x, clientY: y, pointerId, pointerType: 'touch', isPrimary: pointerId === 1 };
        const options = { ...place, bubbles: true, cancelable: true, button: name === 'move' ? -1 : 0 };
        canvas.dispatchEvent(new PointerEvent(`pointer${name}`, options));
      }
    }, events);
  return { agent, page, touch };
}

/** The canvas's rectangle and the move to the pixel that is shown at a point of the page. */
async function shown(/** @type {ConsolePage} */ page, /** @type {Point} */ at) {
  const rect = await page.canvas.evaluate((canvas) => {
    const { left, top, width, height } = canvas.getBoundingClientRect();
    return { left, top, width, height };
  });
  const wire = toWire(at, rect, SIZE);
  return { rect, event: move(wire.x, wire.y) };
}

/** Events without the moves that are merged or left out depending on the time. */
const acts = (/** @type {number[][]} */ events) => events.filter(([type]) => type !== 1);

/** All events up to now, in their order: those before a key that is pressed after the gesture. */
async function eventsSoFar(
  /** @type {ConsolePage} */ { page },
  /** @type {import('../support/scripted_agent.mjs').ScriptedAgent} */ agent,
) {
  await page.locator('#key-input').focus();
  await page.keyboard.press('q');
  const [, last] = unicode('q').map(String);
  await until('the key', () => agent.inputs.some((event) => String(event) === last));
  return agent.inputs.splice(0).slice(0, -2);
}

/** The middle of the picture. */
async function middle(/** @type {ConsolePage} */ page) {
  const { x, y, width, height } = await page.canvasBox();
  return { x: Math.round(x + width / 2), y: Math.round(y + height / 2) };
}

test('a tap clicks, and a second tap beside it becomes a double click at the same place', async (t) => {
  const { agent, page, touch } = await phone(t);
  const at = await middle(page);
  const near = { x: at.x + 9, y: at.y - 7 };
  await touch(
    ['down', 1, at],
    ['up', 1, at],
    ['down', 1, near],
    ['move', 1, { x: near.x + 2, y: near.y }],
    ['up', 1, near],
  );
  const { event } = await shown(page, at);
  const click = [event, button(Button.left, true), event, button(Button.left, false)];
  assert.deepEqual(await agent.events(9), [event, ...click, ...click]);
  const keyInput = page.page.locator('#key-input');
  assert.ok(await keyInput.evaluate((field) => field === document.activeElement));
  assert.equal(await keyInput.getAttribute('inputmode'), 'none', 'no on-screen keyboard covers the picture');
});

test('a long press clicks with the right button, also when the finger moves before it is lifted', async (t) => {
  const { agent, page, touch } = await phone(t);
  const at = await middle(page);
  await touch(['down', 1, at]);
  const { event } = await shown(page, at);
  await until('the click', () => acts(agent.inputs).length === 2);
  await touch(['move', 1, { x: at.x + 60, y: at.y }], ['up', 1, { x: at.x + 60, y: at.y }]);
  const events = await eventsSoFar(page, agent);
  assert.deepEqual(acts(events), [button(Button.right, true), button(Button.right, false)]);
  assert.deepEqual(events[0], event);
});

test('one finger drags with the left button, which a second finger or a cancelled touch releases', async (t) => {
  const { agent, page, touch } = await phone(t);
  const at = await middle(page);
  const to = { x: at.x + 50, y: at.y + 20 };
  await touch(['down', 1, at], ['move', 1, { x: at.x + 20, y: at.y }], ['move', 1, to], ['up', 1, to]);
  const start = (await shown(page, at)).event;
  const end = (await shown(page, to)).event;
  assert.deepEqual(await agent.events(5), [
    start,
    start,
    button(Button.left, true),
    end,
    button(Button.left, false),
  ]);
  for (const ending of /** @type {const} */ (['down', 'cancel'])) {
    await touch(['down', 1, at], ['move', 1, to]);
    await touch(ending === 'down' ? ['down', 2, at] : ['cancel', 1, to], ['up', 2, at], ['up', 1, to]);
    const events = await eventsSoFar(page, agent);
    assert.deepEqual(acts(events), [button(Button.left, true), button(Button.left, false)]);
    assert.deepEqual(events.at(-2), end, 'the button is released where the first finger is');
  }
});

test('two fingers turn the wheel while the picture fits its area', async (t) => {
  const { agent, page, touch } = await phone(t);
  const { x, y } = await middle(page);
  const both = (/** @type {'down' | 'move' | 'up'} */ name, /** @type {number} */ dy) =>
    touch([name, 1, { x: x - 30, y: y + dy }], [name, 2, { x: x + 30, y: y + dy }]);
  await both('down', 0);
  for (let dy = 4; dy <= 92; dy += 4) await both('move', dy);
  await both('up', 92);
  const turns = acts(await eventsSoFar(page, agent));
  assert.ok(turns.every(([type]) => type === 3));
  const total = turns.reduce((sum, event) => sum + new Int16Array([event[1] | (event[2] << 8)])[0], 0);
  assert.ok(total > 200 && total < 280, `two notches away from the user: ${total}`);
});

test('spreading two fingers zooms, moving them moves the picture, and a tap hits the pixel under it', async (t) => {
  const { agent, page, touch } = await phone(t);
  const fitted = await page.canvasBox();
  const { x, y } = await middle(page);
  const two = (/** @type {'down' | 'move' | 'up'} */ name, /** @type {number} */ half, dx = 0, dy = 0) =>
    touch([name, 1, { x: x - half + dx, y: y + dy }], [name, 2, { x: x + half + dx, y: y + dy }]);
  const spread = async (/** @type {number} */ from, /** @type {number} */ to) => {
    await two('down', from);
    for (let i = 1; i <= 20; i++) await two('move', from + ((to - from) * i) / 20);
    await two('up', to);
  };
  await spread(20, 160);
  const zoomed = await page.canvasBox();
  assert.ok(zoomed.width > 2.5 * fitted.width, `${zoomed.width} from ${fitted.width}`);
  assert.ok(Math.abs(zoomed.x + zoomed.width / 2 - x) < 3, 'the place between the fingers stays there');
  await two('down', 40);
  for (let i = 1; i <= 10; i++) await two('move', 40, 8 * i, 0);
  await two('up', 40, 80, 0);
  const moved = await page.canvasBox();
  assert.ok(Math.abs(moved.x - zoomed.x - 64) < 20, `moved by ${moved.x - zoomed.x}`);
  assert.equal(Math.round(moved.width), Math.round(zoomed.width));
  assert.deepEqual(acts(await eventsSoFar(page, agent)), [], 'nothing is done on the machine');
  await page.shot('phone-zoomed');
  await touch(['down', 1, { x, y }], ['up', 1, { x, y }]);
  const { event } = await shown(page, { x, y });
  await until('the click', () => acts(agent.inputs).length === 2);
  assert.deepEqual(agent.inputs.at(-2), event);
  await spread(10, 180);
  const largest = await page.canvasBox();
  assert.ok(Math.abs(largest.width / fitted.width - 4) < 0.05, 'four times the fitted size at most');
  for (let i = 0; i < 2; i++) await spread(180, 10);
  const again = await page.canvasBox();
  assert.deepEqual([again.width, again.height], [fitted.width, fitted.height], 'the fitted size at least');
});

test('at actual size two fingers move the picture and keep its size', async (t) => {
  const { agent, page, touch } = await phone(t);
  await page.page.evaluate(() => document.getElementById('actual-size')?.click());
  const before = await page.canvasBox();
  assert.equal(before.width, SIZE.width / PHONE.deviceScaleFactor);
  const at = { x: 200, y: Math.round(before.y + before.height / 2) };
  for (let i = 0; i <= 10; i++) {
    const points = /** @type {Point[]} */ ([
      { x: at.x - 8 * i, y: at.y },
      { x: at.x + 70 - 8 * i, y: at.y },
    ]);
    const name = i ? 'move' : 'down';
    await touch([name, 1, points[0]], [name, 2, points[1]]);
    if (i === 10) await touch(['up', 1, points[0]], ['up', 2, points[1]]);
  }
  const after = await page.canvasBox();
  assert.ok(before.x - after.x > 50, `moved by ${after.x - before.x}`);
  assert.equal(after.width, before.width);
  assert.deepEqual(acts(await eventsSoFar(page, agent)), []);
});

test('real touches neither scroll nor zoom the page', async (t) => {
  if (BROWSER === 'firefox') {
    t.skip('WebDriver BiDi in Firefox has no emulation of a touch screen');
    return;
  }
  const { agent, page } = await openSession(t, shared, { ...SIZE, page: { ...PHONE, hasTouch: true } });
  const at = await middle(page);
  const devtools = await page.page.context().newCDPSession(page.page);
  const send = (
    /** @type {'touchStart' | 'touchMove' | 'touchEnd'} */ type,
    /** @type {number[]} */ ...dx
  ) => {
    const touchPoints = dx.map((offset, id) => ({ x: at.x + offset, y: at.y, id }));
    return devtools.send('Input.dispatchTouchEvent', { type, touchPoints });
  };
  await page.page.touchscreen.tap(at.x, at.y);
  await until('the click', () => acts(agent.inputs).length === 2);
  const fitted = await page.canvasBox();
  await send('touchStart', -20, 20);
  for (let half = 30; half <= 150; half += 10) await send('touchMove', -half, half);
  await send('touchEnd');
  await until('the zoom', async () => (await page.canvasBox()).width > 2 * fitted.width);
  const { scale, offsetTop, scrollTop } = await page.page.evaluate(() => ({
    scale: visualViewport?.scale,
    offsetTop: visualViewport?.offsetTop,
    scrollTop: document.scrollingElement?.scrollTop,
  }));
  assert.deepEqual([scale, offsetTop, scrollTop], [1, 0, 0]);
});
