// Thumbnail messages, and the list of monitors that results from them.

import assert from 'node:assert/strict';
import test from 'node:test';
import { MonitorList, parseThumbnail } from '../../../console/session/displays/thumbnails.js';
import { present } from '../support/present.mjs';

const bytes = (/** @type {number[]} */ ...values) => Uint8Array.from(values);

test('thumbnails are read, and payloads without a picture are refused', () => {
  const one = present(parseThumbnail(bytes(1, 3, 0x40, 1, 0xb4, 0, 0xff, 0xd8)));
  assert.deepEqual([one.monitor, one.count, one.width, one.height], [1, 3, 320, 180]);
  for (let length = 0; length <= 6; length++) assert.equal(parseThumbnail(new Uint8Array(length)), null);
  assert.equal(parseThumbnail(bytes(0, 1, 0, 0, 1, 0, 1)), null);
  const list = new MonitorList();
  list.add(one);
  assert.equal(list.entries().length, 3);
});
