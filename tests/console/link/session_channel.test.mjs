// The channel of a session: which messages of the relay it passes on, and what it sends to the relay.

import assert from 'node:assert/strict';
import test from 'node:test';
import { emit, onDetail } from '../../../console/base/custom_events.js';
import { SessionChannel } from '../../../console/link/session_channel.js';

class FakeLink extends EventTarget {
  up = true;
  /** @type {object[]} */
  sent = [];

  sendControl(/** @type {object} */ message) {
    if (this.up) this.sent.push(message);
    return this.up;
  }
}

function channelOn(/** @type {FakeLink} */ link) {
  return new SessionChannel(
    /** @type {import('../../../console/link/link.js').Link} */ (/** @type {unknown} */ (link)),
  );
}

test('a channel reports only messages of its own session that were too large', () => {
  const link = new FakeLink();
  const channel = channelOn(link);
  /** @type {object[]} */
  const reported = [];
  onDetail(channel, 'too-large', (/** @type {object} */ detail) => reported.push(detail));
  const notice = { type: 'too-large', session: 7, message: 97, bytes: 70_000_000 };
  emit(link, 'control', notice);
  channel.open(7, 'machine');
  for (const other of [
    { ...notice, session: 8 },
    { ...notice, type: 'error' },
    { ...notice, message: '97' },
    { ...notice, bytes: null },
  ])
    emit(link, 'control', other);
  assert.deepEqual(reported, []);
  emit(link, 'control', notice);
  assert.deepEqual(reported, [{ type: 97, bytes: 70_000_000 }]);
  channel.close();
  emit(link, 'control', notice);
  assert.equal(reported.length, 1);
});

test("a channel asks for the end of its machine's connection only while a session is open", () => {
  const link = new FakeLink();
  const channel = channelOn(link);
  assert.ok(!channel.cutMachine());
  channel.open(7, 'machine');
  assert.ok(channel.cutMachine());
  assert.deepEqual(link.sent, [{ type: 'cut', session: 7 }]);
  link.up = false;
  assert.ok(!channel.cutMachine());
  channel.close();
  link.up = true;
  assert.ok(!channel.cutMachine());
  assert.equal(link.sent.length, 1);
});

test('a session is over when it will not return: at its end, or when another session begins', () => {
  const channel = channelOn(new FakeLink());
  /** @type {string[]} */
  const seen = [];
  for (const name of ['open', 'closed', 'over']) channel.addEventListener(name, () => seen.push(name));
  const events = () => seen.splice(0);
  channel.open(7, 'machine');
  channel.close(true);
  assert.ok(channel.isInterrupted);
  assert.deepEqual(events(), ['open', 'closed']);
  channel.open(7, 'machine');
  assert.ok(!channel.isInterrupted);
  channel.close();
  assert.deepEqual(events(), ['open', 'closed', 'over']);
  channel.close();
  assert.deepEqual(events(), []);
  channel.open(8, 'machine');
  channel.close(true);
  channel.close(true);
  channel.close();
  assert.deepEqual(events(), ['open', 'closed', 'over']);
  channel.open(9, 'machine');
  channel.close(true);
  channel.open(10, 'machine');
  assert.deepEqual(events(), ['open', 'closed', 'over', 'open']);
});

test('a channel hands on what the relay has kept of a session', () => {
  const channel = channelOn(new FakeLink());
  /** @type {unknown[]} */
  const kept = [];
  onDetail(channel, 'open', (/** @type {unknown} */ detail) => kept.push(detail));
  channel.open(7, 'machine', undefined, undefined, { transfers: [5] });
  assert.deepEqual(kept, [{ transfers: [5] }]);
});
