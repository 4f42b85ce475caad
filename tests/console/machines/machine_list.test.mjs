// The list of machines: names, states and search.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, logInPage, machineAndPage } from '../support/fixture.mjs';
import { present } from '../support/present.mjs';
import { Relay } from '../support/relay.mjs';
import { ScriptedAgent } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

const HOSTILE = [
  {
    name: '<img src=x onerror="window.hacked=1"><b>Bold</b>',
    machine: '</li><script>window.hacked=1</script>',
  },
  { name: '\u202Egnp.exe\u202C \u2066x', machine: '"><svg onload=window.hacked=1>' },
  { name: 'A'.repeat(1500), machine: 'Ærið löng heiti'.repeat(60) },
  // biome-ignore lint/suspicious/noTemplateCurlyInString: the name is not a template but looks like one.
  { name: '${alert(1)} {{7*7}} %s &amp; &lt;', machine: 'line\nbreak\ttab' },
];

test('names of machines are shown as text, whatever they contain', async (t) => {
  const page = await logInPage(t, shared);
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
    'no character changes the direction of the text around it',
  );
  assert.equal(await page.page.locator('.machine img, .machine script, .machine svg, .machine b').count(), 0);
  assert.equal(await page.page.evaluate(() => 'hacked' in window), false);
  const width = await page.page.evaluate(() => [document.documentElement.scrollWidth, innerWidth]);
  assert.ok(width[0] <= width[1], `the page is not wider than the window: ${width}`);
  await page.shot('machines-hostile');

  // A session shows the same name over the picture and in the toolbar.
  await page.page.fill('#machine-search', 'onerror');
  await page.ask(agents[0]);
  await until('the session has its name', async () =>
    (await page.page.locator('#session-name').innerText()).includes('<b>Bold</b>'),
  );
  assert.match(await page.note(), /<img src=x/);
  assert.equal(await page.page.evaluate(() => 'hacked' in window), false);
});

test('the list shows new, renamed and offline machines, and offline machines can be forgotten', async (t) => {
  const { agent, page } = await machineAndPage(t, shared, {
    agent: { name: 'Herjólfur', machine: 'BRIDGE-7' },
  });
  await page.row(agent).waitFor();
  await page.page.fill('#machine-search', 'bridge-7');
  agent.rename('Þorlákur');
  await until('the new name shows', async () => /Þorlákur/.test(await page.row(agent).innerText()));
  await page.page.fill('#machine-search', 'no such name');
  await page.row(agent).waitFor({ state: 'detached' });
  assert.equal(await page.page.locator('#machine-note-text').innerText(), 'No machine matches the search.');
  await page.page.fill('#machine-search', '');
  agent.drop();
  await until('it is offline', async () => /last seen just now/.test(await page.row(agent).innerText()));
  await page.row(agent).locator('.machine-forget').click();
  const dialog = page.page.getByRole('dialog', { name: /^Forget .*Þorlákur.*\?/ });
  await page.shot('machine-forget');
  await dialog.getByRole('button', { name: 'Cancel' }).click();
  assert.ok(await page.row(agent).isVisible());
  await page.row(agent).locator('.machine-forget').click();
  await dialog.getByRole('button', { name: 'Forget' }).click();
  await page.row(agent).waitFor({ state: 'detached' });
});

test('the count above the list is that of the machines that match the search', async (t) => {
  const names = ['Count one', 'Count two', 'Another'];
  const relay = await Relay.started();
  t.after(() => relay.remove());
  const page = await logInPage(t, { ...shared, relay });
  for (const name of names) {
    const agent = await ScriptedAgent.online(relay, { name });
    t.after(() => agent.drop());
  }
  await page.logIn();
  const shows = (/** @type {string} */ text) =>
    until(
      `the count is "${text}"`,
      async () => (await page.page.locator('#machine-count').innerText()) === text,
    );
  await shows('3 machines, 3 online');
  await page.page.fill('#machine-search', 'count');
  await shows('2 of 3 machines');
  await page.page.fill('#machine-search', 'none of them');
  await shows('0 of 3 machines');
  await page.page.fill('#machine-search', ' ');
  await shows('3 machines, 3 online');
});

test('the name of a machine without details is in the middle of its row', async (t) => {
  const agent = await ScriptedAgent.online(shared.relay, { name: 'SOLO', machine: 'SOLO' });
  t.after(() => agent.drop());
  const page = await logInPage(t, shared);
  await page.logIn();
  const middle = async (/** @type {import('playwright-core').Locator} */ element) => {
    const { y, height } = present(await element.boundingBox());
    return y + height / 2;
  };
  const [row, name] = [page.row(agent), page.row(agent).locator('.machine-name')];
  assert.ok(Math.abs((await middle(row)) - (await middle(name))) < 2);
});

test('a long name of a machine is legible on a phone', async (t) => {
  const name = 'Herjólfur, engine room, second computer from the left';
  const agent = await ScriptedAgent.online(shared.relay, { name, machine: 'HERJOLFUR-ENGINE-ROOM-2' });
  t.after(() => agent.drop());
  const page = await logInPage(t, shared, { viewport: { width: 390, height: 800 } });
  await page.logIn();
  await page.row(agent).waitFor();
  await page.shot('machines-phone');
  for (const part of ['.machine-name', '.machine-details']) {
    const cut = await page
      .row(agent)
      .locator(part)
      .evaluate((element) => [
        element.scrollWidth - element.clientWidth,
        element.scrollHeight - element.clientHeight,
      ]);
    assert.deepEqual(cut, [0, 0], part);
  }
});
