// "View only", and which of the two pointers is visible.
import assert from 'node:assert/strict';
import test from 'node:test';
import { unicode } from '../../../console/input/events.js';
import { fixture, openSession } from '../support/fixture.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
const CONTROLS = ['#attention', '#restart', '#type-text', '#clip-send', '[data-combination=lock]'];

test('“view only” shows a badge, disables what acts on the machine, and answers clicks and typing', async (t) => {
  const { agent, page } = await openSession(t, shared);
  await agent.next(AgentMsg.ThumbnailRequest);
  const p = page.page;
  const badge = p.locator('#view-only-badge');
  const disabled = () =>
    p.evaluate((list) => list.map((one) => document.querySelector(one)?.matches(':disabled')), CONTROLS);
  assert.ok(await badge.isHidden());
  assert.deepEqual(new Set(await disabled()), new Set([false]));
  await p.click('.toggle');
  assert.equal(await badge.innerText(), 'View only');
  assert.deepEqual(new Set(await disabled()), new Set([true]));
  await page.shot('view-only');
  agent.inputs.length = 0;
  const says = (/** @type {RegExp} */ pattern) =>
    until(`the badge says ${pattern}`, async () => pattern.test(await badge.innerText()));
  await page.canvas.click();
  await says(/mouse and keyboard do not reach/);
  await page.shot('view-only-remark');
  await says(/^View only$/);
  await p.keyboard.press('Shift');
  assert.equal(await badge.innerText(), 'View only', 'a modifier alone types nothing');
  await p.keyboard.press('x');
  await says(/mouse and keyboard do not reach/);
  await p.click('.toggle');
  assert.ok(await badge.isHidden());
  assert.deepEqual(new Set(await disabled()), new Set([false]));
  await p.keyboard.press('y');
  assert.deepEqual(await agent.events(2), unicode('y'), 'nothing arrived before');
});

test('a new session begins without “view only”', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const p = page.page;
  await p.click('.toggle');
  await p.click('#session-end');
  await agent.next(AgentMsg.SessionEnd);
  await page.ask(agent);
  await page.frames(1);
  assert.ok(!(await p.isChecked('#view-only')));
  assert.ok(await p.locator('#view-only-badge').isHidden());
  assert.ok(await p.locator('#attention').isEnabled());
});

test('the browser’s pointer is hidden exactly while the machine paints its own', async (t) => {
  const { page } = await openSession(t, shared);
  const p = page.page;
  const cursor = () => page.canvas.evaluate((canvas) => getComputedStyle(canvas).cursor);
  const click = (/** @type {string} */ id) => p.evaluate((one) => document.getElementById(one)?.click(), id);
  await page.waitForNoNote();
  assert.equal(await cursor(), 'none');
  await click('show-pointer');
  assert.notEqual(await cursor(), 'none');
  await click('show-pointer');
  await click('view-only');
  assert.notEqual(await cursor(), 'none');
  await click('view-only');
  assert.equal(await cursor(), 'none');
  await p.evaluate(() => document.getElementById('stage')?.classList.add('covered'));
  assert.notEqual(await cursor(), 'none', 'a message covers the picture');
});
