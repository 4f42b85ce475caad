// The console's link to the relay, with a fake socket and fake time: when a silent relay counts as dead.

import assert from 'node:assert/strict';
import test from 'node:test';
import { onDetail } from '../../../console/base/custom_events.js';
import { backOff, Link, parseControl } from '../../../console/link/link.js';
import { present } from '../support/present.mjs';

const MiB = 1024 * 1024;

class FakeSocket {
  bufferedAmount = 0;
  /** @type {(string | Uint8Array)[]} */
  sent = [];
  onopen = () => {};
  onmessage = (/** @type {{data: string | ArrayBuffer}} */ _message) => {};

  send(/** @type {string | Uint8Array} */ data) {
    this.sent.push(data);
  }

  close() {}

  /** The id of the last ping. */
  lastPing() {
    const texts = this.sent.filter((data) => typeof data === 'string');
    return JSON.parse(present(texts.at(-1))).id;
  }
}

/**
 * A link that is up and its socket. `later` lets seconds pass, `answer` answers the last ping.
 * @param {import('node:test').TestContext} t
 */
function linkUp(t) {
  t.mock.timers.enable({ apis: ['setInterval', 'setTimeout'] });
  let now = 0;
  t.mock.method(performance, 'now', () => now);
  const socket = new FakeSocket();
  const real = globalThis.WebSocket;
  // A constructor that returns an object: `new WebSocket` is the test's own socket.
  globalThis.WebSocket = /** @type {typeof WebSocket} */ (
    /** @type {unknown} */ (
      function WebSocket() {
        return socket;
      }
    )
  );
  t.after(() => {
    globalThis.WebSocket = real;
  });
  const link = new Link('wss://console');
  t.after(() => link.stop());
  link.start();
  socket.onopen();
  const later = (/** @type {number} */ seconds) => {
    for (let i = 0; i < seconds; i++) {
      now += 1000;
      t.mock.timers.tick(1000);
    }
  };
  const answer = () => {
    const data = JSON.stringify({ type: 'pong', id: socket.lastPing(), round_trip_ms: 5 });
    socket.onmessage({ data });
  };
  return { link, socket, later, answer };
}

test('a relay that sends nothing for 15 seconds counts as dead', (t) => {
  const { link, later, answer } = linkUp(t);
  answer();
  later(10);
  assert.ok(link.up);
  later(10);
  assert.ok(!link.up);
});

test('a relay that sends any message within 15 seconds does not count as dead', (t) => {
  const { link, socket, later } = linkUp(t);
  for (const data of [
    new ArrayBuffer(10),
    '{"type":"agents","agents":[]}',
    '{"type":"pong","id":-1}',
    new ArrayBuffer(20),
  ]) {
    later(12);
    socket.onmessage({ data });
  }
  later(12);
  assert.ok(link.up);
  later(6);
  assert.ok(!link.up);
});

test('a link stays up during an upload of any length while the relay sends something', (t) => {
  const { link, socket, later, answer } = linkUp(t);
  answer();
  link.sendEnvelope(new Uint8Array(8 * MiB));
  for (let seconds = 0; seconds < 4200; seconds += 10) {
    later(10);
    socket.onmessage({ data: '{"type":"alive"}' });
  }
  assert.ok(link.up, '8 MiB at 2 kB/s');
  later(20);
  assert.ok(!link.up, 'a relay that falls silent during an upload counts as dead');
});

test('a link stays up while parts of a long message arrive, and emits the message when it is whole', (t) => {
  const { link, socket, later } = linkUp(t);
  /** @type {number[][]} */
  const envelopes = [];
  onDetail(link, 'envelope', (/** @type {ArrayBuffer} */ data) => envelopes.push([...new Uint8Array(data)]));
  const arrive = (/** @type {number[]} */ ...bytes) =>
    socket.onmessage({ data: Uint8Array.from(bytes).buffer });
  arrive(0, 1, 87, 1);
  later(12);
  arrive(0, 0, 2);
  later(12);
  arrive(83, 9);
  later(12);
  arrive(0, 2, 3);
  assert.ok(link.up);
  assert.deepEqual(envelopes, [
    [83, 9],
    [87, 1, 2, 3],
  ]);
});

test('an alive message of the relay is not passed on', (t) => {
  const { link, socket } = linkUp(t);
  let passed = 0;
  link.addEventListener('control', () => passed++);
  socket.onmessage({ data: '{"type":"alive"}' });
  assert.equal(passed, 0);
  socket.onmessage({ data: '{"type":"error"}' });
  assert.equal(passed, 1);
});

test('the pause before a new connection grows up to a limit, and texts that are not messages are refused', () => {
  assert.equal(backOff(0, 0.5), 500);
  assert.equal(backOff(20, 0.5), 15000);
  for (const text of ['', '5', 'null', '{}', '{"type":5}', '[]']) assert.equal(parseControl(text), null);
});
