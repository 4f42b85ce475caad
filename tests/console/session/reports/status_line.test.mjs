// The status line's round trip; the line itself is tested in page.test.mjs.
import assert from 'node:assert/strict';
import test from 'node:test';
import { wholeRoundTrip } from '../../../../console/session/reports/status_line.js';

test('the shown round trip is the sum of its two parts, and is unknown while either part is unknown', () => {
  assert.equal(wholeRoundTrip(10.4, 20), 30);
  assert.equal(wholeRoundTrip(10, null), null);
  assert.equal(wholeRoundTrip(null, 20), null);
});
