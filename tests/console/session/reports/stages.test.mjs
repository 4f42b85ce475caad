// The stages of the way of the pictures, which the status line opens.
import assert from 'node:assert/strict';
import test from 'node:test';
import { shownReport } from '../../../../console/session/reports/stages/shown_reports.js';
import { readReport, remarkOn, rowsOf } from '../../../../console/session/reports/stages/stages.js';
import { english, icelandic } from '../../../../console/session/reports/stages/texts.js';
import { administrator } from '../../support/admin/api.mjs';
import { fixture, openSession } from '../../support/fixture.mjs';
import { hasFocus } from '../../support/focus.mjs';
import { plain } from '../../support/pictures.mjs';
import { until } from '../../support/waiting.mjs';

const shared = fixture();
const STAGES = { machine: 0.4, to_relay: 20.4, relay: 1.4, to_browser: 30.4, decoder: 4.4, screen: 8.4 };
const REPORT = { stages: STAGES, queue: 0, file: false, dropped: 0, still: '', asked: '' };

/** A session whose machine sends twenty pictures a second until the test ends. */
async function streaming(/** @type {import('node:test').TestContext} */ t, options = {}) {
  const parts = await openSession(t, shared, options);
  const jpeg = plain(640, 360, '#406080');
  const stop = setInterval(() => parts.agent.frame(jpeg), 50);
  t.after(() => clearInterval(stop));
  const line = parts.page.page.locator('#status-line');
  // Without a text the line is not visible and cannot have the focus; the first text can come later than the picture.
  await line.waitFor();
  return {
    ...parts,
    line,
    panel: parts.page.page.locator('#stages'),
  };
}

/** The names and numbers of the opened panel. @param {import('playwright-core').Locator} panel */
const shownRows = (panel) =>
  panel.locator('dl div').evaluateAll((rows) =>
    rows.map((row) => ({
      name: row.querySelector('dt')?.textContent,
      ms: Number.parseInt(row.querySelector('dd')?.textContent ?? '', 10),
    })),
  );

test('the shown numbers add up', () => {
  const rows = rowsOf(STAGES);
  assert.deepEqual(
    rows.map(({ ms }) => ms),
    [0, 20, 1, 30, 4, 8, 63],
  );
});

test('a report is read only if it is complete', () => {
  assert.deepEqual(readReport(REPORT), REPORT);
  assert.deepEqual(readReport({ ...REPORT, stages: null }), { ...REPORT, stages: null });
  assert.equal(readReport({ ...REPORT, stages: { ...STAGES, screen: null } }), null);
  assert.equal(readReport({ ...REPORT, queue: undefined }), null);
  assert.equal(readReport({ ...REPORT, still: 'silent' })?.still, 'silent');
  assert.equal(readReport({ ...REPORT, still: 'follows' })?.still, '');
  const asked = { max_fps: 30, bitrate: 750_000 };
  assert.equal(
    readReport({ ...REPORT, preset: 'sharp', asked })?.asked,
    'Sharp: at most 30 frames/s and 0.75 Mbit/s.',
  );
});

test('a queue of the machine is mentioned from one second on, with its cause', () => {
  assert.equal(remarkOn({ ...REPORT, queue: 999 }), '');
  assert.equal(remarkOn({ ...REPORT, queue: 3240, file: true }), english.fileQueue('3.2'));
  assert.equal(remarkOn({ ...REPORT, queue: 1000 }), english.lineQueue('1.0'));
  assert.equal(remarkOn({ ...REPORT, still: 'unchanged' }), english.still.unchanged);
  assert.equal(remarkOn({ ...REPORT, still: 'unchanged', queue: 1000 }), english.lineQueue('1.0'));
});

test('a report to the relay contains times in tenths of a millisecond', () => {
  const picture = { stamp: 5, received: 100.04, decoder: 3.1249, screen: 8 };
  assert.deepEqual(shownReport(9, [picture], 120.26), {
    type: 'shown',
    session: 9,
    at: 120.3,
    pictures: [[5, 20.2, 3.1, 8]],
  });
});

test('Icelandic counts twenty-one pictures as one', () => {
  assert.match(icelandic.dropped(21), /^21 mynd var/);
  assert.match(icelandic.dropped(11), /^11 myndum var/);
});

test('a click on the status line opens the stages, whose numbers add up, and another closes them', async (t) => {
  const { line, panel, page } = await streaming(t);
  assert.equal(await line.getAttribute('aria-expanded'), 'false');
  assert.equal(await panel.isVisible(), false);
  await line.click();
  assert.equal(await line.getAttribute('aria-expanded'), 'true');
  const rows = await until('the stages are shown', async () => {
    const found = await shownRows(panel);
    return found.length === 7 && found;
  });
  assert.deepEqual(
    rows.map(({ name }) => name),
    [...Object.values(english.stages), english.total],
  );
  const sum = rows.slice(0, -1).reduce((total, { ms }) => total + ms, 0);
  assert.equal(rows[6].ms, sum);
  assert.ok(rows[6].ms < 5000, `${rows[6].ms} ms`);
  await page.shot('stages');
  await line.click();
  assert.equal(await panel.isVisible(), false);
});

test('the stages open and close by keyboard, which then belongs to the picture again', async (t) => {
  const { line, panel, page } = await streaming(t);
  await hasFocus(page.page, 'key-input', 'after the start');
  await line.focus();
  await page.page.keyboard.press('Enter');
  assert.equal(await panel.isVisible(), true);
  assert.equal(await line.evaluate((element) => element === document.activeElement), true);
  await page.page.keyboard.press('Escape');
  assert.equal(await panel.isVisible(), false);
  assert.equal(await line.getAttribute('aria-expanded'), 'false');
  await page.page.keyboard.press('Enter');
  await page.page.keyboard.press('Enter');
  assert.equal(await panel.isVisible(), false);
  assert.equal(await page.page.evaluate(() => document.activeElement?.id), 'key-input');
});

test('the stages are in the administrators’ list of sessions and in the log', async (t) => {
  const { agent } = await streaming(t);
  const api = await administrator(shared.relay);
  const stages = await until('the list has the stages', async () => {
    const { sessions } = await api.get('sessions');
    return sessions.find(({ session }) => session === agent.session)?.picture?.stages;
  });
  assert.deepEqual(Object.keys(stages).sort(), Object.keys(STAGES).sort());
  const pattern = new RegExp(`session ${agent.session}: pictures are shown \\d+ ms after their capture`);
  await until('the log has the stages', () => pattern.test(shared.relay.log));
});

test('pictures that wait in the machine are mentioned in the status line', async (t) => {
  const { agent, page } = await openSession(t, shared, { page: { locale: 'is-IS' } });
  const line = page.page.locator('#status-line');
  const panel = page.page.locator('#stages');
  const jpeg = plain(640, 360, '#406080');
  // The machine's clock goes at half the speed, as if each picture had waited longer than the one before.
  const began = performance.now();
  const stop = setInterval(() => agent.frame(jpeg, Math.round((began + performance.now()) * 500)), 50);
  t.after(() => clearInterval(stop));
  const pattern = /Línan frá tölvunni er of hæg; myndir hennar bíða í \d+,\d s/;
  await until('the remark', async () => pattern.test(await line.innerText()));
  await line.click();
  await until('the remark in the panel', async () => pattern.test(await panel.innerText()));
  await page.shot('stages-icelandic');
});

test('the stages close with the session', async (t) => {
  const { line, panel, page } = await streaming(t);
  await line.click();
  await page.page.click('#session-end');
  await page.page.locator('#view-machines').waitFor();
  assert.equal(await panel.evaluate((element) => /** @type {HTMLElement} */ (element).hidden), true);
  await until('the line is empty', async () => (await line.innerText()) === '');
});
