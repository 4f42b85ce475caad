// The page of the relay's status, and the warning before its certificate ends.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import test, { after } from 'node:test';
import { pageOf } from '../support/admin/page.mjs';
import { fixture } from '../support/fixture.mjs';
import { ScriptedAgent } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const folder = mkdtempSync(join(tmpdir(), 'vantelink-certificate-'));
after(() => rmSync(folder, { recursive: true, force: true }));
const [certificate, key] = [join(folder, 'cert.pem'), join(folder, 'key.pem')];

/** Replaces the relay's certificate with one that is valid for so many days. */
function certify(/** @type {number} */ days) {
  const kind = ['-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256', '-nodes'];
  const name = ['-subj', '/CN=localhost', '-addext', 'subjectAltName=DNS:localhost'];
  const files = ['-keyout', key, '-out', certificate];
  execFileSync('openssl', ['req', ...kind, ...name, '-days', String(days), ...files], { stdio: 'ignore' });
}
certify(12);
const shared = fixture(['--cert', certificate, '--key', key]);
const at = '#admin/status';

/** @param {import('playwright-core').Page} p @param {string} name */
const fact = (p, name) => p.locator('dt', { hasText: name }).locator('xpath=following-sibling::dd[1]');

test('the page shows how the relay is, and changes by itself', async (t) => {
  const { p } = await pageOf(t, shared, { at });
  await fact(p, 'Machines online').getByText('0', { exact: true }).waitFor();
  assert.match(await fact(p, 'Version').innerText(), /^\d+\.\d+\.\d+$/);
  assert.match(await fact(p, 'Large messages on their way').innerText(), /^0 B of 537 MB$/);
  assert.match(await fact(p, 'Last backup').innerText(), /^none recorded$/);
  assert.match(await fact(p, 'Free for the data folder').innerText(), /[MGT]B$/);
  const agent = await ScriptedAgent.online(shared.relay, { name: 'Ship' });
  t.after(() => agent.drop());
  await fact(p, 'Machines online').getByText('1', { exact: true }).waitFor();
});

test('the page shows the authority, and the warning names it when that is what ends', async (t) => {
  const { p } = await pageOf(t, shared, { at });
  assert.equal(await fact(p, 'Certificate authority valid until').count(), 0, 'an operator has another one');
  const ends = Math.floor(Date.now() / 1000) + 20.5 * 24 * 3600;
  await p.route('**/api/status', async (route) => {
    const response = await route.fetch();
    const json = await response.json();
    json.certificate.authority = { ends, ends_soon: true };
    await route.fulfill({ response, json });
  });
  await p.reload();
  await fact(p, 'Certificate authority valid until').getByText('ends soon').waitFor();
  await p
    .locator('#pages-warning')
    .getByText(/^The relay's certificate authority ends in 20 days \(/)
    .waitFor();
});

test('administrators are warned before the certificate ends, until there is a new one', async (t) => {
  const { p } = await pageOf(t, shared, { at: '#admin/people' });
  const warning = p.locator('#pages-warning');
  await warning.getByText(/^The relay's certificate ends in 11 days \(/).waitFor();
  const icelandic = await pageOf(t, shared, { at, locale: 'is-IS' });
  await icelandic.p.getByText(/^Skilríki miðlarans renna út eftir 11 daga \(/).waitFor();
  await icelandic.p.getByText('rennur bráðum út').waitFor();
  certify(90);
  await until('the relay has loaded it', () => shared.relay.log.includes('the certificate was loaded again'));
  await Promise.all([p.waitForResponse('**/api/status'), p.reload()]);
  await p.locator('#pages-place[aria-busy=false]').waitFor();
  await p.evaluate(() => new Promise(requestAnimationFrame));
  assert.equal(await warning.isVisible(), false);
});
