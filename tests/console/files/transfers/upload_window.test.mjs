// The limit on the bytes of uploads that are on their way.
import assert from 'node:assert/strict';
import test from 'node:test';
import { UploadWindow } from '../../../../console/files/transfers/upload_window.js';

const CHUNK = 256 * 1024;

/** An upload window with a fake clock, a function that sends a chunk and one that reports the oldest as passed. */
function windowWithReports() {
  const clock = { now: 0 };
  const window = new UploadWindow(() => clock.now);
  const counts = { passed: 0 };
  let reported = 0;
  const send = () =>
    window.sent(CHUNK, () => {
      counts.passed += 1;
    });
  const report = () => {
    reported += CHUNK;
    window.passed(reported);
  };
  return { window, clock, counts, send, report };
}

test('an upload waits while one megabyte has not passed, and continues when a part has', async () => {
  const { window, counts, send, report } = windowWithReports();
  for (let i = 0; i < 4; i++) send();
  let resumed = false;
  const waiting = window.waitForRoom().then(() => {
    resumed = true;
  });
  await Promise.resolve();
  assert.equal(resumed, false);
  window.passed(CHUNK - 1);
  assert.equal(counts.passed, 0, 'a part of a chunk');
  report();
  await waiting;
  assert.equal(counts.passed, 1);
});

test('one report can be about several chunks', () => {
  const { window, counts, send } = windowWithReports();
  for (let i = 0; i < 3; i++) send();
  window.passed(3 * CHUNK);
  assert.equal(counts.passed, 3);
});

test('slow reports narrow the window to one chunk, and fast reports widen it up to a limit', () => {
  const { window, clock, send, report } = windowWithReports();
  for (let i = 0; i < 4; i++) send();
  clock.now = 5000;
  report();
  assert.equal(window.limit, 512 * 1024);
  for (let i = 0; i < 3; i++) report();
  assert.equal(window.limit, CHUNK);
  for (let i = 0; i < 40; i++) {
    send();
    report();
  }
  assert.equal(window.limit, 4 * 1024 * 1024);
});

test('reports that are not larger numbers are ignored, and a reset empties the window', async () => {
  const { window, counts, send } = windowWithReports();
  for (let i = 0; i < 5; i++) send();
  for (const report of [0, -1, 'x', undefined]) window.passed(report);
  assert.equal(counts.passed, 0);
  window.reset();
  await window.waitForRoom();
});

test('after an interruption, only what has reached the relay counts, and its delay does not', async () => {
  const { window, clock, counts, send } = windowWithReports();
  for (let i = 0; i < 4; i++) send();
  const { limit } = window;
  clock.now = 60_000;
  window.goOn(3 * CHUNK, CHUNK);
  assert.equal(counts.passed, 1);
  await window.waitForRoom();
  for (let i = 0; i < 2; i++) send();
  let hasRoom = false;
  const waiting = window.waitForRoom().then(() => {
    hasRoom = true;
  });
  await Promise.resolve();
  assert.equal(hasRoom, false, 'what was taken and has not passed is on its way');
  window.passed(3 * CHUNK);
  await waiting;
  assert.equal(counts.passed, 3, 'what was lost has not passed');
  assert.ok(window.limit >= limit);
});
