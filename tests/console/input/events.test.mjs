// Input events: their exact bytes, their batches, and the order in which they are sent.

import assert from 'node:assert/strict';
import test from 'node:test';
import * as input from '../../../console/input/events.js';
import { InputSender } from '../../../console/input/sender.js';
import { typingBatches } from '../../../console/input/typing.js';

test('numbers in input events are little-endian', () => {
  assert.deepEqual(input.move(0x1234, 0x7fff), [1, 0x34, 0x12, 0xff, 0x7f]);
  assert.deepEqual(input.button(input.Button.right, true), [2, 2, 1]);
  assert.deepEqual(input.wheel(-120), [3, 0x88, 0xff]);
  assert.deepEqual(input.key({ vk: 0x25, scan: 0x4b, extended: true }, false), [4, 0, 0x25, 0, 0x4b, 0, 1]);
  assert.deepEqual(input.unicode('þ'), [
    [4, 1, 0, 0, 0xfe, 0, 2],
    [4, 0, 0, 0, 0xfe, 0, 2],
  ]);
  assert.equal(input.unicode('😀').length, 4, 'two surrogates, down and up each');
});

test('a batch has at most 255 events', () => {
  const payloads = input.batches(Array.from({ length: 600 }, () => input.wheel(120)));
  assert.deepEqual(
    payloads.map((one) => one[0]),
    [255, 255, 90],
  );
  assert.equal(payloads[0].length, 1 + 255 * 3);
  for (const batch of typingBatches('x'.repeat(1000))) assert.ok(batch.length <= 255);
});

/** A sender, what it has sent, and its frames and time, which pass only when the test says so. */
function timedSender() {
  /** @type {number[][]} */
  const sent = [];
  /** @type {(() => void)[]} */
  const frames = [];
  /** @type {{act: () => void, at: number}[]} */
  let timers = [];
  let now = 0;
  const sender = new InputSender({
    send: (payload) => sent.push([...payload]),
    backlog: () => 0,
    nextFrame: (draw) => frames.push(draw),
    clock: { now: () => now, wait: (act, ms) => timers.push({ act, at: now + ms }) },
  });
  const pass = (/** @type {number} */ ms) => {
    now += ms;
    const due = timers.filter(({ at }) => at <= now);
    timers = timers.filter(({ at }) => at > now);
    for (const { act } of due) act();
  };
  return { sender, sent, frames, pass };
}

test('pointer moves are merged into one move per animation frame, and a button event follows its move', () => {
  const { sender, sent, frames, pass } = timedSender();
  sender.move({ x: 1, y: 1 });
  assert.equal(frames.length, 0, 'nothing is sent while the sender is disabled');
  sender.enabled = true;
  sender.move({ x: 1, y: 1 });
  sender.move({ x: 2, y: 2 });
  for (const draw of frames) draw();
  assert.deepEqual(sent.splice(0), [[1, 1, 2, 0, 2, 0]]);
  sender.move({ x: 3, y: 3 });
  sender.sendAt({ x: 4, y: 4 }, [input.button(1, true)]);
  assert.deepEqual(sent.splice(0), [[1, 1, 4, 0, 4, 0]]);
  pass(16);
  assert.deepEqual(sent, [[2, 1, 4, 0, 4, 0, 2, 1, 1]]);
});

test('a button is sent 16 ms after the move to its position, and later events follow it', () => {
  const { sender, sent, frames, pass } = timedSender();
  sender.enabled = true;
  const batch = (/** @type {input.InputEvent[]} */ ...events) => [events.length, ...events.flat()];
  const [here, there] = [
    { x: 1, y: 2 },
    { x: 3, y: 4 },
  ];
  const press = input.button(1, true);
  const release = input.button(1, false);
  sender.sendAt(here, [press]);
  sender.send(input.unicode('a'));
  sender.sendAt(here, [release]);
  assert.deepEqual(sent.splice(0), [batch(input.move(1, 2))], 'the move is sent at once');
  pass(15);
  assert.deepEqual(sent, []);
  pass(1);
  assert.deepEqual(sent.splice(0), [
    batch(input.move(1, 2), press),
    batch(...input.unicode('a')),
    batch(input.move(1, 2), release),
  ]);
  sender.sendAt(here, [press]);
  assert.deepEqual(sent.splice(0), [batch(input.move(1, 2), press)], 'the pointer has rested there');

  sender.move(there);
  for (const draw of frames) draw();
  sent.length = 0;
  pass(10);
  sender.sendAt(there, [release]);
  pass(5);
  assert.deepEqual(sent, []);
  pass(1);
  assert.deepEqual(sent, [batch(input.move(3, 4), release)], 'the time since the move counts');
});

test('the wheel of a moving pointer is sent at least every 16 ms', () => {
  const { sender, sent, pass } = timedSender();
  sender.enabled = true;
  for (const x of [1, 2, 3]) {
    sender.sendAt({ x, y: 0 }, [input.wheel(120)]);
    pass(8);
  }
  assert.deepEqual(sent.slice(1, 3), [
    [2, ...input.move(1, 0), ...input.wheel(120)],
    [2, ...input.move(2, 0), ...input.wheel(120)],
  ]);
});

test('the first press after input is enabled again waits for its move', () => {
  const { sender, sent, pass } = timedSender();
  sender.enabled = true;
  sender.sendAt({ x: 1, y: 1 }, [input.button(1, true)]);
  pass(16);
  sender.enabled = false;
  sender.enabled = true;
  sent.length = 0;
  sender.sendAt({ x: 1, y: 1 }, [input.button(1, true)]);
  assert.deepEqual(sent, [[1, ...input.move(1, 1)]]);
});

test('held-back events are sent in their order after the last hold, and disabling sends only their releases', () => {
  const { sender, sent, frames } = timedSender();
  sender.enabled = true;
  const key = { vk: 0x56, scan: 0x2f };
  const [paste, second] = [sender.hold(), sender.hold()];
  sender.send([input.key(key, true), input.key(key, false)]);
  sender.move({ x: 1, y: 1 });
  for (const draw of frames.splice(0)) draw();
  sender.sendAt({ x: 2, y: 2 }, [input.button(1, true)]);
  paste();
  paste();
  assert.deepEqual(sent, [], 'the second hold has not ended');
  second();
  assert.deepEqual(sent.splice(0), [
    [2, ...input.key(key, true), ...input.key(key, false)],
    [1, ...input.move(1, 1)],
    [2, ...input.move(2, 2), ...input.button(1, true)],
  ]);
  const end = sender.hold();
  sender.send([...input.unicode('x'), input.key(key, true), input.key(key, false)]);
  sender.sendAt({ x: 2, y: 2 }, [input.button(1, false)]);
  sender.enabled = false;
  assert.deepEqual(sent.splice(0), [[2, ...input.key(key, false), ...input.button(1, false)]]);
  end();
  assert.deepEqual(sent, []);
});

test('the events between two overlapping holds are sent when the first of them ends', () => {
  const { sender, sent } = timedSender();
  sender.enabled = true;
  const [first, second] = [input.unicode('a'), input.unicode('b')];
  const endFirst = sender.hold();
  sender.send(first);
  const endSecond = sender.hold();
  sender.send(second);
  endFirst();
  assert.deepEqual(sent.splice(0), [[2, ...first.flat()]]);
  endSecond();
  assert.deepEqual(sent, [[2, ...second.flat()]]);
});
