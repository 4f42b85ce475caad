// The joining of the parts in which the relay sends long messages.

import assert from 'node:assert/strict';
import test from 'node:test';
import { PartJoiner } from '../../../console/link/parts.js';

const FIRST = 1;
const LAST = 2;
const TEXT = 4;
const PICTURE = 2 << 4;
const BULK = 3 << 4;

/** @param {PartJoiner} joiner @param {number} flags @param {string} content */
function part(joiner, flags, content) {
  return read(joiner.join(Uint8Array.from([0, flags, ...new TextEncoder().encode(content)]).buffer));
}

/** @param {ArrayBuffer | string | null} whole */
function read(whole) {
  return whole instanceof ArrayBuffer ? { binary: new TextDecoder().decode(whole) } : whole;
}

test('a message that is not a part is returned unchanged', () => {
  const joiner = new PartJoiner();
  const buffer = Uint8Array.from([83, 0, 1]).buffer;
  assert.equal(joiner.join(buffer), buffer);
  const empty = new ArrayBuffer(0);
  assert.equal(joiner.join(empty), empty);
});

test('the parts of different lanes are joined separately', () => {
  const joiner = new PartJoiner();
  assert.equal(part(joiner, FIRST | BULK, 'list'), null);
  assert.equal(part(joiner, FIRST | PICTURE, 'pic'), null);
  assert.equal(part(joiner, BULK, 'ing of '), null);
  assert.deepEqual(part(joiner, LAST | PICTURE, 'ture'), { binary: 'picture' });
  assert.deepEqual(part(joiner, LAST | BULK, 'files'), { binary: 'listing of files' });
});

test('a text is joined before it is decoded, so a character may be divided', () => {
  const joiner = new PartJoiner();
  const [first, second] = new TextEncoder().encode('æ');
  joiner.join(Uint8Array.from([0, FIRST | TEXT, first]).buffer);
  assert.equal(joiner.join(Uint8Array.from([0, LAST | TEXT, second]).buffer), 'æ');
});

test('a first part replaces an unfinished message, and a part without a first part is dropped', () => {
  const joiner = new PartJoiner();
  assert.equal(part(joiner, FIRST, 'given up'), null);
  assert.equal(part(joiner, FIRST, 'next '), null);
  assert.deepEqual(part(joiner, LAST, 'message'), { binary: 'next message' });
  assert.equal(part(joiner, LAST, 'late'), null);
  assert.equal(part(joiner, FIRST, 'lost'), null);
  joiner.clear();
  assert.equal(part(joiner, LAST, 'connection'), null);
});
