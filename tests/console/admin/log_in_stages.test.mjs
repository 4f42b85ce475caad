// The stages of a log-in after the password: a forced change of the password, one-time codes, and invitations.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import test from 'node:test';
import { assertAccessible } from '../access/findings.mjs';
import { Api, addPerson, administrator, trailRow } from '../support/admin/api.mjs';
import { everyLook, pageOf, SIZES } from '../support/admin/page.mjs';
import { codeOf } from '../support/admin/totp.mjs';
import { fixture } from '../support/fixture.mjs';
import { hasFocus } from '../support/focus.mjs';
import { Relay } from '../support/relay.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */
/** @typedef {import('../support/admin/api.mjs').Login} Login */

const shared = fixture();

/** @param {Page} p @param {Login} login */
async function logIn(p, { name, password }) {
  await p.fill('#login-name', name);
  await p.fill('#login-password', password);
  await p.click('#login-submit');
}

const heading = (/** @type {Page} */ p, /** @type {string | RegExp} */ name) =>
  p.getByRole('heading', { level: 1, name }).waitFor();
const alert = (/** @type {Page} */ p, /** @type {RegExp} */ text) =>
  p.locator('#view-stage [role=alert]').filter({ hasText: text }).waitFor();
const machines = (/** @type {Page} */ p) => p.locator('#view-machines').waitFor();

/** Chooses the password on the page that asks for it. @param {Page} p @param {string} password */
async function choosePassword(p, password, again = password) {
  await p.locator('#view-stage').getByLabel('New password, 10').fill(password);
  await p.locator('#view-stage').getByLabel('Repeat').fill(again);
  await p.getByRole('button', { name: 'Set password' }).click();
}

/** Types a one-time code or a backup code. @param {Page} p @param {string} code */
async function sendCode(p, code) {
  await p.getByLabel('Code', { exact: true }).fill(code);
  await p.keyboard.press('Enter');
}

/** Sets one-time codes up. @param {Login} login @returns {Promise<{secret: string, used: string,
 *   codes: string[]}>} used: the code that has confirmed the set-up */
async function withCodes(login) {
  const api = await Api.loggedIn(shared.relay, login);
  const { secret } = await api.post('totp/begin');
  const used = codeOf(secret);
  const { backup_codes: codes } = await api.post('totp/confirm', { code: used });
  return { secret, used, codes };
}

/** A person whose password is valid for one log-in. @returns {Promise<Login>} */
async function newcomer(name = `Newcomer ${Math.random()}`) {
  const api = await administrator(shared.relay);
  const { password } = await api.post('people', { name, role: 'representative', teams: [] });
  return { name, password };
}

test('at the first start, the administrator of the relay has to change the password', async (t) => {
  const relay = await Relay.started([], { people: false });
  t.after(() => relay.remove());
  const { p } = await pageOf(t, { ...shared, relay }, { who: null, ...SIZES.phone });
  const password = relay.firstPassword;
  await logIn(p, { name: 'admin', password });
  await heading(p, 'Choose a new password');
  await assertAccessible(p, 'forced change of the password');
  await choosePassword(p, 'a new password', 'another password');
  await alert(p, /not the same/);
  await choosePassword(p, password);
  await alert(p, /new password is the old one/);
  await choosePassword(p, 'a new password');
  await machines(p);
  assert.equal(await p.locator('#admin-link').isVisible(), true);
  await assert.rejects(Api.loggedIn(relay, { name: 'admin', password }), { status: 401 });
  const api = await Api.loggedIn(relay, { name: 'admin', password: 'a new password' });
  const { rows } = await api.get('trail?kind=password.changed');
  assert.equal(rows[0].actor, 'admin');
});

/** @param {Page} p @param {string} who */
async function setUpByPicture(p, who) {
  await heading(p, 'Set up one-time codes');
  await assertAccessible(p, 'setting up codes');
  const image = p.getByRole('img', { name: /QR code/ });
  await until('the QR code is drawn', () =>
    image.evaluate((one) => /** @type {HTMLImageElement} */ (one).naturalWidth > 0),
  );
  const secret = await p.getByLabel('Or type this key').inputValue();
  await sendCode(p, '000000');
  await alert(p, /code is wrong/);
  await sendCode(p, codeOf(secret));
  await heading(p, 'Your backup codes');
  await assertAccessible(p, `backup codes of ${who}`);
  return secret;
}

test('a role that needs codes sets them up at the log-in, and the backup codes are shown once', async (t) => {
  const api = await administrator(shared.relay);
  await api.send('PATCH', 'settings', { totp_required: ['auditor'] });
  t.after(() => api.send('PATCH', 'settings', { totp_required: [] }));
  const auditor = await addPerson(shared.relay, { name: 'Guðrún', role: 'auditor' });
  const { page, p } = await pageOf(t, shared, { who: null, ...SIZES.phone });
  await logIn(p, auditor);
  const secret = await setUpByPicture(p, auditor.name);
  const codes = await p.locator('.codes code').allInnerTexts();
  assert.equal(new Set(codes).size, 10);
  await page.shot('backup-codes-phone');
  const [download] = await Promise.all([
    p.waitForEvent('download'),
    p.getByRole('button', { name: 'Save' }).click(),
  ]);
  assert.equal(download.suggestedFilename(), 'vantelink-backup-codes.txt');
  const saved = readFileSync(await download.path(), 'utf8');
  for (const code of [...codes, auditor.name]) assert.ok(saved.includes(code));
  await p.getByRole('button', { name: 'I have kept the codes' }).click();
  await p.getByRole('heading', { name: 'Trail' }).waitFor();
  assert.equal(await p.locator('#view-stage').innerText(), '', 'no secret stays in the page');
  const next = codeOf(secret, Date.now() + 30_000);
  const again = await Api.loggedIn(shared.relay, auditor);
  assert.deepEqual(await again.post('login/code', { code: next }), { stage: 'full' });
});

test('a log-in asks for a code, and each code works once', async (t) => {
  const person = await addPerson(shared.relay, { name: 'Jón' });
  const { secret, used, codes } = await withCodes(person);
  const { p } = await pageOf(t, shared, { who: null });
  await logIn(p, person);
  await heading(p, 'One-time code');
  await assertAccessible(p, 'code');
  await sendCode(p, used);
  await alert(p, /was used already/);
  await sendCode(p, codes[3]);
  await p.locator('#link-notice').filter({ hasText: 'You have used a backup code. 9 are left.' }).waitFor();
  await p.click('#logout');
  await logIn(p, person);
  await heading(p, 'One-time code');
  await sendCode(p, codes[3]);
  await alert(p, /was used already/);
  await sendCode(p, codeOf(secret, Date.now() + 30_000).replace(/^.../, '$& '));
  await machines(p);
  await trailRow(shared.relay, 'backup-code.used', person.name);
});

test('a page that is loaded again during a stage shows that stage, with the old password to type', async (t) => {
  const person = await newcomer();
  const { p } = await pageOf(t, shared, { who: null });
  await logIn(p, person);
  await heading(p, 'Choose a new password');
  await p.reload();
  await heading(p, 'Choose a new password');
  await p.locator('#view-stage').getByLabel('Current password').fill('not the one');
  await choosePassword(p, 'a new password');
  await alert(p, /current password is wrong/);
  await p.getByRole('button', { name: 'Log out' }).click();
  await p.locator('#login-form').waitFor();
  await p.reload();
  await p.locator('#login-form').waitFor();
});

test('the link of an invitation leads to a password and then to the log-in, once', async (t) => {
  const api = await administrator(shared.relay);
  const invited = { name: 'Ása', role: 'representative', teams: [], hours: 1 };
  const { token } = await api.post('invitations', invited);
  const at = `#invitation=${token}`;
  const { p } = await pageOf(t, shared, { who: null, at });
  await heading(p, 'Welcome to Vantelink');
  await assertAccessible(p, 'invitation');
  assert.equal(new URL(p.url()).hash, '', 'the token does not stay in the address');
  await choosePassword(p, 'my own password');
  await p.locator('#login-error').filter({ hasText: 'Log in as' }).waitFor();
  assert.equal(await p.inputValue('#login-name'), 'Ása');
  await hasFocus(p, 'login-password');
  await p.keyboard.type('my own password');
  await p.keyboard.press('Enter');
  await machines(p);
  const second = await pageOf(t, shared, { who: null, at });
  await choosePassword(second.p, 'another password');
  await alert(second.p, /This invitation is not valid/);
});

test('each stage fits a phone and a desktop, in both languages and themes', async (t) => {
  const ready = (/** @type {Page} */ p) => p.locator('#view-stage form').waitFor();
  const form = (/** @type {Page} */ p) => p.locator('#login-form').waitFor();
  await everyLook(t, shared, { name: 'log-in', who: null, ready: form });
  const coded = await addPerson(shared.relay);
  await withCodes(coded);
  await everyLook(t, shared, { name: 'stage-code', who: coded, ready });
  await everyLook(t, shared, { name: 'stage-password', who: newcomer, ready });
  await everyLook(t, shared, { name: 'stage-invitation', who: null, at: '#invitation=abc', ready });
  const api = await administrator(shared.relay);
  await api.send('PATCH', 'settings', { totp_required: ['auditor'] });
  const auditor = await addPerson(shared.relay, { role: 'auditor' });
  await everyLook(t, shared, { name: 'stage-set-up', who: auditor, ready });
});
