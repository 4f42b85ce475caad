// The page about the own account: the password, and one-time codes.
import assert from 'node:assert/strict';
import test from 'node:test';
import { assertAccessible } from '../access/findings.mjs';
import { Api, addPerson, administrator } from '../support/admin/api.mjs';
import { pageOf, SIZES } from '../support/admin/page.mjs';
import { codeOf } from '../support/admin/totp.mjs';
import { fixture } from '../support/fixture.mjs';
import { hasFocus } from '../support/focus.mjs';

/** @typedef {import('playwright-core').Page} Page */

const shared = fixture();

const dialog = (/** @type {Page} */ p, /** @type {string} */ name) => p.getByRole('dialog', { name });
const notice = (/** @type {Page} */ p, /** @type {string} */ text) =>
  p.locator('#pages-notice').filter({ hasText: text }).waitFor();

test('one-time codes are set up and switched off', async (t) => {
  const who = await addPerson(shared.relay, { name: 'Jón' });
  const { page, p } = await pageOf(t, shared, { who, ...SIZES.phone });
  await p.getByRole('link', { name: 'Jón' }).click();
  await hasFocus(p, 'pages-title');
  await p.getByRole('button', { name: 'Set up' }).click();
  const setUp = dialog(p, 'Set up one-time codes');
  const secret = await setUp.getByLabel('Or type this key').inputValue();
  await assertAccessible(p, 'setting up codes on the account page');
  await page.shot('account-set-up-phone');
  await setUp.getByLabel('Code').fill(codeOf(secret));
  await p.keyboard.press('Enter');
  const codes = dialog(p, 'Your backup codes');
  await codes.waitFor();
  assert.equal(await codes.locator('code').count(), 10);
  await codes.getByRole('button', { name: 'I have kept' }).click();
  await notice(p, 'are set up');
  await p.getByText('10 backup codes are left').waitFor();
  assert.equal((await (await Api.loggedIn(shared.relay, who)).get('me')).stage, 'totp');
  await p.getByRole('button', { name: 'Switch off' }).click();
  const off = dialog(p, 'Switch off one-time codes');
  await off.getByLabel('Password').fill(who.password);
  await off.getByRole('button', { name: 'Switch off' }).click();
  await notice(p, 'are switched off');
  assert.equal((await (await Api.loggedIn(shared.relay, who)).get('me')).stage, 'full');
});

test('codes that the role needs cannot be switched off', async (t) => {
  const who = await addPerson(shared.relay, { role: 'auditor' });
  const api = await Api.loggedIn(shared.relay, who);
  const { secret } = await api.post('totp/begin');
  await api.post('totp/confirm', { code: codeOf(secret) });
  await (await administrator(shared.relay)).send('PATCH', 'settings', { totp_required: ['auditor'] });
  const { p } = await pageOf(t, shared, { who: null, storageState: api.browserState, at: '#account' });
  await p.getByRole('button', { name: 'Switch off' }).click();
  const off = dialog(p, 'Switch off one-time codes');
  await off.getByLabel('Password').fill(who.password);
  await off.getByRole('button', { name: 'Switch off' }).click();
  await off.getByRole('alert').filter({ hasText: 'Your role needs one-time codes' }).waitFor();
});

test('the password is changed', async (t) => {
  const who = await addPerson(shared.relay);
  const { p } = await pageOf(t, shared, { who, at: '#account' });
  await p.getByRole('button', { name: 'Change password' }).click();
  await p.fill('#password-old', who.password);
  await p.fill('#password-new', 'a longer password');
  await p.fill('#password-again', 'a longer password');
  await p.click('#password-submit');
  await notice(p, 'has been changed');
  await Api.loggedIn(shared.relay, { name: who.name, password: 'a longer password' });
});
