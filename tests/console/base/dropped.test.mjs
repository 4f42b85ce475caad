// The files of a drop, with objects that stand in for those of the browser: a script cannot create a dropped
// folder.
import assert from 'node:assert/strict';
import { File } from 'node:buffer';
import test from 'node:test';
import { droppedFiles } from '../../../console/base/dropped.js';

const file = (/** @type {string} */ name) => ({
  isDirectory: false,
  name,
  file: (/** @type {(file: File) => void} */ done) => done(new File(['x'], name)),
});

/** A folder that lists one entry at each call. @param {string} name @param {object[]} entries */
const folder = (name, entries) => ({
  isDirectory: true,
  name,
  createReader: () => ({
    readEntries: (/** @type {(entries: object[]) => void} */ done) => done(entries.splice(0, 1)),
  }),
});

test('the files of a dropped folder are found with the path of their folders', async () => {
  const top = folder('top', [file('1'), folder('sub', [file('2')]), file('3')]);
  const item = { kind: 'file', getAsFile: () => null, webkitGetAsEntry: () => top };
  const data = /** @type {DataTransfer} */ (/** @type {unknown} */ ({ items: [item] }));
  const found = await droppedFiles(data);
  assert.deepEqual(
    found.map((one) => one.path + one.file.name),
    ['top/1', 'top/sub/2', 'top/3'],
  );
});
