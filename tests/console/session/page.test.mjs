// The session's page: the stage, the monitors, the panels and the status line.

import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, openSession } from '../support/fixture.mjs';
import { desktop, plain } from '../support/pictures.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

test('the picture keeps its aspect ratio in the window, and can be shown at its own size', async (t) => {
  const { page } = await openSession(t, shared, { width: 400, height: 400 });
  const drawn = () => page.canvas.evaluate((canvas) => [canvas.clientWidth, canvas.clientHeight]);
  const [width, height] = await drawn();
  assert.equal(width, height);
  assert.ok(width > 600, `it fills the stage: ${width}`);
  await page.page.click('#picture-menu summary');
  await page.page.check('#actual-size');
  assert.deepEqual(await drawn(), [400, 400]);
  await page.page.uncheck('#actual-size');
  await page.page.setViewportSize({ width: 500, height: 900 });
  await until('it fits the narrow window', async () => (await drawn())[0] <= 500);
});

test('each display is shown with its thumbnail and can be selected', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const buttons = page.page.locator('#monitor-picker .monitor');
  agent.thumbnail({ monitor: 0, count: 3, width: 64, height: 36, jpeg: desktop(64, 36) });
  agent.thumbnail({ monitor: 2, count: 3, width: 64, height: 36, jpeg: plain(64, 36, '#804000') });
  await until('three displays are shown', async () => (await buttons.count()) === 3);
  const sizes = () =>
    page.page.$$eval('#monitor-picker img', (images) =>
      images.map((image) => /** @type {HTMLImageElement} */ (image).naturalWidth),
    );
  await until('two pictures', async () => JSON.stringify(await sizes()) === '[64,64]');
  assert.equal(await buttons.nth(0).getAttribute('aria-pressed'), 'true');
  await page.shot('displays');
  await buttons.nth(2).click();
  assert.deepEqual((await agent.next(AgentMsg.MonitorSelect)).json, { monitor_id: 2 });
  assert.equal(await buttons.nth(2).getAttribute('aria-pressed'), 'true');
  // A stream that is started again stays on the selected display.
  await page.page.click('#picture-menu summary');
  await page.page.click('#picture-restart');
  await agent.next(AgentMsg.StreamStart);
  assert.equal((await agent.next(AgentMsg.StreamStart)).json.monitor_id, 2);
});

test('thumbnail messages without a picture change nothing', async (t) => {
  const { agent, page } = await openSession(t, shared);
  for (let length = 0; length <= 6; length++)
    agent.send(AgentMsg.Thumbnail, agent.session, new Uint8Array(length));
  agent.thumbnail({ monitor: 0, count: 1, width: 64, height: 36, jpeg: Uint8Array.of(1, 2, 3) });
  agent.thumbnail({ monitor: 1, count: 2, width: 64, height: 36, jpeg: desktop(64, 36) });
  await until(
    'two displays',
    async () => (await page.page.locator('#monitor-picker .monitor').count()) === 2,
  );
});

test('the status line shows size, codec, rates and round trip', async (t) => {
  const { agent, page } = await openSession(t, shared, { width: 640, height: 360 });
  const jpeg = plain(640, 360, '#406080');
  const stop = setInterval(() => agent.frame(jpeg), 50);
  t.after(() => clearInterval(stop));
  const line = page.page.locator('#status-line');
  await until('the line is complete', async () => {
    const found = /^640 × 360 · JPEG · (\d+) frames\/s · (\d+) kB\/s · (\d+) ms round trip · [^·]+$/.exec(
      await line.innerText(),
    );
    return found && Number(found[1]) >= 4 && Number(found[2]) >= 1 && Number(found[3]) < 5000;
  });
  clearInterval(stop);
  await until('the rates of a still screen are zero', async () =>
    / · 0 frames\/s · 0 kB\/s/.test(await line.innerText()),
  );
});

test('at most one panel is open beside the picture', async (t) => {
  const { page } = await openSession(t, shared);
  await page.page.evaluate(async (module) => {
    const { Panels } = await import(module);
    const [place, buttons] = [document.getElementById('panels'), document.getElementById('panel-buttons')];
    const panels = new Panels(place, buttons);
    for (const name of ['one', 'two'])
      panels.add({ name, title: `Panel ${name}` }).body.textContent = `This is ${name}.`;
  }, '/session/panels.js');
  const width = () => page.canvas.evaluate((canvas) => canvas.clientWidth);
  const before = await width();
  await page.page.click('#panel-one-button');
  await page.page.getByText('This is one.').waitFor();
  await until('the picture is narrower', async () => (await width()) < before);
  await page.shot('panel');
  await page.page.click('#panel-two-button');
  assert.ok(await page.page.getByText('This is one.').isHidden());
  await page.page.click('#panel-two header button');
  assert.ok(await page.page.locator('#panels').isHidden());
  await until('the picture is as wide as before', async () => (await width()) === before);
});
