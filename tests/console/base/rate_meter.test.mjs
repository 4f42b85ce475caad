// Rates over a sliding window.
import assert from 'node:assert/strict';
import test from 'node:test';
import { RateMeter } from '../../../console/base/rate_meter.js';

test('rates are measured over the last two seconds', () => {
  let now = 0;
  const meter = new RateMeter(() => now);
  for (let i = 0; i < 30; i++) {
    now += 100;
    meter.add(1000);
  }
  const { framesPerSecond, kilobytesPerSecond } = meter.read();
  assert.ok(Math.abs(framesPerSecond - 10) < 1 && Math.abs(kilobytesPerSecond - 10) < 1);
  now += 2001;
  assert.deepEqual(meter.read(), { framesPerSecond: 0, kilobytesPerSecond: 0 });
});
