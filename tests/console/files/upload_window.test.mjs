// The limit on the bytes of uploads that are on their way.
import assert from 'node:assert/strict';
import test from 'node:test';
import { UploadWindow } from '../../../console/files/upload_window.js';

const CHUNK = 256 * 1024;

/** An upload window with a fake clock, a function that sends a chunk and one that answers the oldest ping. */
function windowWithPings() {
  const clock = { now: 0 };
  const window = new UploadWindow(() => clock.now);
  /** @type {number[]} */
  const pings = [];
  const counts = { arrived: 0 };
  const send = () =>
    pings.push(
      window.sent(CHUNK, () => {
        counts.arrived += 1;
      }),
    );
  const answer = () => window.pong(pings.shift());
  return { window, clock, counts, send, answer };
}

test('an upload waits while one megabyte is unconfirmed, and continues when a part is confirmed', async () => {
  const { window, counts, send, answer } = windowWithPings();
  for (let i = 0; i < 4; i++) send();
  let resumed = false;
  const waiting = window.waitForRoom().then(() => {
    resumed = true;
  });
  await Promise.resolve();
  assert.equal(resumed, false);
  answer();
  await waiting;
  assert.equal(counts.arrived, 1);
});

test('slow answers narrow the window to one chunk, and fast answers widen it up to a limit', () => {
  const { window, clock, send, answer } = windowWithPings();
  for (let i = 0; i < 4; i++) send();
  clock.now = 5000;
  answer();
  assert.equal(window.limit, 512 * 1024);
  for (let i = 0; i < 3; i++) answer();
  assert.equal(window.limit, CHUNK);
  for (let i = 0; i < 40; i++) {
    send();
    answer();
  }
  assert.equal(window.limit, 4 * 1024 * 1024);
});

test('answers to pings of other senders are ignored, and a reset empties the window', async () => {
  const { window, send } = windowWithPings();
  for (let i = 0; i < 5; i++) send();
  window.pong(12345);
  window.pong('x');
  assert.equal(window.limit, 1024 * 1024);
  window.reset();
  await window.waitForRoom();
});
