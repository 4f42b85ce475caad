// The choice "Slow line": what the stream asks for, for which machine, and that it never becomes JPEG by itself.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, machineAndPage, openSession } from '../support/fixture.mjs';
import { card, encode } from '../support/h264.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
const SIZE = { width: 320, height: 240 };
const USUAL = { max_fps: 15, bitrate: 340_000 };
const SLOW = { max_fps: 2, bitrate: 128_000 };

/** @typedef {import('../support/console_page.mjs').ConsolePage} ConsolePage */
/** @typedef {import('../support/scripted_agent.mjs').ScriptedAgent} ScriptedAgent */

/** What the next start of a stream asks for. */
async function nextStart(/** @type {ScriptedAgent} */ agent) {
  const { max_fps, bitrate } = (await agent.next(AgentMsg.StreamStart)).json;
  return { max_fps, bitrate };
}

async function setSlowLine(/** @type {ConsolePage} */ { page }, /** @type {boolean} */ on) {
  await page.click('#picture-menu summary');
  await page.setChecked('#slow-line', on);
  await page.click('#picture-menu summary');
}

/** An H.264 picture that no decoder can play. */
function brokenPicture() {
  const [unit] = encode([card(320, 240)], SIZE);
  const slice = unit.indexOf(Buffer.from([0, 0, 1, 0x65]));
  return Buffer.concat([unit.subarray(0, slice), Buffer.from([0, 0, 1, 0x65, 0xff, 0, 0xff])]);
}

const asksForJpeg = (/** @type {ScriptedAgent} */ { inbox }) =>
  inbox.some(({ type, json }) => type === AgentMsg.CodecSelect && json.codec === 'mjpeg');

test('a slow line starts the stream with few frames and a low bit rate, for this machine only', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const other = await machineAndPage(t, shared);
  await other.page.close();
  assert.deepEqual(await nextStart(agent), USUAL);
  await setSlowLine(page, true);
  assert.deepEqual(await nextStart(agent), SLOW);
  assert.ok(await page.page.locator('#quality').isDisabled());
  for (const [machine, wanted] of /** @type {const} */ ([
    [other.agent, USUAL],
    [agent, SLOW],
  ])) {
    await page.page.click('#session-end');
    await page.badge(machine, 'online').waitFor();
    await page.ask(machine);
    assert.deepEqual(await nextStart(machine), wanted);
  }
  await setSlowLine(page, false);
  assert.deepEqual(await nextStart(agent), USUAL);
});

test('on a slow line, H.264 that cannot be played does not become JPEG by itself', async (t) => {
  const { agent, page } = await machineAndPage(t, shared);
  const { page: tab } = page;
  agent.onStream = () => agent.config({ codec: 'h264', ...SIZE });
  await page.ask(agent);
  await agent.next(AgentMsg.StreamStart);
  await setSlowLine(page, true);
  await agent.next(AgentMsg.StreamStart);
  const broken = brokenPicture();
  const strip = tab.locator('.strip[data-strip=codec]');
  await until('the page says that the pictures cannot be played', () => {
    agent.frame(broken);
    return strip.isVisible();
  });
  assert.match(await strip.innerText(), /do not change to JPEG by themselves/);
  await page.shot('slow-line');
  assert.ok(!asksForJpeg(agent));
  // The same failure after another attempt is reported again.
  await strip.getByRole('button', { name: 'Try H.264 again' }).click();
  assert.equal(await strip.count(), 0);
  await until('the failure is reported again', () => {
    agent.frame(broken);
    return strip.isVisible();
  });
  assert.ok(!asksForJpeg(agent));
  await strip.getByRole('button', { name: 'Use JPEG' }).click();
  await until('JPEG is requested', () => asksForJpeg(agent));
  assert.equal(await strip.count(), 0);
});

test('on a usual line, the page says that the pictures have changed to JPEG', async (t) => {
  const { agent, page } = await machineAndPage(t, shared);
  agent.onStream = () => agent.config({ codec: 'h264', ...SIZE });
  await page.ask(agent);
  await agent.next(AgentMsg.StreamStart);
  const broken = brokenPicture();
  await until('JPEG is requested', () => {
    agent.frame(broken);
    return asksForJpeg(agent);
  });
  await page.page
    .locator('.strip[data-strip=codec]')
    .getByText(/they now come as JPEG/)
    .waitFor();
});

test('a browser without H.264 asks for no JPEG on a slow line before the representative does', async (t) => {
  const script = 'delete window.VideoDecoder';
  const { agent, page } = await openSession(t, shared, { page: { script } });
  await until('JPEG is requested', () => asksForJpeg(agent));
  await agent.next(AgentMsg.ThumbnailRequest);
  agent.inbox.length = 0;
  await setSlowLine(page, true);
  await agent.next(AgentMsg.StreamStart);
  const strip = page.page.locator('.strip[data-strip=codec]');
  await strip.waitFor();
  assert.equal(await strip.getByRole('button', { name: 'Try H.264 again' }).count(), 0);
  await page.page.click('#picture-menu summary');
  await page.page.click('#monitor-refresh');
  await agent.next(AgentMsg.ThumbnailRequest);
  assert.ok(!asksForJpeg(agent));
});
