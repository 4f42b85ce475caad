// The log-in page, the list of machines and their languages.
import assert from 'node:assert/strict';
import test from 'node:test';
import { ConsolePage } from './support/console_page.mjs';
import { fixture, machineAndPage } from './support/fixture.mjs';
import { USER } from './support/relay.mjs';
import { ScriptedAgent } from './support/scripted_agent.mjs';
import { until } from './support/waiting.mjs';

const shared = fixture();

async function logInPage(t, options) {
  const page = await ConsolePage.opened(shared.browser, shared.relay, options);
  t.after(() => page.close());
  await page.page.locator('#login-form').waitFor();
  return page;
}

test('a wrong password is told, the field stays ready, and the right one then lets in', async (t) => {
  const page = await logInPage(t);
  await page.shot('login');
  await page.logIn(USER, 'wrong');
  const error = page.page.locator('#login-error');
  await until('the error shows', async () => (await error.innerText()) !== '');
  assert.equal(await error.innerText(), 'That name and password do not belong together.');
  assert.equal(await page.page.evaluate(() => document.activeElement?.id), 'login-password');
  assert.ok(await page.page.locator('#login-submit').isEnabled());
  await page.shot('login-wrong');
  await page.page.keyboard.type('correct horse battery');
  await page.page.keyboard.press('Enter');
  await page.page.locator('#view-machines').waitFor();
  assert.equal(await page.page.locator('#user-name').innerText(), USER);
});

test('the error of an unknown name is the same as that of a wrong password', async (t) => {
  const page = await logInPage(t);
  await page.logIn('Nobody', 'x');
  await until(
    'the error shows',
    async () =>
      (await page.page.locator('#login-error').innerText()) ===
      'That name and password do not belong together.',
  );
});

test('a login outlives the page, and logging out ends it', async (t) => {
  const page = await logInPage(t);
  await page.logIn();
  await page.page.locator('#view-machines').waitFor();
  await page.page.reload();
  await page.page.locator('#view-machines').waitFor();
  await page.page.click('#logout');
  await page.page.locator('#login-form').waitFor();
  await page.page.reload();
  await page.page.locator('#login-form').waitFor();
});

test('a representative changes the password, which logs out every other browser with that name', async (t) => {
  const user = 'Jóna';
  const [first, second] = ['the first password', 'the second password'];
  shared.relay.addUser(user, first);
  const page = await logInPage(t);
  const other = await logInPage(t);
  for (const one of [page, other]) {
    await one.logIn(user, first);
    await one.page.locator('#view-machines').waitFor();
  }
  const p = page.page;
  const error = async (pattern) =>
    until(`it says ${pattern}`, async () => pattern.test(await p.locator('#password-error').innerText()));
  await p.click('#password');
  await page.shot('password');
  await p.fill('#password-old', 'not the first one');
  await p.fill('#password-new', 'too short');
  await p.fill('#password-again', second);
  await p.click('#password-submit');
  assert.ok(await p.locator('#password-new').evaluate((field) => field.matches(':user-invalid')));
  await p.fill('#password-new', `${second}.`);
  await p.click('#password-submit');
  await error(/not the same/);
  await p.fill('#password-new', second);
  await p.click('#password-submit');
  await error(/not the current password/);
  await p.fill('#password-old', first);
  await p.click('#password-submit');
  await until('it is told', async () =>
    /password is changed/.test(await p.locator('#link-notice').innerText()),
  );
  await page.shot('password-changed');
  await other.page.locator('#login-form').waitFor();
  await other.logIn(user, second);
  await other.page.locator('#view-machines').waitFor();
  await p.click('#password');
  assert.deepEqual(
    await p.locator('#password-form input').evaluateAll((all) => all.map(({ value }) => value)),
    ['', '', ''],
  );
});

const HOSTILE = [
  {
    name: '<img src=x onerror="window.hacked=1"><b>Bold</b>',
    machine: '</li><script>window.hacked=1</script>',
  },
  { name: '\u202Egnp.exe\u202C \u2066x', machine: '"><svg onload=window.hacked=1>' },
  { name: 'A'.repeat(1500), machine: 'Ærið löng heiti'.repeat(60) },
  { name: '${alert(1)} {{7*7}} %s &amp; &lt;', machine: 'line\nbreak\ttab' },
];

test('names that a machine gives itself are shown as text, whatever they hold', async (t) => {
  const page = await logInPage(t);
  await page.logIn();
  const agents = [];
  for (const names of HOSTILE) {
    const agent = await ScriptedAgent.online(shared.relay, { consent: 'none', ...names });
    t.after(() => agent.drop());
    agents.push(agent);
    await page.row(agent).waitFor();
  }
  assert.match(await page.row(agents[0]).innerText(), /<img src=x onerror="window\.hacked=1"><b>Bold<\/b>/);
  assert.match(await page.row(agents[3]).innerText(), /\$\{alert\(1\)\} \{\{7\*7\}\} %s &amp; &lt;/);
  const spoken = await page.row(agents[1]).evaluate((row) => row.textContent);
  assert.doesNotMatch(
    spoken,
    /[\u202a-\u202e\u2066-\u2069]/u,
    'nothing turns the direction of what stands around it',
  );
  assert.equal(await page.page.locator('.machine img, .machine script, .machine svg, .machine b').count(), 0);
  assert.equal(await page.page.evaluate(() => 'hacked' in window), false);
  const width = await page.page.evaluate(() => [document.documentElement.scrollWidth, innerWidth]);
  assert.ok(width[0] <= width[1], `the page does not grow sideways: ${width}`);
  await page.shot('machines-hostile');

  // The same name once more in a session, over the picture and in the bar.
  await page.page.fill('#machine-search', 'onerror');
  await page.ask(agents[0]);
  await until('the session has its name', async () =>
    (await page.page.locator('#session-name').innerText()).includes('<b>Bold</b>'),
  );
  assert.match(await page.note(), /<img src=x/);
  assert.equal(await page.page.evaluate(() => 'hacked' in window), false);
});

test('the list follows machines that come, go and are renamed, and offline ones can be forgotten', async (t) => {
  const { agent, page } = await machineAndPage(t, shared, {
    agent: { name: 'Herjólfur', machine: 'BRIDGE-7' },
  });
  await page.row(agent).waitFor();
  await page.page.fill('#machine-search', 'bridge-7');
  agent.rename('Þorlákur');
  await until('the new name shows', async () => /Þorlákur/.test(await page.row(agent).innerText()));
  await page.page.fill('#machine-search', 'no such name');
  await page.row(agent).waitFor({ state: 'detached' });
  assert.equal(await page.page.locator('#machine-note-text').innerText(), 'No machine has that in its name.');
  await page.page.fill('#machine-search', '');
  agent.drop();
  await until('it is offline', async () => /last seen just now/.test(await page.row(agent).innerText()));
  let question = '';
  page.page.once('dialog', (dialog) => {
    question = dialog.message();
    dialog.accept();
  });
  await page.row(agent).locator('.machine-forget').click();
  await page.row(agent).waitFor({ state: 'detached' });
  assert.match(question, /^Forget .*Þorlákur.*\?/);
});

test('an Icelandic browser gets the console in Icelandic, all of it', async (t) => {
  const page = await logInPage(t, { locale: 'is-IS' });
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

test('a language that the console does not have falls to the next one that it has', async (t) => {
  const page = await logInPage(t, { locale: 'fr-FR' });
  assert.equal(await page.page.locator('#login-submit').innerText(), 'Log in');
});
