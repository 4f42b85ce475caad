// The keyboard: which key events become characters, and which become keys.
import assert from 'node:assert/strict';
import test from 'node:test';
import * as input from '../../../console/input/events.js';
import { Keyboard } from '../../../console/input/keyboard.js';
import { keyAt, keyNamed } from '../../../console/input/keymap.js';
import { typingBatches } from '../../../console/input/typing.js';

test('each key has a virtual-key code, a scan code and an extended flag', () => {
  assert.deepEqual(keyNamed('ArrowLeft'), { vk: 0x25, scan: 0x4b, extended: true });
  assert.equal(keyNamed('ControlRight').extended, true);
  assert.equal(keyNamed('ControlLeft').extended, false);
  assert.equal(keyAt({ code: 'KeyA', key: 'a' })?.vk, 0x41);
});

test('letters are sent as characters, shortcuts as keys, and held keys are released', () => {
  /** @type {number[][]} */
  const sent = [];
  const keyboard = new Keyboard((events) => sent.push(...events), {
    setTimeout: () => 1,
    clearTimeout: () => {},
  });
  const event = (/** @type {string} */ code, /** @type {string} */ key, more = {}) => ({
    code,
    key,
    ctrlKey: false,
    altKey: false,
    metaKey: false,
    ...more,
  });
  keyboard.keyDown(event('KeyD', 'ð'));
  assert.deepEqual(sent.splice(0), input.unicode('ð'));
  keyboard.keyDown(event('ControlLeft', 'Control', { ctrlKey: true }));
  keyboard.keyDown(event('KeyZ', 'z', { ctrlKey: true }));
  assert.deepEqual(
    sent.map((one) => one[2]),
    [0xa2, 0x5a],
  );
  sent.length = 0;
  keyboard.releaseAll();
  assert.deepEqual(
    sent.map((one) => [one[1], one[2]]),
    [
      [0, 0x5a],
      [0, 0xa2],
    ],
  );
});

test('in typed text, line ends and tabs become keys, and other control characters are left out', () => {
  const events = typingBatches('a\r\nb\tc\u0007').flat();
  const enter = keyNamed('Enter');
  assert.deepEqual(events[2], input.key(enter, true));
  assert.equal(events.length, 10);
});
