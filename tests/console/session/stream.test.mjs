// The stream of a session: its start, its picture and its settings.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, openSession } from '../support/fixture.mjs';
import { plain } from '../support/pictures.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';

const shared = fixture();
const START = { monitor_id: 0, max_fps: 15, bitrate: 6_000_000 };

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
  await page.page.selectOption('#max-fps', '30');
  assert.equal((await agent.next(AgentMsg.StreamStart)).json.max_fps, 30);
  assert.deepEqual((await agent.next(AgentMsg.CursorVisibility)).json, { show: 0 });
  await page.page.check('#show-pointer');
  assert.deepEqual((await agent.next(AgentMsg.CursorVisibility)).json, { show: 1 });
});
