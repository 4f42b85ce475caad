// Envelopes: the exact bytes between console and machine.

import assert from 'node:assert/strict';
import test from 'node:test';
import { decodeEnvelope, encodeEnvelope, encodeJson, readJson } from '../../../console/link/envelope.js';
import { Msg } from '../../../console/link/messages.js';
import { present } from '../support/present.mjs';

const bytes = (/** @type {number[]} */ ...values) => Uint8Array.from(values);

test('an envelope is ten big-endian header bytes and the payload', () => {
  assert.deepEqual(encodeEnvelope(86, 0x01020304, bytes(9, 8)), bytes(86, 0, 1, 2, 3, 4, 0, 0, 0, 2, 9, 8));
  const json = encodeJson(Msg.CursorVisibility, 1, { show: 0 });
  assert.equal(json[1], 1);
  assert.equal(new TextDecoder().decode(json.subarray(10)), '{"show":0}');
  assert.throws(() => encodeEnvelope(1, 1, new Uint8Array(0x800001)), RangeError);
});

test('an envelope that is cut short is refused, and excess bytes are ignored', () => {
  const whole = encodeEnvelope(83, 7, bytes(1, 2, 3));
  for (let length = 0; length < whole.length; length++)
    assert.equal(decodeEnvelope(whole.slice(0, length).buffer), null);
  const decoded = present(decodeEnvelope(bytes(...whole, 99).buffer));
  assert.deepEqual([decoded.type, decoded.session, [...decoded.payload]], [83, 7, [1, 2, 3]]);
  for (const text of ['', '[]', 'null', '5', '{'])
    assert.equal(readJson(new TextEncoder().encode(text)), null);
});
