// A session that runs: its picture, its displays, its settings, what holds it up, and its end.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, session } from './support/fixture.mjs';
import { desktop, plain } from './support/pictures.mjs';
import { AgentMsg } from './support/scripted_agent.mjs';
import { until } from './support/waiting.mjs';

const shared = fixture();
const RESTART_PATIENCE_MS = 90_000;
const START = { monitor_id: 0, max_fps: 15, bitrate: 6_000_000 };

const near = (seen, wanted, levels = 6) => seen.every((value, i) => Math.abs(value - wanted[i]) <= levels);

test('a session starts a stream, asks for the displays and shows the picture at its own size', async (t) => {
  const { agent, page } = await session(t, shared, { width: 800, height: 450 });
  assert.deepEqual((await agent.next(AgentMsg.StreamStart)).json, START);
  assert.deepEqual((await agent.next(AgentMsg.CursorVisibility)).json, { show: 1 });
  await agent.next(AgentMsg.ThumbnailRequest);
  assert.deepEqual(await page.canvas.evaluate((canvas) => [canvas.width, canvas.height]), [800, 450]);
  const [pixel] = await page.pixels([{ x: 400, y: 200 }]);
  assert.ok(near(pixel, [0x40, 0x60, 0x80]), `${pixel}`);
  assert.equal(await page.note(), '');
});

test('the picture keeps its shape in the window, and can be shown at its own size', async (t) => {
  const { page } = await session(t, shared, { width: 400, height: 400 });
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

test('broken and absurd pictures are passed over, and the last good one stays', async (t) => {
  const { agent, page } = await session(t, shared);
  const whole = plain(320, 200, '#ff0000');
  agent.frame(new Uint8Array(0));
  agent.frame(Uint8Array.of(0xff, 0xd8, 0xff));
  agent.frame(whole.subarray(0, 40));
  agent.frame(Uint8Array.of(0xff, 0xd8, 0xff, 0xc0, 0, 17, 8, 0xff, 0xff, 0xff, 0xff, 3, 1, 1, 1));
  agent.send(AgentMsg.StreamFrame, agent.session, new Uint8Array(3));
  agent.send(AgentMsg.StreamConfig, agent.session, new TextEncoder().encode('{"codec":'));
  agent.frame(plain(320, 200, '#00ff00'));
  await page.frames(2);
  const [pixel] = await page.pixels([{ x: 10, y: 10 }]);
  assert.ok(near(pixel, [0, 255, 0]), `${pixel}`);
});

test('the picker shows each display with its picture, and switches', async (t) => {
  const { agent, page } = await session(t, shared);
  const buttons = page.page.locator('#monitor-picker .monitor');
  agent.thumbnail({ monitor: 0, count: 3, width: 64, height: 36, jpeg: desktop(64, 36) });
  agent.thumbnail({ monitor: 2, count: 3, width: 64, height: 36, jpeg: plain(64, 36, '#804000') });
  await until('three displays are offered', async () => (await buttons.count()) === 3);
  const sizes = () =>
    page.page.$$eval('#monitor-picker img', (images) => images.map((image) => image.naturalWidth));
  await until('two pictures', async () => JSON.stringify(await sizes()) === '[64,64]');
  assert.equal(await buttons.nth(0).getAttribute('aria-pressed'), 'true');
  await page.shot('displays');
  await buttons.nth(2).click();
  assert.deepEqual((await agent.next(AgentMsg.MonitorSelect)).json, { monitor_id: 2 });
  assert.equal(await buttons.nth(2).getAttribute('aria-pressed'), 'true');
  // A stream that is started anew stays on the display that was chosen.
  await page.page.click('#picture-menu summary');
  await page.page.click('#picture-restart');
  await agent.next(AgentMsg.StreamStart);
  assert.equal((await agent.next(AgentMsg.StreamStart)).json.monitor_id, 2);
});

test('thumbnails that make no sense change nothing', async (t) => {
  const { agent, page } = await session(t, shared);
  for (let length = 0; length <= 6; length++)
    agent.send(AgentMsg.Thumbnail, agent.session, new Uint8Array(length));
  agent.thumbnail({ monitor: 0, count: 1, width: 64, height: 36, jpeg: Uint8Array.of(1, 2, 3) });
  agent.thumbnail({ monitor: 1, count: 2, width: 64, height: 36, jpeg: desktop(64, 36) });
  await until(
    'two displays',
    async () => (await page.page.locator('#monitor-picker .monitor').count()) === 2,
  );
});

test('the pointer of the machine is switched off and on, and stays off in a new stream', async (t) => {
  const { agent, page } = await session(t, shared);
  await agent.next(AgentMsg.CursorVisibility);
  await agent.next(AgentMsg.StreamStart);
  await page.page.click('#picture-menu summary');
  await page.page.uncheck('#show-pointer');
  assert.deepEqual((await agent.next(AgentMsg.CursorVisibility)).json, { show: 0 });
  await page.page.selectOption('#max-fps', '30');
  assert.equal((await agent.next(AgentMsg.StreamStart)).json.max_fps, 30);
  assert.deepEqual((await agent.next(AgentMsg.CursorVisibility)).json, { show: 0 });
  await page.page.check('#show-pointer');
  assert.deepEqual((await agent.next(AgentMsg.CursorVisibility)).json, { show: 1 });
});

test('the status line tells size, pictures and bytes a second, and the round trip', async (t) => {
  const { agent, page } = await session(t, shared, { width: 640, height: 360 });
  const jpeg = plain(640, 360, '#406080');
  const stop = setInterval(() => agent.frame(jpeg), 50);
  t.after(() => clearInterval(stop));
  const line = page.page.locator('#status-line');
  await until('all of it is there', async () => {
    const found = /^640 × 360 · JPEG · (\d+) frames\/s · (\d+) kB\/s · (\d+) ms round trip$/.exec(
      await line.innerText(),
    );
    return found && Number(found[1]) >= 4 && Number(found[2]) >= 1 && Number(found[3]) < 5000;
  });
  clearInterval(stop);
  await until('a still screen shows as none', async () =>
    / · 0 frames\/s · 0 kB\/s/.test(await line.innerText()),
  );
});

test('ending a session tells the machine, and a new one starts clean', async (t) => {
  const { agent, page } = await session(t, shared);
  const { session: number } = await agent.next(AgentMsg.StreamStart);
  await page.page.click('#session-end');
  assert.equal((await agent.next(AgentMsg.SessionEnd)).session, number);
  await page.page.locator('#view-machines').waitFor();
  agent.onStream = () => {};
  agent.frame(plain(640, 360, '#ff0000')); // still on its way when the session ended
  await page.row(agent).locator('.badge[data-state=online]').waitFor();
  await page.ask(agent);
  await page.waitForNote(/first picture/);
  assert.equal(await page.canvas.getAttribute('data-frames'), '0');
  assert.ok(await page.canvas.isHidden());
  await page.shot('session-starting');
});

test('a relay that dies and returns leaves the last picture greyed with words, then the session goes on', async (t) => {
  const { agent, page } = await session(t, shared);
  const first = (await agent.next(AgentMsg.StreamStart)).session;
  await shared.relay.kill();
  await page.waitForNote(/link to the relay is down/);
  assert.match(
    await page.page.evaluate(() => getComputedStyle(document.getElementById('screen')).filter),
    /grayscale/,
  );
  assert.ok(await page.canvas.isVisible());
  await page.shot('link-down');
  await shared.relay.start();
  await until('the machine is back', () => agent.connect().then(() => true));
  const { session: second } = await agent.next(AgentMsg.StreamStart);
  assert.notEqual(second, first);
  await until('the words are gone', async () => (await page.note()) === '');
});

test('a machine that drops out and returns is shown again without a click', async (t) => {
  const { agent, page } = await session(t, shared);
  await agent.next(AgentMsg.StreamStart);
  agent.drop();
  await page.waitForNote(/has gone offline/);
  await page.shot('machine-away');
  await agent.connect();
  await agent.next(AgentMsg.StreamStart);
  await until('the words are gone', async () => (await page.note()) === '');
});

test('a machine that is still held, be it by this representative’s own old link, is told of as taken', async (t) => {
  const script = `window.sockets = []; window.WebSocket = class extends WebSocket {
    constructor(...all) { super(...all); sockets.push(this); } };`;
  const { agent, page } = await session(t, shared, { page: { script } });
  await agent.next(AgentMsg.StreamStart);
  await page.page.evaluate(() => {
    // The page misses its link before the relay does.
    const [old] = window.sockets;
    old.close = () => {};
    old.onclose();
  });
  await page.waitForNote(/is in use by .*Sigga/);
  await page.page.evaluate(() => WebSocket.prototype.close.call(window.sockets[0]));
  await agent.next(AgentMsg.StreamStart);
  await until('the words are gone', async () => (await page.note()) === '');
});

test('messages of another session are ignored', async (t) => {
  const { agent, page } = await session(t, shared);
  const own = agent.session;
  agent.session = own + 1;
  agent.frame(plain(100, 100, '#ff0000'));
  agent.session = own;
  agent.frame(plain(640, 360, '#0000ff'));
  await page.frames(2);
  const [pixel] = await page.pixels([{ x: 50, y: 50 }]);
  assert.ok(near(pixel, [0, 0, 255]), `${pixel}`);
  assert.equal(await page.canvas.getAttribute('data-frames'), '2');
});

/** A session whose representative has said yes to a restart. */
async function restarted(t, options = {}) {
  const { agent, page } = await session(t, shared, options);
  await agent.next(AgentMsg.StreamStart);
  await page.page.click('#machine-menu summary');
  await page.page.click('#restart');
  assert.match(await page.page.locator('#restart-question').innerText(), /^Restart .*Ship/);
  return { agent, page };
}

test('a restart is asked about first, and shown until the machine is back', async (t) => {
  const { agent, page } = await restarted(t);
  await page.shot('restart-question');
  await page.page.click('#restart-dialog button[value=restart]');
  assert.equal((await agent.next(AgentMsg.Reboot)).session, agent.session);
  await page.waitForNote(/is restarting/);
  // The picture goes on while the machine shuts down.
  agent.frame(plain(640, 360, '#203040'));
  await page.frames(2);
  assert.match(await page.note(), /is restarting/);
  await page.canvas.click({ force: true, position: { x: 5, y: 5 } });
  agent.drop();
  await page.page
    .locator(`.machine[data-agent="${agent.id}"] .badge[data-state=restarting]`)
    .waitFor({ state: 'attached' });
  assert.match(await page.note(), /is restarting/);
  await page.shot('restarting');
  assert.deepEqual(agent.inputs, []);
  await agent.connect();
  await agent.next(AgentMsg.StreamStart);
  await until('the words are gone', async () => (await page.note()) === '');
  await page.page
    .locator(`.machine[data-agent="${agent.id}"] .badge[data-state=session]`)
    .waitFor({ state: 'attached' });
});

test('the machine list shows a restart to a representative who does not wait for it', async (t) => {
  const { agent, page } = await restarted(t);
  await page.page.click('#restart-dialog button[value=restart]');
  await agent.next(AgentMsg.Reboot);
  await page.page.click('#session-back');
  // It is told of as online once more before it goes.
  await page.row(agent).locator('.badge[data-state=online]').waitFor();
  agent.drop();
  await until('it is shown', async () => /Restarting/.test(await page.row(agent).innerText()));
  await page.shot('machines-restarting');
  await agent.connect();
  await page.row(agent).locator('.badge[data-state=online]').waitFor();
});

test('a restart that is not confirmed changes nothing', async (t) => {
  const { agent, page } = await restarted(t);
  await page.page.click('#restart-dialog button[value=cancel]');
  await page.page.click('#machine-menu summary');
  await page.page.click('#restart');
  await page.page.keyboard.press('Escape');
  await page.page.click('#machine-menu summary');
  await page.page.click('#attention');
  await agent.next(AgentMsg.SecureAttention);
  assert.ok(!agent.inbox.some(({ type }) => type === AgentMsg.Reboot));
  assert.equal(await page.note(), '');
});

test('a machine that does not restart is told of, and the session goes on', async (t) => {
  const script = `const wait = setTimeout; window.setTimeout = (act, ms) => wait(act, ms === ${RESTART_PATIENCE_MS} ? 300 : ms);`;
  const { agent, page } = await restarted(t, { page: { script } });
  await page.page.click('#restart-dialog button[value=restart]');
  await agent.next(AgentMsg.Reboot);
  await page.waitForNote(/has not restarted/);
  agent.frame(plain(640, 360, '#203040'));
  await page.frames(2);
  await page.page.click('#session-go-on');
  assert.equal(await page.note(), '');
  await page.canvas.click();
  await agent.events(4);
});

test('panels have a place beside the picture, one at a time', async (t) => {
  const { page } = await session(t, shared);
  await page.page.evaluate(async () => {
    const { Panels } = await import('/session/panels.js');
    const panels = new Panels(document.getElementById('panels'), document.getElementById('panel-buttons'));
    for (const name of ['one', 'two'])
      panels.add({ name, title: `Panel ${name}` }).textContent = `This is ${name}.`;
  });
  const width = () => page.canvas.evaluate((canvas) => canvas.clientWidth);
  const before = await width();
  await page.page.click('#panel-one-button');
  await page.page.getByText('This is one.').waitFor();
  await until('the picture makes room', async () => (await width()) < before);
  await page.shot('panel');
  await page.page.click('#panel-two-button');
  assert.ok(await page.page.getByText('This is one.').isHidden());
  await page.page.click('#panel-two header button');
  assert.ok(await page.page.locator('#panels').isHidden());
  await until('the picture has its room back', async () => (await width()) === before);
});

test('on a narrow screen the menus stay on it', async (t) => {
  const { page } = await session(t, shared, { page: { viewport: { width: 380, height: 700 } } });
  for (const menu of ['picture', 'keys', 'machine']) {
    await page.page.click(`#${menu}-menu summary`);
    const { x, width } = await page.page.locator(`#${menu}-menu .panel`).boundingBox();
    assert.ok(x >= 0 && x + width <= 380, `${menu}: ${x}, ${width}`);
    await page.page.click(`#${menu}-menu summary`);
  }
});
