// Clipboard payloads, paths, listings and the pace of uploads, as far as they need no browser.
import assert from 'node:assert/strict';
import test from 'node:test';
import { crumbs, join, lastPart, parentOf, windowsName } from '../../console/base/paths.js';
import {
  filesPayloadSize,
  packFiles,
  packImage,
  packText,
  parseClip,
  safeFileName,
} from '../../console/clipboard/payload.js';
import { Numbers, parseListing, sorted } from '../../console/files/listing.js';
import { Flow } from '../../console/files/upload_window.js';

const bytes = (...values) => Uint8Array.from(values);
const file = (name, ...content) => ({ name, bytes: bytes(...content) });
const utf8 = new TextEncoder();

test('a text is its kind and UTF-8, also when it is empty', () => {
  assert.deepEqual(packText('þ'), bytes(1, 0xc3, 0xbe));
  assert.deepEqual(parseClip(bytes(1)), { kind: 'text', text: '' });
  assert.deepEqual(parseClip(packText('\ufeffa\0b')), { kind: 'text', text: '\ufeffa\0b' });
  assert.equal(parseClip(bytes(1, 0xff, 0x61)).text, '\ufffda');
});

test('a picture is its kind and the file', () => {
  assert.deepEqual(packImage(bytes(9, 8)), bytes(2, 9, 8));
  assert.deepEqual([...parseClip(bytes(2, 9, 8)).png], [9, 8]);
});

test('a list of files is big-endian and comes back as it was', () => {
  const payload = packFiles([file('a', 1, 2), file('þ')]);
  assert.deepEqual(
    payload,
    bytes(
      3,
      0,
      0,
      0,
      2,
      0,
      0,
      0,
      1,
      0x61,
      0,
      0,
      0,
      0,
      0,
      0,
      0,
      2,
      1,
      2,
      0,
      0,
      0,
      2,
      0xc3,
      0xbe,
      0,
      0,
      0,
      0,
      0,
      0,
      0,
      0,
    ),
  );
  assert.equal(
    filesPayloadSize([
      { name: 'a', size: 2 },
      { name: 'þ', size: 0 },
    ]),
    payload.length,
  );
  // Also from the middle of other bytes, as a message has it.
  const inside = new Uint8Array([7, 7, ...payload, 7]).subarray(2, 2 + payload.length);
  assert.deepEqual(
    parseClip(inside).files.map(({ name, bytes: content }) => [name, [...content]]),
    [
      ['a', [1, 2]],
      ['þ', []],
    ],
  );
});

test('every truncation of a list gives the files that are complete', () => {
  const whole = packFiles([file('one', 1, 2, 3), file('two', 4, 5), file('three')]);
  const ends = [
    packFiles([file('one', 1, 2, 3)]).length,
    packFiles([file('one', 1, 2, 3), file('two', 4, 5)]).length,
    whole.length,
  ];
  for (let length = 1; length <= whole.length; length++) {
    const { kind, files } = parseClip(whole.subarray(0, length));
    assert.equal(kind, 'files');
    assert.equal(files.length, ends.filter((end) => end <= length).length, `cut to ${length}`);
  }
  assert.equal(parseClip(bytes()), null);
  for (const kind of [0, 4, 7, 255]) assert.equal(parseClip(bytes(kind, 1, 2)), null);
});

test('absurd counts and sizes end the list and take no memory', () => {
  const record = (length, size) => bytes(3, 0xff, 0xff, 0xff, 0xff, ...length, 0x61, ...size, 1, 2, 3);
  assert.equal(parseClip(record([0, 0, 0, 1], [0, 0, 0, 0, 0, 0, 0, 3])).files.length, 1);
  for (const size of [
    [0, 0, 0, 0, 0, 0, 0, 4],
    [0, 0, 0, 1, 0, 0, 0, 0],
    [0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff],
    [0x80, 0, 0, 0, 0, 0, 0, 0],
    [0, 0x20, 0, 0, 0, 0, 0, 1],
  ])
    assert.deepEqual(parseClip(record([0, 0, 0, 1], size)).files, []);
  for (const length of [
    [0xff, 0xff, 0xff, 0xff],
    [0x80, 0, 0, 0],
    [0, 0, 0, 200],
  ])
    assert.deepEqual(parseClip(record(length, [0, 0, 0, 0, 0, 0, 0, 0])).files, []);
});

test('a file of a list has no path and is passed over without a name', () => {
  const names = ['../../evil.txt', 'sub\\a.txt', '..', 'a/', '.', '', 'ok', 'C:\\x\\y', 'a\0b'];
  const { files } = parseClip(packFiles(names.map((name) => file(name, 1))));
  assert.deepEqual(
    files.map(({ name }) => name),
    ['evil.txt', 'a.txt', 'ok', 'y', 'a\0b'],
  );
  assert.equal(safeFileName('a/b\\c'), 'c');
});

test('paths follow the machine’s own rule upwards', () => {
  assert.equal(join('C:\\', 'a'), 'C:\\a');
  assert.equal(join('C:\\a', 'b'), 'C:\\a\\b');
  const above = {
    'C:\\Users\\Bob': 'C:\\Users',
    'C:\\Users': 'C:',
    'C:\\': '',
    'C:': '',
    x: '',
    '\\x': '',
    '': '',
    '\\\\srv\\share\\d': '\\\\srv\\share',
    'C:\\a\\': 'C:',
  };
  for (const [path, parent] of Object.entries(above)) assert.equal(parentOf(path), parent, path);
  assert.deepEqual(
    crumbs('C:\\Users\\Bob', 'C:\\Users').map(({ name, path }) => `${name}=${path}`),
    ['C:=C:', 'Users=C:\\Users', 'Bob=C:\\Users\\Bob'],
  );
  assert.deepEqual(
    crumbs('C:\\', '').map(({ name }) => name),
    ['C:'],
  );
  // A machine that names itself as its own parent, or something longer, makes no endless trail.
  assert.equal(crumbs('C:\\a', 'C:\\a').length, 1);
  assert.equal(crumbs('C:\\a', 'C:\\a\\b\\c').length, 1);
  assert.equal(lastPart('C:\\'), 'C:');
});

test('local names become ones that Windows can have', () => {
  const made = {
    'a.txt': 'a.txt',
    'a:b': 'a_b',
    '..\\..\\evil': '.._.._evil',
    'x.': 'x_',
    '..': '__',
    nul: '_nul',
    'COM1.txt': '_COM1.txt',
    CONSOLE: 'CONSOLE',
    '': '_',
    'þjóð 😀’.txt': 'þjóð 😀’.txt',
    'a\nb': 'a_b',
  };
  for (const [name, wanted] of Object.entries(made)) assert.equal(windowsName(name), wanted, name);
  assert.equal(windowsName('x'.repeat(400)).length, 255);
});

test('listings are read however odd they are', () => {
  const read = (text) => parseListing(utf8.encode(text));
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

test('sizes, times and durations are told in few characters', () => {
  const numbers = new Numbers('en-GB', 'UTC');
  const sizes = {
    0: '0 B',
    999: '999 B',
    1000: '1 kB',
    1234: '1.23 kB',
    12345: '12.3 kB',
    123456: '123 kB',
    999_499: '999 kB',
    999_999: '1 MB',
    5_000_000_000: '5 GB',
    18446744073709552000: '18.4 EB',
  };
  for (const [bytesOf, text] of Object.entries(sizes)) assert.equal(numbers.size(Number(bytesOf)), text);
  assert.equal(numbers.time(1_600_000_000), '13/09/2020, 12:26');
  for (const none of [0, -1, 18446744073709552000, 253402300800, NaN]) assert.equal(numbers.time(none), '');
  assert.deepEqual(
    [0, 59.2, 61, 3600, 36061].map((seconds) => numbers.duration(seconds)),
    ['0:00', '1:00', '1:01', '1:00:00', '10:01:01'],
  );
});

test('folders stay first in every order', () => {
  const entry = (name, dir, size, mtime) => ({ name, path: name, dir, size, mtime });
  const entries = [
    entry('b', false, 2, 5),
    entry('z', true, 0, 1),
    entry('a10', false, 1, 18446744073709552000),
    entry('a9', false, 3, 7),
  ];
  const order = (by, down) =>
    sorted(entries, by, down, 'en')
      .map(({ name }) => name)
      .join(' ');
  assert.equal(order('name', false), 'z a9 a10 b');
  assert.equal(order('name', true), 'z b a10 a9');
  assert.equal(order('size', true), 'z a9 b a10');
  assert.equal(order('mtime', false), 'z a10 b a9');
});

test('uploads keep no more under way than the road takes in a moment', async () => {
  let now = 0;
  const flow = new Flow(() => now);
  const chunk = 256 * 1024;
  const pings = [];
  let arrived = 0;
  const send = () =>
    pings.push(
      flow.sent(chunk, () => {
        arrived += 1;
      }),
    );
  for (let i = 0; i < 4; i++) send();
  let free = false;
  const waiting = flow.room().then(() => {
    free = true;
  });
  await Promise.resolve();
  assert.equal(free, false, 'a megabyte is under way');
  now = 5000;
  flow.pong(pings.shift());
  await Promise.resolve();
  assert.equal(arrived, 1);
  assert.equal(flow.limit, 512 * 1024, 'a slow road narrows');
  for (let i = 0; i < 3; i++) flow.pong(pings.shift());
  await waiting;
  assert.equal(flow.limit, chunk, 'but to one chunk at the least');
  for (let i = 0; i < 40; i++) {
    send();
    flow.pong(pings.shift());
  }
  assert.equal(flow.limit, 4 * 1024 * 1024, 'and a fast one widens to a bound');
  flow.pong(12345);
  flow.pong('x');
  send();
  flow.reset();
  await flow.room();
  assert.equal(flow.open, 0);
});
