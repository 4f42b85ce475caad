// The pages of people, teams, groups and rights, of sessions and log-ins, and of the settings.
import assert from 'node:assert/strict';
import test from 'node:test';
import { assertAccessible } from '../access/findings.mjs';
import { Api, addGroup, addPerson, administrator } from '../support/admin/api.mjs';
import { pageOf, SIZES } from '../support/admin/page.mjs';
import { codeOf } from '../support/admin/totp.mjs';
import { fixture } from '../support/fixture.mjs';
import { present } from '../support/present.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */

const shared = fixture();

const row = (/** @type {Page} */ p, /** @type {string} */ name) =>
  p.locator('tbody tr').filter({ has: p.getByRole('rowheader', { name }) });
const notice = (/** @type {Page} */ p, /** @type {RegExp} */ text) =>
  p.locator('#pages-notice').filter({ hasText: text }).waitFor();
const press = (/** @type {Page} */ p, /** @type {string} */ name) =>
  p.getByRole('dialog').getByRole('button', { name }).click();

/** What the relay answers about a path. @param {string} path */
const stored = async (path) => (await administrator(shared.relay)).get(path);
/** @param {string} name */
const person = async (name) => present((await stored('people')).people.find((one) => one.name === name));
/** @param {string} name @param {number[]} [members] */
const addTeam = async (name, members = []) =>
  (await (await administrator(shared.relay)).post('teams', { name, members })).id;

test('a person is invited by a link that is shown once', async (t) => {
  const team = await addTeam('Night watch');
  const { page, p } = await pageOf(t, shared, { at: '#admin/people', ...SIZES.phone });
  await p.getByRole('button', { name: 'Invite a person' }).click();
  const dialog = p.getByRole('dialog');
  await dialog.getByLabel('Name').fill('Ása');
  await dialog.getByLabel('Night watch').check();
  await assertAccessible(p, 'invitation of a person');
  await page.shot('people-invite-phone');
  await press(p, 'Make the link');
  const link = await p.getByLabel('Link', { exact: true }).inputValue();
  const [invitation] = (await stored('invitations')).invitations;
  assert.deepEqual([invitation.name, invitation.role, invitation.teams], ['Ása', 'representative', [team]]);
  await assertAccessible(p, 'link of an invitation');
  await press(p, 'Done');
  const guest = await pageOf(t, shared, { who: null, at: new URL(link).hash });
  await guest.p.getByRole('heading', { name: 'Welcome to Vantelink' }).waitFor();
  await row(p, 'Ása').getByRole('button', { name: 'Withdraw' }).click();
  await notice(p, /withdrawn/);
  assert.deepEqual((await stored('invitations')).invitations, []);
});

test('a person is added, edited, disabled and removed', async (t) => {
  await addPerson(shared.relay, { name: 'Sverrir' });
  const { p } = await pageOf(t, shared, { at: '#admin/people' });
  const dialog = p.getByRole('dialog');
  await p.getByRole('button', { name: 'Add a person' }).click();
  await dialog.getByLabel('Name').fill('Sverrir');
  await press(p, 'Add');
  await dialog.getByRole('alert').filter({ hasText: 'in use already' }).waitFor();
  await dialog.getByLabel('Name').fill('Björk');
  await press(p, 'Add');
  const password = await p.getByRole('dialog').getByLabel('Password').inputValue();
  await press(p, 'Done');
  await row(p, 'Björk').getByText('new password due').waitFor();
  const login = await Api.loggedIn(shared.relay, { name: 'Björk', password });
  assert.equal((await login.get('me')).stage, 'password');
  await row(p, 'Björk').getByRole('button', { name: 'Edit' }).click();
  await dialog.getByLabel('Disabled').check();
  await dialog.getByLabel('Role').selectOption('auditor');
  await press(p, 'Save');
  await row(p, 'Björk').getByText('disabled', { exact: true }).waitFor();
  assert.equal((await person('Björk')).role, 'auditor');
  await assert.rejects(login.get('me'), { status: 401 });
  await row(p, 'Björk').getByRole('button', { name: 'Remove' }).click();
  await press(p, 'Remove');
  await row(p, 'Björk').waitFor({ state: 'detached' });
});

test('the last administrator cannot get another role', async (t) => {
  const { p } = await pageOf(t, shared, { at: '#admin/people' });
  await row(p, 'Sigga').getByRole('button', { name: 'Edit' }).click();
  await p.getByRole('dialog').getByLabel('Role').selectOption('representative');
  await press(p, 'Save');
  await p.getByRole('dialog').getByRole('alert').filter({ hasText: 'the last administrator' }).waitFor();
});

test('whoever is no longer an administrator loses the pages at the next request', async (t) => {
  const who = await addPerson(shared.relay, { name: 'Steinn', role: 'administrator' });
  const { p } = await pageOf(t, shared, { who, at: '#admin/people' });
  await row(p, 'Steinn').waitFor();
  await (await administrator(shared.relay)).send('PATCH', `people/${who.id}`, { role: 'representative' });
  await row(p, 'Sigga').getByRole('button', { name: 'End log-ins' }).click();
  await p.locator('#view-machines').waitFor();
  assert.equal(await p.locator('#admin-link').isVisible(), false);
});

test('an administrator gives a new password, resets codes and ends log-ins', async (t) => {
  const jon = await addPerson(shared.relay, { name: 'Jón' });
  const login = await Api.loggedIn(shared.relay, jon);
  const { secret } = await login.post('totp/begin');
  await login.post('totp/confirm', { code: codeOf(secret) });
  const { p } = await pageOf(t, shared, { at: '#admin/people' });
  await row(p, 'Jón').getByRole('button', { name: 'Reset codes' }).click();
  await press(p, 'Reset');
  await notice(p, /codes of .*Jón.* are reset/);
  assert.equal((await person('Jón')).totp, false);
  await assert.rejects(login.get('me'), { status: 401 });
  const second = await Api.loggedIn(shared.relay, jon);
  await p.reload();
  await row(p, 'Jón').getByRole('button', { name: 'End log-ins' }).click();
  await notice(p, /log-ins of .*Jón.* have ended/);
  await assert.rejects(second.get('me'), { status: 401 });
  await row(p, 'Jón').getByRole('button', { name: 'New password' }).click();
  await press(p, 'Make a password');
  const password = await p.getByRole('dialog').getByLabel('Password').inputValue();
  await press(p, 'Done');
  await assert.rejects(Api.loggedIn(shared.relay, jon), { status: 401 });
  const third = await Api.loggedIn(shared.relay, { name: 'Jón', password });
  assert.equal((await third.get('me')).stage, 'password');
});

test('the members of a team are changed', async (t) => {
  const members = [
    await addPerson(shared.relay, { name: 'Halla' }),
    await addPerson(shared.relay, { name: 'Óli' }),
  ];
  await addTeam('Shore', [members[0].id]);
  const { p } = await pageOf(t, shared, { at: '#admin/teams' });
  await row(p, 'Shore').getByRole('button', { name: 'Edit' }).click();
  await p.getByRole('dialog').getByLabel('Halla').uncheck();
  await p.getByRole('dialog').getByLabel('Óli').check();
  await press(p, 'Save');
  await row(p, 'Shore').getByText('Óli').waitFor();
  const { teams } = await stored('teams');
  const shore = present(teams.find((one) => one.name === 'Shore'));
  assert.deepEqual(shore.members, [members[1].id]);
});

test('a right is given and taken away by a tick, by keyboard too', async (t) => {
  const team = await addTeam('Deck');
  const rights = [{ team, rights: ['see', 'control'] }];
  const group = await addGroup(shared.relay, { name: 'Engine rooms', rights });
  const { id } = await addPerson(shared.relay, { name: 'Þorlákur' });
  const { page, p } = await pageOf(t, shared, { at: '#admin/groups' });
  await row(p, 'Engine rooms').getByRole('button', { name: 'Rights' }).click();
  await p.getByRole('heading', { name: /Rights in .*Engine rooms/ }).waitFor();
  const has = (/** @type {object[]} */ expected) =>
    until(`the rights are ${JSON.stringify(expected)}`, async () => {
      const { groups } = await stored('groups');
      assert.deepEqual(present(groups.find((one) => one.id === group)).rights, expected);
      return true;
    });
  await p.getByLabel('Deck: Control').uncheck();
  await has([{ team, rights: ['see'] }]);
  await p.getByLabel('Person or team').selectOption({ label: 'Þorlákur (person)' });
  await p.getByRole('button', { name: 'Add', exact: true }).click();
  await p.getByLabel('Þorlákur: Files down').focus();
  await p.keyboard.press('Space');
  await has([
    { team, rights: ['see'] },
    { person: id, rights: ['see', 'files-down'] },
  ]);
  assert.equal(await p.evaluate(() => document.activeElement?.ariaLabel), 'Þorlákur: Files down');
  await page.shot('rights');
  await p.getByLabel('Þorlákur: See').uncheck();
  await has([{ team, rights: ['see'] }]);
  assert.equal(
    await p.getByLabel('Þorlákur: Files down').isChecked(),
    false,
    'without seeing there is no right',
  );
  await p.goBack();
  await row(p, 'Engine rooms').getByRole('button', { name: 'Rights' }).waitFor();
});

test('a right that the relay refuses to change is shown as it was', async (t) => {
  const team = await addTeam('Bridge');
  const group = await addGroup(shared.relay, { rights: [{ team, rights: ['see'] }] });
  const { p } = await pageOf(t, shared, { at: `#admin/groups/${group}` });
  const refusal = { status: 503, json: { error: 'The relay has too much to do.', code: 'busy' } };
  await p.route(/\/rights$/, (route) => route.fulfill(refusal));
  const box = p.getByLabel('Bridge: Forget');
  await box.click();
  await notice(p, /too much to do/);
  assert.equal(await box.isChecked(), false);
});

test('a group is added, edited and removed', async (t) => {
  const { p } = await pageOf(t, shared, { at: '#admin/groups', ...SIZES.phone });
  const dialog = p.getByRole('dialog');
  await p.getByRole('button', { name: 'Add a group' }).click();
  await dialog.getByLabel('Name').fill('Machines');
  await press(p, 'Add');
  await dialog.getByRole('alert').filter({ hasText: 'in use already' }).waitFor();
  await dialog.getByLabel('Name').fill('Laboratory');
  await dialog.getByLabel('Ask for a reason').check();
  await press(p, 'Add');
  await row(p, 'Laboratory').getByText('reason', { exact: true }).waitFor();
  await row(p, 'Laboratory').getByRole('button', { name: 'Edit' }).click();
  await dialog.getByLabel('password or a code').check();
  await press(p, 'Save');
  await row(p, 'Laboratory').getByText('password again, reason').waitFor();
  await row(p, 'Laboratory').getByRole('button', { name: 'Remove' }).click();
  await press(p, 'Remove');
  await notice(p, /Laboratory.* is removed/);
  assert.equal(await row(p, 'Machines').getByRole('button', { name: 'Remove' }).count(), 0);
});

test('the settings are changed', async (t) => {
  const before = await stored('settings');
  const { p } = await pageOf(t, shared, { at: '#admin/settings' });
  const codes = p.getByRole('group', { name: 'One-time codes are required for' });
  await codes.getByLabel('Auditor').check();
  await p.getByLabel('A log-in ends after').fill('1');
  await p.getByRole('button', { name: 'Save' }).click();
  await p.getByRole('alert').filter({ hasText: '2 minutes or more' }).waitFor();
  await p.getByLabel('A log-in ends after').fill('15');
  await p.getByRole('button', { name: 'Save' }).click();
  await notice(p, /Saved/);
  assert.deepEqual(await stored('settings'), { ...before, totp_required: ['auditor'], idle_minutes: 15 });
  await p.reload();
  assert.ok(await codes.getByLabel('Auditor').isChecked());
});
