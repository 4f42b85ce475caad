// What the page says about the picture: its encoding, a late first picture, and a link that stands still.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, machineAndPage, openSession } from '../../support/fixture.mjs';
import { deliver, KEEP_SOCKETS, shortTimer } from '../../support/page_scripts.mjs';
import { desktop, plain } from '../../support/pictures.mjs';
import { AgentMsg } from '../../support/scripted_agent.mjs';
import { until } from '../../support/waiting.mjs';

const shared = fixture();
const SIZE = { width: 640, height: 360 };
const SHIFT = 0xa0;
/** The time after which a first picture is late. */
const LATE_MS = 5000;
/** The time without a report after which the page says no longer that keys are not sent. */
const DROPPED_MS = 5000;

/** @param {import('../../support/console_page.mjs').ConsolePage} page @param {RegExp} pattern */
const statusLine = (page, pattern) =>
  until(`a status line like ${pattern}`, async () => {
    const line = await page.page.locator('#status-line').innerText();
    if (!pattern.test(line)) throw new Error(line);
    return true;
  });

/**
 * A session in which the machine sends no picture, until the page says that the picture is late.
 * @param {import('node:test').TestContext} t
 * @param {(agent: import('../../support/scripted_agent.mjs').ScriptedAgent) => void} onStream
 */
async function latePicture(t, onStream) {
  const { agent, page } = await machineAndPage(t, shared, { page: { script: shortTimer(LATE_MS) } });
  agent.onStream = () => onStream(agent);
  await page.ask(agent);
  await agent.next(AgentMsg.StreamStart);
  return { agent, page };
}

test('the status line and the Picture menu show the encoding in use, and why it is not the chosen one', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const inUse = page.page.locator('#codec-in-use');
  await statusLine(page, /JPEG · .*the machine has no H\.264 encoder/);
  await page.page.click('#picture-menu summary');
  assert.match(await inUse.innerText(), /^In use: JPEG \(the machine has no H\.264 encoder/);
  await page.shot('codec-in-use');
  await page.page.selectOption('#codec', 'mjpeg');
  await agent.next(AgentMsg.CodecSelect);
  await until('no reason is left', async () => (await inUse.innerText()) === 'In use: JPEG');
  await page.page.selectOption('#codec', 'h264');
  await agent.next(AgentMsg.CodecSelect);
  agent.config({ codec: 'h264', ...SIZE });
  await until('H.264', async () => (await inUse.innerText()) === 'In use: H.264');
  await statusLine(page, /H\.264 · [^(]*round trip$/);
});

test('a first picture that is late is explained, and the page offers what may help', async (t) => {
  const { agent, page } = await latePicture(t, () => {});
  agent.thumbnail({ monitor: 1, count: 2, width: 64, height: 36, jpeg: desktop(64, 36) });
  await page.waitForNote(/^No picture has come from .*Ship/);
  await page.shot('picture-late');
  await page.page.click('#session-wake');
  const keys = await agent.events(2);
  assert.deepEqual(
    keys.map(([type, down, key]) => [type, down, key]),
    [
      [4, 1, SHIFT],
      [4, 0, SHIFT],
    ],
  );
  await page.waitForNote(/^No picture/);
  await page.page.click('#session-picture-restart');
  await agent.next(AgentMsg.StreamStart);
  await page.waitForNote(/^No picture/);
  await page.page.click('#session-next-display');
  assert.deepEqual((await agent.next(AgentMsg.MonitorSelect)).json, { monitor_id: 1 });
  agent.config({ ...SIZE, monitor: 1 });
  agent.frame(plain(640, 360, '#203040'));
  await page.waitForNoNote();
});

test('pictures that arrive but cannot be shown are explained, and JPEG is offered', async (t) => {
  const { agent, page } = await latePicture(t, (machine) => {
    machine.config({ codec: 'h264', ...SIZE });
    machine.frame(Uint8Array.of(0, 0, 1, 0x61, 0xff));
  });
  await page.waitForNote(/^Pictures come from .*Ship/);
  assert.ok(await page.page.locator('#session-next-display').isHidden(), 'there is one display');
  await page.page.click('#session-use-jpeg');
  assert.deepEqual((await agent.next(AgentMsg.CodecSelect)).json, { codec: 'mjpeg' });
});

test('the picture is grey while nothing is heard on the link, and at once clear again afterwards', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const { process: relay } = shared.relay;
  t.after(() => relay?.kill('SIGCONT'));
  const filter = () => page.canvas.evaluate((canvas) => getComputedStyle(canvas).filter);
  relay?.kill('SIGSTOP');
  const from = Date.now();
  await page.waitForNote(/^Nothing arrives on the link/);
  assert.ok(Date.now() - from > 500, 'a short silence is usual');
  await until('the picture is grey', async () => /grayscale/.test(await filter()));
  await page.shot('link-still');
  relay?.kill('SIGCONT');
  await page.waitForNoNote();
  await until('the picture is clear', async () => (await filter()) === 'none');
  agent.frame(plain(640, 360, '#203040'));
  await page.frames(2);
});

test('a strip says that keys are not sent while the relay drops them, and goes away afterwards', async (t) => {
  const script = `${KEEP_SOCKETS};${shortTimer(DROPPED_MS)}`;
  const { page } = await openSession(t, shared, { page: { script } });
  const strip = page.page.locator('[data-strip=dropped-input]');
  const report = { type: 'error', code: 'input-dropped', agent: 'x', message: 'x' };
  await until('the strip is shown', async () => {
    await deliver(page.page, report);
    return (await strip.allTextContents()).some((text) => text.includes('Keys and clicks are not sent.'));
  });
  await strip.waitFor({ state: 'detached' });
});
