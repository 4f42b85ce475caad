// The judgement whether a transfer is complete, from the machine's listings.
import assert from 'node:assert/strict';
import test from 'node:test';
import { arrivalOf, completenessOf } from '../../../../console/files/transfers/arrival.js';

const entry = (/** @type {number} */ size, /** @type {number} */ mtime, dir = false) => ({
  name: 'a',
  path: 'C:\\a',
  dir,
  size,
  mtime,
});

test('an upload arrived when the size is right and the file is not the one that was there before', () => {
  const cases = /** @type {const} */ ([
    [undefined, undefined, 'notThere'],
    [undefined, entry(5, 1, true), 'notThere'],
    [undefined, entry(5, 1), ''],
    [undefined, entry(4, 1), 'cutShort'],
    [entry(5, 1), entry(5, 1), 'notReplaced'],
    [entry(9, 1), entry(9, 1), 'notReplaced'],
    [entry(5, 1), entry(5, 2), ''],
    [entry(9, 1), entry(5, 1), ''],
    [entry(9, 1), entry(4, 2), 'cutShort'],
    [entry(9, 1), undefined, 'notThere'],
  ]);
  for (const [before, after, remark] of cases)
    assert.deepEqual(arrivalOf(5, before, after), { state: remark ? 'failed' : 'done', remark });
});

test('a download of another size is complete only when the machine’s file has changed accordingly', () => {
  const cases = /** @type {const} */ ([
    [1000, undefined, 'otherSize'],
    [1000, entry(1234, 1), 'otherSize'],
    [1000, entry(1000, 1), 'fileChanged'],
    [2000, entry(2000, 1), 'fileChanged'],
    [2000, entry(3000, 1), 'fileChanged'],
    [2000, entry(1234, 1), 'otherSize'],
  ]);
  for (const [received, after, remark] of cases)
    assert.equal(completenessOf(received, 1234, after).remark, remark, `${received} ${after?.size}`);
});
