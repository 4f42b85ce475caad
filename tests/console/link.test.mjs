// The console's link to the relay: when silence counts as the end of it. Time and the socket are the test's own.
import assert from 'node:assert/strict';
import test from 'node:test';
import { Link } from '../../console/link/link.js';

const MiB = 1024 * 1024;

/** A link that is up, its socket, and `later(seconds)`, which lets time pass. */
function linkUp(t) {
  t.mock.timers.enable({ apis: ['setInterval', 'setTimeout'] });
  let now = 0;
  t.mock.method(performance, 'now', () => now);
  const socket = {
    sent: [],
    bufferedAmount: 0,
    send(data) {
      this.sent.push(data);
    },
    close() {},
  };
  globalThis.WebSocket = function WebSocket() {
    return socket;
  };
  t.after(() => {
    delete globalThis.WebSocket;
  });
  const link = new Link('wss://console');
  t.after(() => link.stop());
  link.start();
  socket.onopen();
  const later = (seconds) => {
    for (let i = 0; i < seconds; i++) {
      now += 1000;
      t.mock.timers.tick(1000);
    }
  };
  const answer = () =>
    socket.onmessage({ data: JSON.stringify({ type: 'pong', id: link.ping.id, round_trip_ms: 5 }) });
  return { link, socket, later, answer };
}

test('a relay that says nothing for a quarter of a minute is gone', (t) => {
  const { link, later, answer } = linkUp(t);
  answer();
  later(10);
  assert.ok(link.up);
  later(10);
  assert.ok(!link.up);
});

test('whatever comes is a sign of life', (t) => {
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

test('a ping that waits behind an upload is given the time that a slow line takes', (t) => {
  const { link, later, answer } = linkUp(t);
  answer();
  link.sendEnvelope(new Uint8Array(8 * MiB));
  later(500); // at 17 kB/s
  assert.ok(link.up);
  answer();
  later(20);
  assert.ok(!link.up, 'and the next one, with nothing before it, is not');
});

test('a relay that went silent in the middle of an upload is not waited for without end', (t) => {
  const { link, later, answer } = linkUp(t);
  answer();
  link.sendEnvelope(new Uint8Array(256 * 1024));
  later(60);
  assert.ok(link.up, 'a machine may take nothing for as long as the relay lets it');
  later(30);
  assert.ok(!link.up);
});

test('clicks and keys are no upload', (t) => {
  const { link, later, answer } = linkUp(t);
  answer();
  for (let i = 0; i < 100; i++) link.sendEnvelope(new Uint8Array(20));
  later(20);
  assert.ok(!link.up);
});
