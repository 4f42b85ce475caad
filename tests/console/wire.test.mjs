// The console's bytes, exactly as the machine's link has them.
import assert from 'node:assert/strict';
import test from 'node:test';
import { age, RateMeter, wholeRoundTrip } from '../../console/base/status.js';
import * as input from '../../console/input/events.js';
import { fit, toWire, WheelMeter } from '../../console/input/geometry.js';
import { Keyboard } from '../../console/input/keyboard.js';
import { keyAt, keyNamed } from '../../console/input/keymap.js';
import { InputSender } from '../../console/input/sender.js';
import { typingBatches } from '../../console/input/typing.js';
import { decodeEnvelope, encodeEnvelope, encodeJson, readJson } from '../../console/link/envelope.js';
import { backOff, parseControl } from '../../console/link/link.js';
import { Msg } from '../../console/link/messages.js';
import { isDrawable, jpegSize } from '../../console/picture/jpeg.js';
import { MonitorList, parseThumbnail } from '../../console/session/thumbnails.js';

const bytes = (...values) => Uint8Array.from(values);

test('an envelope is ten big-endian header bytes and the payload', () => {
  assert.deepEqual(encodeEnvelope(86, 0x01020304, bytes(9, 8)), bytes(86, 0, 1, 2, 3, 4, 0, 0, 0, 2, 9, 8));
  const json = encodeJson(Msg.CursorVisibility, 1, { show: 0 });
  assert.equal(json[1], 1);
  assert.equal(new TextDecoder().decode(json.subarray(10)), '{"show":0}');
  assert.throws(() => encodeEnvelope(1, 1, new Uint8Array(0x800001)), RangeError);
});

test('every truncation of an envelope is refused and excess is ignored', () => {
  const whole = encodeEnvelope(83, 7, bytes(1, 2, 3));
  for (let length = 0; length < whole.length; length++)
    assert.equal(decodeEnvelope(whole.slice(0, length).buffer), null);
  const decoded = decodeEnvelope(bytes(...whole, 99).buffer);
  assert.deepEqual([decoded.type, decoded.session, [...decoded.payload]], [83, 7, [1, 2, 3]]);
  for (const text of ['', '[]', 'null', '5', '{'])
    assert.equal(readJson(new TextEncoder().encode(text)), null);
});

test('input events are little-endian', () => {
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

test('a batch never holds more than 255 events', () => {
  const payloads = input.batches(Array.from({ length: 600 }, () => input.wheel(120)));
  assert.deepEqual(
    payloads.map((one) => one[0]),
    [255, 255, 90],
  );
  assert.equal(payloads[0].length, 1 + 255 * 3);
  for (const batch of typingBatches('x'.repeat(1000))) assert.ok(batch.length <= 255);
});

test('typed text sends line ends and tabs as keys and drops other controls', () => {
  const events = typingBatches('a\r\nb\tc\u0007').flat();
  const enter = keyNamed('Enter');
  assert.deepEqual(events[2], input.key(enter, true));
  assert.equal(events.length, 10);
});

test('keys carry virtual key, scan code and the extended flag', () => {
  assert.deepEqual(keyNamed('ArrowLeft'), { vk: 0x25, scan: 0x4b, extended: true });
  assert.equal(keyNamed('ControlRight').extended, true);
  assert.equal(keyNamed('ControlLeft').extended, false);
  assert.equal(keyAt({ code: 'KeyA', key: 'a' }).vk, 0x41);
});

test('the keyboard types characters, keeps shortcuts as keys and releases what it holds', () => {
  const sent = [];
  const keyboard = new Keyboard((events) => sent.push(...events), {
    setTimeout: () => 1,
    clearTimeout: () => {},
  });
  const event = (code, key, more = {}) => ({
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

test('moves are merged to one a frame and go before a button', () => {
  const sent = [];
  let frame = null;
  const sender = new InputSender({
    send: (payload) => sent.push([...payload]),
    backlog: () => 0,
    nextFrame: (f) => {
      frame = f;
    },
  });
  sender.move({ x: 1, y: 1 });
  assert.equal(frame, null, 'nothing leaves while it is off');
  sender.enabled = true;
  sender.move({ x: 1, y: 1 });
  sender.move({ x: 2, y: 2 });
  frame();
  assert.deepEqual(sent.splice(0), [[1, 1, 2, 0, 2, 0]]);
  sender.move({ x: 3, y: 3 });
  sender.at({ x: 4, y: 4 }, [input.button(1, true)]);
  assert.deepEqual(sent, [[2, 1, 4, 0, 4, 0, 2, 1, 1]]);
});

test('positions fall on the pixel that is shown, the letterbox subtracted', () => {
  const picture = { width: 1280, height: 720 };
  assert.deepEqual(fit(picture, { width: 640, height: 640 }), { width: 640, height: 360 });
  const rect = { left: 100, top: 50, width: 640, height: 360 };
  assert.deepEqual(toWire({ x: -5, y: 9999 }, rect, picture), { x: 6, y: 32767 });
});

test('every pixel of every monitor of a desktop is hit', () => {
  // Desktop width, then left and width of the monitor.
  for (const [whole, left, width] of [
    [1280, 0, 1280],
    [3840, 0, 1920],
    [3840, 1920, 1920],
    [5760, 1920, 1920],
    [3840, 0, 3840],
  ]) {
    for (let pixel = 0; pixel < width; pixel++) {
      const { x } = toWire(
        { x: pixel + 0.5, y: 0 },
        { left: 0, top: 0, width, height: 10 },
        { width, height: 10 },
      );
      const onDesktop = ((width - 1) * x) / 32767 + left;
      const dx = Math.trunc((onDesktop * 65535) / (whole - 1));
      const reached = Math.min(Math.floor((dx * whole) / 65536), whole - 1) - left;
      assert.equal(reached, pixel, `pixel ${pixel} of ${width} at ${left} of ${whole}`);
    }
  }
});

test('the wheel sends 120 a notch and keeps the rest', () => {
  const meter = new WheelMeter();
  assert.equal(meter.take({ deltaY: -100, deltaMode: 0 }), 120);
  assert.equal(meter.take({ deltaY: 3, deltaMode: 1 }), -120);
  const small = new WheelMeter();
  let sum = 0;
  for (let i = 0; i < 100; i++) sum += small.take({ deltaY: 1, deltaMode: 0 });
  assert.equal(sum, -120);
  assert.equal(small.take({ deltaY: NaN, deltaMode: 0 }), 0);
});

test('thumbnails are read, and ones that make no sense are not', () => {
  const one = parseThumbnail(bytes(1, 3, 0x40, 1, 0xb4, 0, 0xff, 0xd8));
  assert.deepEqual([one.monitor, one.count, one.width, one.height], [1, 3, 320, 180]);
  for (let length = 0; length <= 6; length++) assert.equal(parseThumbnail(new Uint8Array(length)), null);
  assert.equal(parseThumbnail(bytes(0, 1, 0, 0, 1, 0, 1)), null);
  const list = new MonitorList();
  list.add(one);
  assert.equal(list.entries().length, 3);
});

test('a JPEG file tells its size, and absurd ones are not decoded', () => {
  const jpeg = bytes(0xff, 0xd8, 0xff, 0xc0, 0, 17, 8, 2, 0xd0, 5, 0, 3);
  assert.deepEqual(jpegSize(jpeg), { width: 1280, height: 720 });
  assert.equal(isDrawable(bytes(0xff, 0xd8, 0xff, 0xc0, 0, 17, 8, 0xff, 0xff, 0xff, 0xff, 3)), false);
  for (let length = 0; length < jpeg.length - 1; length++)
    assert.equal(jpegSize(jpeg.subarray(0, length)), null);
});

test('numbers of the status line', () => {
  let now = 0;
  const meter = new RateMeter(() => now);
  for (let i = 0; i < 20; i++) {
    now += 100;
    meter.add(1000);
  }
  const { framesPerSecond, kilobytesPerSecond } = meter.read();
  assert.ok(Math.abs(framesPerSecond - 10) < 1 && Math.abs(kilobytesPerSecond - 10) < 1);
  assert.equal(wholeRoundTrip(10, null), null);
  assert.equal(wholeRoundTrip(10.4, 20), 30);
  assert.deepEqual(age(0, 7300), { unit: 'hour', count: 2 });
});

test('the pause between two attempts grows to a bound', () => {
  assert.equal(backOff(0, 0.5), 500);
  assert.equal(backOff(20, 0.5), 15000);
  for (const text of ['', '5', 'null', '{}', '{"type":5}', '[]']) assert.equal(parseControl(text), null);
});
