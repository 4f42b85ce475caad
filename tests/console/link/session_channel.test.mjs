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
