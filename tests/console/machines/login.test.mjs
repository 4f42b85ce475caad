// The log-in page, its languages, and the change of the password.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, logInPage } from '../support/fixture.mjs';
import { USER } from '../support/relay.mjs';
import { ScriptedAgent } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

test('after a wrong password the page shows an error, and the right password logs in', async (t) => {
  const page = await logInPage(t, shared);
  await page.shot('login');
  await page.logIn(USER, 'wrong');
  const error = page.page.locator('#login-error');
  await until('the error shows', async () => (await error.innerText()) !== '');
  assert.equal(await error.innerText(), 'The name or the password is wrong.');
  assert.equal(await page.page.evaluate(() => document.activeElement?.id), 'login-password');
  assert.ok(await page.page.locator('#login-submit').isEnabled());
  await page.shot('login-wrong');
  await page.page.keyboard.type('correct horse battery');
  await page.page.keyboard.press('Enter');
  await page.page.locator('#view-machines').waitFor();
  assert.equal(await page.page.locator('#user-name').innerText(), USER);
});

test('an unknown name gives the same error as a wrong password', async (t) => {
  const page = await logInPage(t, shared);
  await page.logIn('Nobody', 'x');
  await until(
    'the error shows',
    async () =>
      (await page.page.locator('#login-error').innerText()) === 'The name or the password is wrong.',
  );
});

test('a log-in stays valid after a reload of the page and ends with a log-out', async (t) => {
  const page = await logInPage(t, shared);
  await page.logIn();
  await page.page.locator('#view-machines').waitFor();
  await page.page.reload();
  await page.page.locator('#view-machines').waitFor();
  await page.page.click('#logout');
  await page.page.locator('#login-form').waitFor();
  await page.page.reload();
  await page.page.locator('#login-form').waitFor();
});

test('a late answer about an earlier log-in does not disturb the next one', async (t) => {
  const page = await logInPage(t, shared);
  const p = page.page;
  await page.logIn();
  await p.locator('#view-machines').waitFor();
  /** @type {() => void} */
  let answer = () => {};
  const held = new Promise((release) => {
    answer = () => release(undefined);
  });
  let asked = 0;
  await p.route('**/api/me', async (route) => {
    asked += 1;
    const response = await route.fetch();
    await held;
    await route.fulfill({ response });
  });
  // The link is lost with the log-in, so the console asks whether the log-in is still valid.
  await p.context().request.post(`${shared.relay.url}api/logout`, {
    headers: { Origin: new URL(shared.relay.url).origin },
  });
  await until('the console has asked', () => asked > 0);
  await p.click('#logout');
  await p.locator('#login-form').waitFor();
  await p.fill('#login-name', 'Somebody');
  await p.fill('#login-password', 'typed already');
  const late = p.waitForResponse('**/api/me');
  answer();
  await (await late).finished();
  await p.evaluate(() => new Promise((done) => requestAnimationFrame(done)));
  assert.equal(await p.inputValue('#login-password'), 'typed already');
});

test('a log-out that does not reach the relay is reported, and can be repeated', async (t) => {
  const page = await logInPage(t, shared);
  const p = page.page;
  await page.logIn();
  await p.locator('#view-machines').waitFor();
  await p.route('**/api/logout', (route) => route.abort());
  await p.click('#logout');
  await until('the page says so', async () =>
    /may still be logged in/.test(await p.locator('#login-error').innerText()),
  );
  await p.unroute('**/api/logout');
  await p.reload();
  await p.locator('#view-machines').waitFor();
  await p.click('#logout');
  await p.locator('#login-form').waitFor();
  await p.reload();
  await p.locator('#login-form').waitFor();
});

test('a change of the password logs out the representative’s other browsers', async (t) => {
  const user = 'Jóna';
  const [first, second] = ['the first password', 'the second password'];
  shared.relay.addUser(user, first);
  const page = await logInPage(t, shared);
  const other = await logInPage(t, shared);
  for (const one of [page, other]) {
    await one.logIn(user, first);
    await one.page.locator('#view-machines').waitFor();
  }
  const p = page.page;
  const error = async (/** @type {RegExp} */ pattern) =>
    until(`an error like ${pattern}`, async () =>
      pattern.test(await p.locator('#password-error').innerText()),
    );
  await p.click('#password');
  await page.shot('password');
  await p.fill('#password-old', 'not the first one');
  // Firefox limits the length only of what a person types.
  await p.locator('#password-new').pressSequentially('too short');
  await p.fill('#password-again', second);
  await p.click('#password-submit');
  assert.ok(await p.locator('#password-new').evaluate((field) => field.matches(':user-invalid')));
  await p.fill('#password-new', `${second}.`);
  await p.click('#password-submit');
  await error(/not the same/);
  await p.fill('#password-new', second);
  await p.click('#password-submit');
  await error(/current password is wrong/);
  await p.fill('#password-old', first);
  await p.click('#password-submit');
  await until('the change is confirmed', async () =>
    /password has been changed/.test(await p.locator('#link-notice').innerText()),
  );
  await page.shot('password-changed');
  await other.page.locator('#login-form').waitFor();
  await other.logIn(user, second);
  await other.page.locator('#view-machines').waitFor();
  await p.click('#password');
  assert.deepEqual(
    await p
      .locator('#password-form input')
      .evaluateAll((all) => all.map((field) => /** @type {HTMLInputElement} */ (field).value)),
    ['', '', ''],
  );
});

test('after an ended log-in the focus is on the first empty field', async (t) => {
  const { relay } = shared;
  const page = await logInPage(t, shared);
  const p = page.page;
  const focused = () => p.evaluate(() => document.activeElement?.id);
  assert.equal(await focused(), 'login-name');
  await page.logIn();
  await p.locator('#view-machines').waitFor();
  await p.click('#password');
  // The relay ends the log-in in answer to the console's own cookie, and closes the link.
  await p.context().request.post(`${relay.url}api/logout`, {
    headers: { Origin: new URL(relay.url).origin },
  });
  await until('the page says so', async () =>
    /log-in has ended/.test(await p.locator('#login-error').innerText()),
  );
  assert.equal(await focused(), 'login-password');
  assert.equal(await p.locator('dialog:visible').count(), 0);
  await p.keyboard.type('correct horse battery');
  await p.keyboard.press('Enter');
  await p.locator('#view-machines').waitFor();
});

test('the console is in Icelandic in an Icelandic browser', async (t) => {
  const page = await logInPage(t, shared, { locale: 'is-IS' });
  assert.equal(await page.page.getAttribute('html', 'lang'), 'is');
  assert.equal(await page.page.locator('#login-submit').innerText(), 'Skrá inn');
  await page.logIn(USER, 'rangt');
  await until(
    'the error shows',
    async () => (await page.page.locator('#login-error').innerText()) === 'Nafn og lykilorð eiga ekki saman.',
  );
  await page.shot('login-is');
  await page.logIn();
  const agent = await ScriptedAgent.online(shared.relay, { name: 'Sæfari', consent: 'none' });
  t.after(() => agent.drop());
  await page.ask(agent);
  await page.waitForNote(/^Beðið eftir að einhver við tölvuna .*Sæfari.* leyfi fjaraðstoðina/);
  assert.equal(await page.page.locator('#session-end').innerText(), 'Ljúka');
  await page.shot('consent-awaited-is');
});

test('the console is in English in a browser of another language', async (t) => {
  const page = await logInPage(t, shared, { locale: 'fr-FR' });
  assert.equal(await page.page.locator('#login-submit').innerText(), 'Log in');
});
