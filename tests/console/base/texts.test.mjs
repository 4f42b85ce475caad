// The tables of texts: all languages have the same keys, and the page names only texts that exist.
import assert from 'node:assert/strict';
import { readdirSync, readFileSync } from 'node:fs';
import test from 'node:test';
import { textsFor } from '../../../console/base/texts.js';
import { english } from '../../../console/base/texts_en.js';
import { icelandic } from '../../../console/base/texts_is.js';

const CONSOLE = new URL('../../../console/', import.meta.url);

/**
 * The keys of a table, each with the kind of its text.
 * @param {object} table
 * @param {string} [path]
 * @returns {string[]}
 */
function shape(table, path = '') {
  return Object.entries(table)
    .flatMap(([key, value]) =>
      value && typeof value === 'object'
        ? shape(value, `${path}${key}.`)
        : [`${path}${key}: ${typeof value === 'function' ? `text of ${value.length}` : typeof value}`],
    )
    .sort();
}

test('both languages have the same keys', () => {
  assert.deepEqual(shape(icelandic), shape(english));
});

test('every text differs between the two languages', () => {
  const other = new Map(Object.entries(icelandic));
  const same = Object.entries(english).filter(
    ([key, text]) => typeof text === 'string' && text === other.get(key),
  );
  assert.deepEqual(same, []);
});

test('the page names only texts that exist, and every text is used', () => {
  const table = /** @type {Record<string, unknown>} */ (english);
  const page = readFileSync(new URL('index.html', CONSOLE), 'utf8');
  const named = [...page.matchAll(/data-(?:text|label|hint|placeholder)="(\w+)"/g)].map((found) => found[1]);
  for (const name of named) assert.equal(typeof table[name], 'string', name);
  const scripts = readdirSync(CONSOLE, { recursive: true, encoding: 'utf8' })
    .filter((name) => name.endsWith('.js') && !name.startsWith('base/texts'))
    .map((name) => readFileSync(new URL(name, CONSOLE), 'utf8'))
    .join('\n');
  const unused = Object.keys(english).filter(
    (key) => key !== 'language' && !named.includes(key) && !scripts.includes(`texts.${key}`),
  );
  assert.deepEqual(unused, []);
});

test('the page uses the first of the browser’s languages that has a table of texts', () => {
  assert.equal(textsFor(['de', 'is-IS', 'en']).language, 'is');
  assert.equal(textsFor(['EN-us', 'is']).language, 'en');
  assert.equal(textsFor(['isx']).language, 'en');
  assert.equal(textsFor([]).language, 'en');
});

test('Icelandic nouns are in the singular after 1, 21 and 101, but not after 11', () => {
  assert.equal(icelandic.machineCount(1, 1), '1 tölva, 1 nettengd');
  assert.equal(icelandic.machineCount(11, 21), '11 tölvur, 21 nettengd');
  assert.equal(icelandic.lastSeen('minute', 1), 'síðast tengd fyrir 1 mínútu');
  assert.equal(icelandic.lastSeen('hour', 11), 'síðast tengd fyrir 11 klukkustundum');
  assert.equal(icelandic.lastSeen('now', 0), 'síðast tengd rétt í þessu');
  assert.equal(english.lastSeen('day', 2), 'last seen 2 days ago');
});
