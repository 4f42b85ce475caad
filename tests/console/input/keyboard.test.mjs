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

/** A keyboard and the vk and direction of each key event that it sends; characters are left out. */
function recorded(/** @type {import('../../../console/input/keyboard.js').KeyMode} */ mode = 'character') {
  /** @type {string[]} */
  const sent = [];
  const keyboard = new Keyboard(
    (events) => {
      for (const one of events)
        if (one[6] !== 2) sent.push(`${one[1] ? 'down' : 'up'} ${one[2].toString(16)}`);
    },
    { setTimeout: () => 1, clearTimeout: () => {} },
  );
  keyboard.mode = mode;
  return { keyboard, sent };
}

const NONE = { shiftKey: false, ctrlKey: false, altKey: false, metaKey: false };

test('a modifier that a later event reports as up is released before that event is sent', () => {
  const { keyboard, sent } = recorded();
  keyboard.keyDown({ ...NONE, code: 'ShiftLeft', key: 'Shift', shiftKey: true });
  keyboard.keyDown({ ...NONE, code: 'Quote', key: 'Dead', shiftKey: true });
  assert.deepEqual(sent.splice(0), ['down a0']);
  // The event of the letter belongs to the input method; its flags are compared all the same.
  keyboard.keyDown({ ...NONE, code: 'KeyE', key: 'ë', isComposing: true });
  assert.deepEqual(sent.splice(0), ['up a0']);
  keyboard.keyDown({ ...NONE, code: 'ControlRight', key: 'Control', ctrlKey: true });
  keyboard.keyDown({ ...NONE, code: 'ArrowUp', key: 'ArrowUp' });
  assert.deepEqual(sent.splice(0), ['down a3', 'up a3', 'down 26']);
  keyboard.keyDown({ ...NONE, code: 'AltLeft', key: 'Alt', altKey: true });
  keyboard.releaseModifiers(NONE);
  assert.deepEqual(sent.splice(0), ['down a4', 'up a4'], 'a pointer event is compared too');
  keyboard.keyDown({ ...NONE, code: 'MetaLeft', key: 'Meta', metaKey: true });
  keyboard.keyDown({ ...NONE, code: 'KeyC', key: 'c', metaKey: true });
  sent.length = 0;
  keyboard.releaseModifiers(NONE);
  assert.deepEqual(sent.splice(0).sort(), ['up 26', 'up 43', 'up 5b'], 'with Meta all keys are released');
});

test('the flags of AltGr, of another pressed modifier, and of an event without flags release nothing', () => {
  const { keyboard, sent } = recorded('position');
  const altGraph = { getModifierState: (/** @type {string} */ name) => name === 'AltGraph' };
  keyboard.keyDown({ ...NONE, ...altGraph, code: 'AltRight', key: 'AltGraph' });
  keyboard.keyDown({ ...NONE, ...altGraph, code: 'KeyQ', key: '@' });
  keyboard.releaseModifiers(NONE);
  assert.deepEqual(sent.splice(0), ['down a5', 'down 51']);
  keyboard.releaseAll();
  sent.length = 0;
  // Browsers on some systems report the flag of a modifier only after its own event.
  keyboard.keyDown({ ...NONE, code: 'ShiftLeft', key: 'Shift' });
  keyboard.keyDown({ ...NONE, code: 'ShiftLeft', key: 'Shift', repeat: true });
  keyboard.keyDown({ ...NONE, code: 'ControlRight', key: 'Control', shiftKey: true });
  keyboard.releaseModifiers({ ...NONE, shiftKey: true, ctrlKey: true });
  assert.ok(!sent.some((one) => one.startsWith('up')), String(sent));
});

test('in typed text, line ends and tabs become keys, and other control characters are left out', () => {
  const events = typingBatches('a\r\nb\tc\u0007').flat();
  const enter = keyNamed('Enter');
  assert.deepEqual(events[2], input.key(enter, true));
  assert.equal(events.length, 10);
});
