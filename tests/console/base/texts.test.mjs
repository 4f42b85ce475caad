// The tables of texts: all languages have the same keys, and the page names only texts that exist.
import assert from 'node:assert/strict';
import { readdirSync, readFileSync } from 'node:fs';
import test from 'node:test';
import { english as accountEnglish } from '../../../console/account/texts/english.js';
import { icelandic as accountIcelandic } from '../../../console/account/texts/icelandic.js';
import { english as adminEnglish } from '../../../console/admin/texts/english.js';
import { icelandic as adminIcelandic } from '../../../console/admin/texts/icelandic.js';
import { textsFor } from '../../../console/base/texts.js';
import { english } from '../../../console/base/texts_en.js';
import { icelandic } from '../../../console/base/texts_is.js';

const CONSOLE = new URL('../../../console/', import.meta.url);
/** The tables in both languages, and where the scripts are that use them. @type {[object, object, string][]} */
const TABLES = [
  [english, icelandic, ''],
  [accountEnglish, accountIcelandic, 'account/'],
  [adminEnglish, adminIcelandic, 'admin/'],
];

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
  for (const [one, other] of TABLES) assert.deepEqual(shape(other), shape(one));
});

test('every text differs between the two languages', () => {
  for (const [table, twin] of TABLES) {
    const other = new Map(Object.entries(twin));
    const same = Object.entries(table).filter(
      ([key, text]) => typeof text === 'string' && text === other.get(key),
    );
    assert.deepEqual(same, []);
  }
});

test('the page names only texts that exist, and every text is used', () => {
  const table = /** @type {Record<string, unknown>} */ (english);
  const page = readFileSync(new URL('index.html', CONSOLE), 'utf8');
  const named = [...page.matchAll(/data-(?:text|label|hint|placeholder)="(\w+)"/g)].map((found) => found[1]);
  for (const name of named) assert.equal(typeof table[name], 'string', name);
  for (const [texts, , folder] of TABLES) {
    const scripts = readdirSync(CONSOLE, { recursive: true, encoding: 'utf8' })
      .filter(
        (name) => name.endsWith('.js') && name.startsWith(folder) && !/^base\/texts|\/texts\//.test(name),
      )
      .map((name) => readFileSync(new URL(name, CONSOLE), 'utf8'))
      .join('\n');
    const unused = Object.keys(texts).filter(
      (key) =>
        key !== 'language' && !named.includes(key) && !new RegExp(`(texts|own)\\.${key}\\b`).test(scripts),
    );
    assert.deepEqual(unused, [], folder);
  }
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

test('each kind of event in the trail, and each of its fields, has a name', () => {
  const kinds = readFileSync(new URL('../relay/storage/trail/kinds.def', CONSOLE), 'utf8');
  const found = [...kinds.matchAll(/^TRAIL_KIND\(\w+, "([^"]+)", "([^"]*)"\)/gm)];
  assert.deepEqual(found.map(([, code]) => code).sort(), Object.keys(adminEnglish.trail.kinds).sort());
  const fields = new Set(found.flatMap(([, , names]) => names.split(' ').filter(Boolean)));
  assert.deepEqual([...fields].sort(), Object.keys(adminEnglish.trail.fields).sort());
});
