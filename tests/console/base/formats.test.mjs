// Sizes, times, durations and ages as the page shows them.
import assert from 'node:assert/strict';
import test from 'node:test';
import { age, duration, Formats } from '../../../console/base/formats.js';

test('sizes have three significant digits, and times and durations have a short form', () => {
  const formats = new Formats('en-GB', 'UTC');
  const sizes = {
    0: '0 B',
    999: '999 B',
    1000: '1 kB',
    1234: '1.23 kB',
    12345: '12.3 kB',
    123456: '123 kB',
    999499: '999 kB',
    999999: '1 MB',
    5000000000: '5 GB',
    18446744073709552000: '18.4 EB',
  };
  for (const [bytesOf, text] of Object.entries(sizes)) assert.equal(formats.size(Number(bytesOf)), text);
  assert.equal(formats.time(1_600_000_000), '13/09/2020, 12:26');
  for (const none of [0, -1, 18446744073709552000, 253402300800, NaN]) assert.equal(formats.time(none), '');
  assert.deepEqual(
    [0, 59.2, 61, 3600, 36061].map((seconds) => duration(seconds)),
    ['0:00', '1:00', '1:01', '1:00:00', '10:01:01'],
  );
});

test('an age is a count of the largest whole unit', () => {
  assert.deepEqual(age(0, 59), { unit: 'now', count: 0 });
  assert.deepEqual(age(0, 60), { unit: 'minute', count: 1 });
  assert.deepEqual(age(0, 7300), { unit: 'hour', count: 2 });
  assert.deepEqual(age(0, 86400), { unit: 'day', count: 1 });
  assert.deepEqual(age(10, 0), { unit: 'now', count: 0 });
});
