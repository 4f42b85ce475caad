// The stream of a session: its start, its picture and its settings.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, openSession } from '../support/fixture.mjs';
import { plain } from '../support/pictures.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';

const shared = fixture();
const START = { monitor_id: 0, max_fps: 15, bitrate: 340_000 };

/** @param {number[]} seen @param {number[]} wanted */
const near = (seen, wanted, levels = 6) => seen.every((value, i) => Math.abs(value - wanted[i]) <= levels);

test('a session starts a stream, requests thumbnails and shows the picture', async (t) => {
  const { agent, page } = await openSession(t, shared, { width: 800, height: 450 });
  assert.deepEqual((await agent.next(AgentMsg.StreamStart)).json, START);
  assert.deepEqual((await agent.next(AgentMsg.CursorVisibility)).json, { show: 1 });
  await agent.next(AgentMsg.ThumbnailRequest);
  assert.deepEqual(await page.pictureSize(), [800, 450]);
  const [pixel] = await page.pixels([{ x: 400, y: 200 }]);
  assert.ok(near(pixel, [0x40, 0x60, 0x80]), `${pixel}`);
  assert.equal(await page.note(), '');
});

test('broken and oversized pictures are ignored, and the last good picture stays', async (t) => {
  const { agent, page } = await openSession(t, shared);
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

test('the machine’s pointer is hidden and shown, and stays hidden in a new stream', async (t) => {
  const { agent, page } = await openSession(t, shared);
  await agent.next(AgentMsg.CursorVisibility);
  await agent.next(AgentMsg.StreamStart);
  await page.page.click('#picture-menu summary');
  await page.page.uncheck('#show-pointer');
  assert.deepEqual((await agent.next(AgentMsg.CursorVisibility)).json, { show: 0 });
  await page.page.click('#picture-restart');
  await agent.next(AgentMsg.StreamStart);
  assert.deepEqual((await agent.next(AgentMsg.CursorVisibility)).json, { show: 0 });
  await page.page.click('#picture-menu summary');
  await page.page.check('#show-pointer');
  assert.deepEqual((await agent.next(AgentMsg.CursorVisibility)).json, { show: 1 });
});

test('rates that are chosen by hand are those of the stream, and an automatic choice replaces them', async (t) => {
  const { agent, page } = await openSession(t, shared);
  await agent.next(AgentMsg.StreamStart);
  const p = page.page;
  const started = async () => {
    const { max_fps, bitrate } = (await agent.next(AgentMsg.StreamStart)).json;
    return { max_fps, bitrate };
  };
  await p.click('#picture-menu summary');
  assert.ok(await p.locator('#max-fps').isHidden());
  await p.selectOption('#quality', 'hand');
  assert.deepEqual(await started(), { max_fps: 30, bitrate: 6_000_000 });
  await p.selectOption('#max-fps', '60');
  assert.deepEqual(await started(), { max_fps: 60, bitrate: 6_000_000 });
  await p.selectOption('#bitrate', { label: '2 Mbit/s' });
  assert.deepEqual(await started(), { max_fps: 60, bitrate: 2_000_000 });
  await page.shot('quality');
  await p.selectOption('#quality', 'saving');
  assert.deepEqual(await started(), { max_fps: 15, bitrate: 340_000 });
  assert.ok(await p.locator('#bitrate').isHidden());
});

test('a line that carries the stream gets more frames and bits by itself', async (t) => {
  const { agent, page } = await openSession(t, shared);
  await agent.next(AgentMsg.StreamStart);
  const small = plain(320, 200, '#406080');
  const large = plain(1600, 1000, '#406080');
  let sent = 0;
  const stop = setInterval(() => agent.frame(sent++ % 20 === 0 ? large : small), 50);
  t.after(() => clearInterval(stop));
  const { json } = await agent.next(AgentMsg.StreamStart);
  assert.ok(Number(json.max_fps) > 15 && Number(json.bitrate) > 340_000, JSON.stringify(json));
  const before = Number(await page.canvas.getAttribute('data-frames'));
  await page.frames(before + 5);
});
