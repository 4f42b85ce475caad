// Clipboard payloads: their exact bytes.
import assert from 'node:assert/strict';
import test from 'node:test';
import {
  filesPayloadSize,
  packFiles,
  packImage,
  packText,
  parseClip,
  safeFileName,
} from '../../../console/clipboard/payload.js';

/** @typedef {import('../../../console/clipboard/payload.js').ClipFile} ClipFile */

/** The parsed payload; only the property of its kind is set. */
const parsed = (/** @type {Uint8Array<ArrayBuffer>} */ payload) =>
  /** @type {{kind: string, text: string, png: Uint8Array, files: ClipFile[]}} */ (
    /** @type {unknown} */ (parseClip(payload))
  );
const bytes = (/** @type {number[]} */ ...values) => Uint8Array.from(values);
const file = (/** @type {string} */ name, /** @type {number[]} */ ...content) => ({
  name,
  bytes: bytes(...content),
});

test('the payload of a text is the kind and UTF-8, also when the text is empty', () => {
  assert.deepEqual(packText('þ'), bytes(1, 0xc3, 0xbe));
  assert.deepEqual(parseClip(bytes(1)), { kind: 'text', text: '' });
  assert.deepEqual(parseClip(packText('\ufeffa\0b')), { kind: 'text', text: '\ufeffa\0b' });
  assert.equal(parsed(bytes(1, 0xff, 0x61)).text, '\ufffda');
});

test('the payload of a picture is the kind and the PNG file', () => {
  assert.deepEqual(packImage(bytes(9, 8)), bytes(2, 9, 8));
  assert.deepEqual([...parsed(bytes(2, 9, 8)).png], [9, 8]);
});

test('a list of files is written with big-endian numbers and read back unchanged', () => {
  const payload = packFiles([file('a', 1, 2), file('þ')]);
  const expected = '03 00000002 00000001 61 0000000000000002 0102' + '00000002 c3be 0000000000000000';
  assert.equal(Buffer.from(payload).toString('hex'), expected.replaceAll(' ', ''));
  assert.equal(
    filesPayloadSize([
      { name: 'a', size: 2 },
      { name: 'þ', size: 0 },
    ]),
    payload.length,
  );
  // The payload is read from the middle of a buffer, as in a message.
  const inside = new Uint8Array([7, 7, ...payload, 7]).subarray(2, 2 + payload.length);
  assert.deepEqual(
    parsed(inside).files.map(({ name, bytes: content }) => [name, [...content]]),
    [
      ['a', [1, 2]],
      ['þ', []],
    ],
  );
});

test('from a list that is cut short at any length, the complete files are read', () => {
  const whole = packFiles([file('one', 1, 2, 3), file('two', 4, 5), file('three')]);
  const ends = [
    packFiles([file('one', 1, 2, 3)]).length,
    packFiles([file('one', 1, 2, 3), file('two', 4, 5)]).length,
    whole.length,
  ];
  for (let length = 1; length <= whole.length; length++) {
    const { kind, files } = parsed(whole.subarray(0, length));
    assert.equal(kind, 'files');
    assert.equal(files.length, ends.filter((end) => end <= length).length, `cut to ${length}`);
  }
  assert.equal(parseClip(bytes()), null);
  for (const kind of [0, 4, 7, 255]) assert.equal(parseClip(bytes(kind, 1, 2)), null);
});

test('a count or size that exceeds the payload ends the list without allocating memory', () => {
  const record = (/** @type {number[]} */ length, /** @type {number[]} */ size) =>
    bytes(3, 0xff, 0xff, 0xff, 0xff, ...length, 0x61, ...size, 1, 2, 3);
  assert.equal(parsed(record([0, 0, 0, 1], [0, 0, 0, 0, 0, 0, 0, 3])).files.length, 1);
  for (const size of [
    [0, 0, 0, 0, 0, 0, 0, 4],
    [0, 0, 0, 1, 0, 0, 0, 0],
    [0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff],
    [0x80, 0, 0, 0, 0, 0, 0, 0],
    [0, 0x20, 0, 0, 0, 0, 0, 1],
  ])
    assert.deepEqual(parsed(record([0, 0, 0, 1], size)).files, []);
  for (const length of [
    [0xff, 0xff, 0xff, 0xff],
    [0x80, 0, 0, 0],
    [0, 0, 0, 200],
  ])
    assert.deepEqual(parsed(record(length, [0, 0, 0, 0, 0, 0, 0, 0])).files, []);
});

test('paths are removed from the names of files, and files without a name are left out', () => {
  const names = ['../../evil.txt', 'sub\\a.txt', '..', 'a/', '.', '', 'ok', 'C:\\x\\y', 'a\0b'];
  const { files } = parsed(packFiles(names.map((name) => file(name, 1))));
  assert.deepEqual(
    files.map(({ name }) => name),
    ['evil.txt', 'a.txt', 'ok', 'y', 'a\0b'],
  );
  assert.equal(safeFileName('a/b\\c'), 'c');
});
