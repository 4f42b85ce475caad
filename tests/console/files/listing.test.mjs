// Listings of the machine's folders, and the order of their entries.
import assert from 'node:assert/strict';
import test from 'node:test';
import { parseListing, sorted } from '../../../console/files/listing.js';

/** @typedef {import('../../../console/files/listing.js').SortKey} SortKey */

const utf8 = new TextEncoder();

test('a listing is read, and payloads that are not listings are refused', () => {
  const read = (/** @type {string} */ text) => parseListing(utf8.encode(text));
  for (const text of [
    '',
    'null',
    '5',
    '[]',
    '{}',
    '{"path":"a"}',
    '{"path":1,"entries":[]}',
    '{"path":"a","entries":{}}',
  ])
    assert.equal(read(text), null, text);
  assert.deepEqual(
    read('{"path":"","parent":5,"entries":[{"name":"C:","path":"C:\\\\","dir":true,"size":0,"mtime":0}]}'),
    { path: '', parent: '', entries: [{ name: 'C:', path: 'C:\\', dir: true, size: 0, mtime: 0 }] },
  );
});

test('folders come before files in every sort order', () => {
  /** @param {string} name @param {boolean} dir @param {number} size @param {number} mtime */
  const entry = (name, dir, size, mtime) => ({ name, path: name, dir, size, mtime });
  const entries = [
    entry('b', false, 2, 5),
    entry('z', true, 0, 1),
    entry('a10', false, 1, 18446744073709552000),
    entry('a9', false, 3, 7),
  ];
  const order = (/** @type {SortKey} */ by, /** @type {boolean} */ down) =>
    sorted(entries, by, down, 'en')
      .map(({ name }) => name)
      .join(' ');
  assert.equal(order('name', false), 'z a9 a10 b');
  assert.equal(order('name', true), 'z b a10 a9');
  assert.equal(order('size', true), 'z a9 b a10');
  assert.equal(order('mtime', false), 'z a10 b a9');
});
