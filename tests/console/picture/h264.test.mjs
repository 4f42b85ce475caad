// Reading H.264 streams: units, pictures, parameter sets and missing pictures.

import assert from 'node:assert/strict';
import test from 'node:test';
import { accessUnits, PictureCounter, readParameters, units } from '../../../console/picture/h264.js';
import { card, encode } from '../support/h264.mjs';
import { present } from '../support/present.mjs';

const bytes = (/** @type {(number | number[])[]} */ ...values) => Uint8Array.from(values.flat());
const hex = (/** @type {string} */ text) => Uint8Array.from(Buffer.from(text, 'hex'));
/** @typedef {import('../../../console/picture/h264.js').AccessUnit} AccessUnit */

const LONG = [0, 0, 0, 1];
const SHORT = [0, 0, 1];
const SET = [0x67, 0x42, 0xc0, 0x0a];
const FIRST = 0x80; // first_mb_in_slice 0

test('a stream is split into its units, after short and long start codes', () => {
  const found = units(bytes(LONG, SET, SHORT, 0x68, 9, LONG, 0x65, FIRST, 7));
  assert.deepEqual(found, [
    { from: 0, at: 4, to: 8, type: 7 },
    { from: 8, at: 11, to: 13, type: 8 },
    { from: 13, at: 17, to: 20, type: 5 },
  ]);
  for (const none of [bytes(), bytes(0), bytes(SHORT), bytes(0xff, 0xd8, 0xff), bytes(0, 0, 2, 1)])
    assert.deepEqual(units(none), []);
});

test('slices are joined into a picture, and a delimiter or a parameter set begins the next picture', () => {
  const key = bytes(LONG, 9, 0x10, LONG, SET, SHORT, 0x68, 1, SHORT, 0x65, FIRST, 1, SHORT, 0x65, 0x40, 2);
  const delta = bytes(SHORT, 0x41, FIRST, 3, SHORT, 0x41, 0x20, 4);
  const pictures = accessUnits(bytes([...key], [...delta], [...delta], [...key]));
  assert.deepEqual(
    pictures.map((one) => [[...one.data], one.key]),
    [
      [[...key], true],
      [[...delta], false],
      [[...delta], false],
      [[...key], true],
    ],
  );
  assert.deepEqual([...present(pictures[0].parameters)], SET);
  assert.equal(pictures[1].parameters, null);
  assert.deepEqual(accessUnits(bytes(LONG, SET)), [], 'parameters alone are not a picture');
});

test('the codec’s name and the length of frame numbers are read from the parameter set', () => {
  const known = {
    '6742c00cda05067e7c04400000030040000007a3c50aa8': ['avc1.42c00c', 4],
    '674d4c148c8d40a0cbce80': ['avc1.4d4c14', 15],
    '67640015ace81433f26034a0404034a0000003002000000303cc04003d08000f427258c07c50aa80': ['avc1.640015', 4],
    '67f4000c919681419f8dc044000003000400000300783c50aa80': ['avc1.f4000c', 4],
  };
  for (const [set, [codec, bits]] of Object.entries(known)) {
    const read = present(readParameters(hex(set)));
    assert.deepEqual([read.codec, read.frameNumberBits, read.gaps], [codec, bits, false], set);
    for (let length = 0; length < 6; length++)
      assert.equal(readParameters(hex(set).subarray(0, length)), null);
  }
});

test('random bytes do not cause an exception', () => {
  let seed = 1;
  const random = () => {
    seed = (seed * 48271) % 0x7fffffff;
    return seed;
  };
  for (let i = 0; i < 5000; i++) {
    const noise = Uint8Array.from({ length: random() % 120 }, () =>
      random() % 3 ? random() % 4 : random() & 255,
    );
    const counter = new PictureCounter();
    for (const picture of accessUnits(noise)) {
      if (picture.parameters) counter.restart(readParameters(picture.parameters));
      counter.follows(picture.slice);
    }
  }
});

test('a missing picture is detected anywhere in a stream, also when frame numbers wrap around', () => {
  const stream = encode(
    Array.from({ length: 40 }, (_, i) => card(64, 64, [i % 2 ? '#202020' : '#808080'])),
    { width: 64, height: 64 },
  ).map((unit) => accessUnits(new Uint8Array(unit))[0]);
  const follow = (/** @type {AccessUnit[]} */ pictures) => {
    const counter = new PictureCounter();
    counter.restart(readParameters(present(pictures[0].parameters)));
    return pictures.map(({ slice }) => counter.follows(slice));
  };
  assert.ok(follow(stream).every(Boolean));
  for (let lost = 1; lost < stream.length - 1; lost++) {
    const complete = follow(stream.filter((_, i) => i !== lost));
    assert.equal(complete.indexOf(false), lost);
  }
});
