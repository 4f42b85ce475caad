// The size that a JPEG file declares.
import assert from 'node:assert/strict';
import test from 'node:test';
import { isDrawable, jpegSize } from '../../../console/picture/jpeg.js';

const bytes = (/** @type {number[]} */ ...values) => Uint8Array.from(values);

test('the size of a JPEG file is read, and files that are too large are not decoded', () => {
  const jpeg = bytes(0xff, 0xd8, 0xff, 0xc0, 0, 17, 8, 2, 0xd0, 5, 0, 3);
  assert.deepEqual(jpegSize(jpeg), { width: 1280, height: 720 });
  assert.equal(isDrawable(bytes(0xff, 0xd8, 0xff, 0xc0, 0, 17, 8, 0xff, 0xff, 0xff, 0xff, 3)), false);
  for (let length = 0; length < jpeg.length - 1; length++)
    assert.equal(jpegSize(jpeg.subarray(0, length)), null);
});
