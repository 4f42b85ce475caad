// The page of the trail, and which pages each role sees.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import test from 'node:test';
import { Api, addGroup, addPerson, administrator } from '../support/admin/api.mjs';
import { pageOf, SIZES } from '../support/admin/page.mjs';
import { fixture, machineAndPage } from '../support/fixture.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */
/** @typedef {{id: number, code: string, actor: string, fields: Record<string, unknown>}} Row */

const shared = fixture([], {}, fill);
const at = '#admin/trail';
const PAGE = 100;

/** Causes more events than two pages show. @param {import('../support/fixture.mjs').Shared} shared */
async function fill({ relay }) {
  const api = await administrator(relay);
  for (let i = 0; i < 140; i++) {
    await api.send('PATCH', 'settings', { retention_days: 1000 + i });
    if (i % 2 === 0) await addGroup(relay, { name: `Engine room ${i}.` });
  }
}

/** The rows of the trail that a filter lets through, newest first. @returns {Promise<Row[]>} */
async function stored(query = '') {
  const api = await administrator(shared.relay);
  /** @type {Row[]} */
  const all = [];
  for (;;) {
    const last = all.length ? `before=${all[all.length - 1].id}` : '';
    const { rows, more } = await api.get(`trail?${query}&${last}`);
    all.push(...rows);
    if (!more) return all;
  }
}

/** Waits until the page shows exactly these rows. @param {Page} p @param {Row[]} rows */
const shows = (p, rows) =>
  until(`${rows.length} rows`, async () => {
    const keys = await p
      .locator('tbody tr')
      .evaluateAll((found) => found.map((one) => Number(/** @type {HTMLElement} */ (one).dataset.key)));
    assert.deepEqual(
      keys,
      rows.map(({ id }) => id),
    );
    return true;
  });

/** The content of the file that a link leads to. @param {Page} p @param {string} name */
async function downloaded(p, name) {
  const [download] = await Promise.all([
    p.waitForEvent('download'),
    p.getByRole('link', { name, exact: true }).click(),
  ]);
  return { file: download.suggestedFilename(), text: readFileSync(await download.path(), 'utf8') };
}

test('the trail is shown in pages, and the address leads back to each', async (t) => {
  const all = await stored();
  assert.ok(all.length > 2 * PAGE && all.length < 3 * PAGE);
  const last = Math.floor((all.length - 1) / PAGE) * PAGE;
  const { p } = await pageOf(t, shared, { at, ...SIZES.phone });
  for (let from = 0; from <= last; from += PAGE) {
    await shows(p, all.slice(from, from + PAGE));
    if (from < last) await p.getByRole('link', { name: 'Older' }).click();
  }
  assert.equal(await p.getByRole('link', { name: 'Older' }).count(), 0);
  await p.goBack();
  await shows(p, all.slice(last - PAGE, last));
  await p.reload();
  await shows(p, all.slice(last - PAGE, last));
  await p.getByRole('link', { name: 'Newest' }).click();
  await shows(p, all.slice(0, PAGE));
});

test('a filter limits the events, and the exports contain the same events', async (t) => {
  const { page, p } = await pageOf(t, shared, { at });
  await shows(p, (await stored()).slice(0, PAGE));
  await p.getByLabel('Person', { exact: true }).fill('Sigga');
  await p.getByLabel('Kind').selectOption({ label: 'Group added' });
  await p.getByRole('button', { name: 'Show' }).click();
  const wanted = await stored('person=Sigga&kind=group.added');
  assert.equal(wanted.length, 70);
  await shows(p, wanted);
  await page.shot('trail-filtered');
  const csv = await downloaded(p, 'Export as CSV');
  assert.equal(csv.file, 'trail.csv');
  const [head, ...lines] = csv.text.trim().split(/\r?\n/);
  assert.match(head, /\bid\b.*\bcode\b/);
  assert.equal(lines.length, wanted.length);
  for (const { fields } of wanted) assert.ok(csv.text.includes(String(fields.group)));
  const json = await downloaded(p, 'Export as JSON lines');
  assert.equal(json.file, 'trail.jsonl');
  const rows = json.text
    .trim()
    .split('\n')
    .map((line) => JSON.parse(line));
  const exported = rows.filter(({ code }) => code === 'group.added').map(({ id }) => id);
  assert.deepEqual(exported.sort(), wanted.map(({ id }) => id).sort());
  await p.reload();
  await shows(p, wanted);
  assert.equal(await p.getByLabel('Person', { exact: true }).inputValue(), 'Sigga');
  await p.getByLabel('Text', { exact: true }).fill('room 42.');
  await p.keyboard.press('Enter');
  await shows(
    p,
    wanted.filter(({ fields }) => fields.group === 'Engine room 42.'),
  );
  await p.getByRole('button', { name: 'Clear' }).click();
  await shows(p, (await stored()).slice(0, PAGE));
});

test('a search that the relay has ended early goes on until the page is full', async (t) => {
  const rows = await stored('kind=group.added');
  const { p } = await pageOf(t, shared);
  const early = new Map([
    [null, { rows: [], next: rows[0].id }],
    [String(rows[0].id), { rows: [], next: rows[1].id }],
    [String(rows[1].id), { rows: rows.slice(0, 3), next: rows[2].id }],
  ]);
  // The page may begin the search twice: when it has learnt who is logged in, and for the new address.
  /** @type {Set<string | null>} */
  const asked = new Set();
  await p.route(/\/api\/trail\?/, async (route) => {
    const before = new URL(route.request().url()).searchParams.get('before');
    asked.add(before);
    const answer = early.get(before);
    if (answer) return route.fulfill({ json: { ...answer, more: true } });
    await route.fallback();
  });
  await p.goto(`${shared.relay.url}${at}?kind=group.added`);
  await shows(p, rows);
  assert.deepEqual([...asked], [null, ...rows.slice(0, 3).map(({ id }) => String(id))]);
  assert.equal(await p.getByRole('link', { name: 'Older' }).count(), 0);
});

test('what a person types into a name stays text in the trail', async (t) => {
  await addGroup(shared.relay, { name: '<img src=x>, =1+1' });
  const { p } = await pageOf(t, shared, { at: `${at}?text=img` });
  await p.locator('tbody tr').first().getByText('<img src=x>, =1+1').waitFor();
  assert.equal(await p.locator('tbody img').count(), 0);
});

test('the machine of an event leads to all its events', async (t) => {
  const { agent } = await machineAndPage(t, shared);
  const { p } = await pageOf(t, shared, { at });
  await p.locator(`tbody a[href$="machine=${agent.id}"]`).first().click();
  await shows(p, await stored(`machine=${agent.id}`));
  assert.equal(await p.getByLabel('Machine’s id').inputValue(), agent.id);
  await p.locator('tbody tr').filter({ hasText: 'Machine enrolled' }).waitFor();
});

test('a filter by time uses the times of this computer', async (t) => {
  const { p } = await pageOf(t, shared, { at, timezoneId: 'America/St_Johns' });
  const rows = (await stored()).slice(0, PAGE);
  await shows(p, rows);
  const show = async (/** @type {'From' | 'To'} */ end, /** @type {number} */ hours) => {
    const local = await p.evaluate(
      (ms) => {
        const shifted = new Date(ms - new Date(ms).getTimezoneOffset() * 60_000);
        return shifted.toISOString().slice(0, 16);
      },
      Date.now() + hours * 3_600_000,
    );
    await p.getByRole('button', { name: 'Clear' }).click();
    await shows(p, rows);
    await p.getByLabel(end, { exact: true }).fill(local);
    await p.getByRole('button', { name: 'Show' }).click();
    assert.equal(await p.getByLabel(end, { exact: true }).inputValue(), local);
  };
  const none = p.getByText('No event matches.');
  await show('To', -1);
  await none.waitFor();
  await show('From', 1);
  await none.waitFor();
  await show('From', -1);
  await shows(p, rows);
});

test('an auditor sees the trail and the own account, and nothing else', async (t) => {
  const who = await addPerson(shared.relay, { name: 'Guðrún', role: 'auditor' });
  const { p } = await pageOf(t, shared, { who });
  let sockets = 0;
  p.on('websocket', () => sockets++);
  await p.reload();
  await shows(p, (await stored()).slice(0, PAGE));
  assert.equal(await p.locator('#pages-nav').isVisible(), false);
  assert.equal(await p.locator('#pages-back').isVisible(), false);
  await p.goto(`${shared.relay.url}#admin/people`);
  await p.locator('tbody tr').first().waitFor();
  await p.getByRole('heading', { level: 1, name: 'Trail' }).waitFor();
  await p.getByRole('link', { name: 'Guðrún' }).click();
  await p.getByRole('heading', { name: 'Your account' }).waitFor();
  assert.equal(sockets, 0, 'an auditor has no list of machines');
});

test('a log-in that has ended leads from a page to the log-in', async (t) => {
  const who = await addPerson(shared.relay, { role: 'auditor' });
  const { p } = await pageOf(t, shared, { who, at });
  await p.getByRole('link', { name: 'Older' }).waitFor();
  await (await administrator(shared.relay)).post(`people/${who.id}/end-logins`);
  await p.getByRole('link', { name: 'Older' }).click();
  await p.locator('#login-error').filter({ hasText: 'log-in has ended' }).waitFor();
});

test('a representative may not read the trail', async () => {
  const who = await addPerson(shared.relay);
  const api = await Api.loggedIn(shared.relay, who);
  await assert.rejects(api.get('trail'), { status: 403 });
  await assert.rejects(api.get('trail/export?format=csv'), { status: 403 });
});
