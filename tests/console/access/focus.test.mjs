// The keyboard's focus in messages and dialogs, the names of dialogs and of the picture, and the page's title.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, logInPage, machineAndPage, openSession } from '../support/fixture.mjs';
import { hasFocus } from '../support/focus.mjs';
import { plain } from '../support/pictures.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('../support/console_page.mjs').ConsolePage} ConsolePage */

const shared = fixture();

/** Waits until the page has this title. */
function hasTitle(/** @type {ConsolePage} */ { page }, /** @type {string} */ title) {
  return until(`the title is "${title}"`, async () => {
    const now = await page.title();
    if (now !== title) throw new Error(now);
    return true;
  });
}

test('the message over the picture has the focus while it is shown, and then the picture', async (t) => {
  const { agent, page } = await machineAndPage(t, shared, { agent: { consent: 'none' } });
  await page.ask(agent);
  const { session } = await agent.next(AgentMsg.SessionRequest);
  await hasFocus(page.page, 'session-note');
  // A key that was meant for the machine does not answer the message.
  await page.page.keyboard.press('Enter');
  await page.page.keyboard.press('Space');
  await page.page.keyboard.press('Tab');
  await hasFocus(page.page, 'session-give-up');
  agent.onStream = () => {
    agent.config({ width: 64, height: 36 });
    agent.frame(plain(64, 36, '#406080'));
  };
  agent.accept(session);
  await hasFocus(page.page, 'key-input');
  agent.drop();
  await page.waitForNote(/has gone offline/);
  await hasFocus(page.page, 'session-note');
  await agent.connect();
  agent.decline((await agent.next(AgentMsg.SessionRequest)).session);
  await page.waitForNote(/declined/);
  await hasFocus(page.page, 'session-note');
  await page.page.keyboard.press('Tab');
  await hasFocus(page.page, 'session-again');
});

test('a message that appears behind a dialog gets the focus when the dialog closes', async (t) => {
  const { agent, page } = await openSession(t, shared);
  await page.page.click('#keys-menu summary');
  await page.page.click('#type-text');
  await hasFocus(page.page, 'type-box');
  agent.drop();
  await page.waitForNote(/has gone offline/);
  await page.page.keyboard.type('text');
  assert.equal(await page.page.inputValue('#type-box'), 'text');
  await page.page.keyboard.press('Escape');
  await hasFocus(page.page, 'session-note');
});

test('after a session the focus is on the machine, and after a log-in on the heading of the list', async (t) => {
  const { agent, page } = await machineAndPage(t, shared, { agent: { consent: 'none' } });
  await page.ask(agent);
  await agent.next(AgentMsg.SessionRequest);
  await page.page.click('#session-give-up');
  const open = page.row(agent).locator('.machine-open');
  await until('the focus is on the machine', () => open.evaluate((one) => one === document.activeElement));
  const other = await logInPage(t, shared);
  await other.logIn();
  await hasFocus(other.page, 'machines-title');
});

test('the title of the page names the view, or the machine and the state of the session', async (t) => {
  const start = await logInPage(t, shared);
  await hasTitle(start, 'Log in - Vantelink');
  const { agent, page } = await machineAndPage(t, shared, { agent: { consent: 'none' } });
  await hasTitle(page, 'Machines - Vantelink');
  await page.ask(agent);
  const { session } = await agent.next(AgentMsg.SessionRequest);
  await hasTitle(page, `Waiting: ${agent.name} - Vantelink`);
  agent.accept(session);
  await hasTitle(page, `${agent.name} - Vantelink`);
  agent.drop();
  await hasTitle(page, `Interrupted: ${agent.name} - Vantelink`);
  await agent.connect();
  agent.decline((await agent.next(AgentMsg.SessionRequest)).session);
  await hasTitle(page, `Ended: ${agent.name} - Vantelink`);
  await page.page.click('#session-back');
  await hasTitle(page, 'Machines - Vantelink');
});

test('the picture and the dialogs have names', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const p = page.page;
  const unnamed = await p
    .locator('dialog, [role=dialog]')
    .evaluateAll((all) =>
      all
        .filter((one) => !document.getElementById(one.getAttribute('aria-labelledby') ?? ''))
        .map(({ id }) => id),
    );
  assert.deepEqual(unnamed, []);
  assert.ok(await p.getByRole('img', { name: 'The machine’s screen' }).isVisible());
  for (const [menu, button, name] of [
    ['keys-menu', 'type-text', 'Text to type on the machine'],
    ['machine-menu', 'restart', `Restart \u2068${agent.name}\u2069?`],
  ]) {
    await p.click(`#${menu} summary`);
    await p.click(`#${button}`);
    await p.getByRole('dialog', { name }).waitFor();
    await p.keyboard.press('Escape');
  }
});
