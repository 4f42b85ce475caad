// Windows paths and file names.
import assert from 'node:assert/strict';
import test from 'node:test';
import { crumbs, folderOf, join, lastPart, parentOf, windowsName } from '../../../console/base/paths.js';

test('the parent folder of a path is the same as in the agent', () => {
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
  // A folder that names itself or a longer path as its parent ends the list.
  assert.equal(crumbs('C:\\a', 'C:\\a').length, 1);
  assert.equal(crumbs('C:\\a', 'C:\\a\\b\\c').length, 1);
  assert.equal(lastPart('C:\\'), 'C:');
});

test('local names are changed to names that Windows accepts', () => {
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
  assert.equal(windowsName(`${'x'.repeat(254)}😀.txt`), 'x'.repeat(254), 'no character is cut in half');
  assert.equal(windowsName(`${'x'.repeat(253)}😀.txt`), `${'x'.repeat(253)}😀`);
});

test('the folder of a file is named as the machine lists it', () => {
  assert.equal(folderOf('C:\\a.txt'), 'C:\\');
  assert.equal(folderOf('C:\\Users\\a.txt'), 'C:\\Users');
});
