// The rows of the machine list while machines and the search change: rows keep their elements and the focus.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, logInPage } from '../support/fixture.mjs';
import { Relay } from '../support/relay.mjs';
import { ScriptedAgent } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

/**
 * A relay of its own with these machines, and a page that lists them.
 * @param {import('node:test').TestContext} t
 * @param {string[]} names
 */
async function listOf(t, names) {
  const relay = await Relay.started();
  t.after(() => relay.remove());
  const agents = [];
  for (const name of names) {
    const agent = await ScriptedAgent.online(relay, { name, machine: name });
    t.after(() => agent.drop());
    agents.push(agent);
  }
  const page = await logInPage(t, { ...shared, relay });
  await page.logIn();
  for (const agent of agents) await page.row(agent).waitFor();
  return { page, agents };
}

/** @typedef {import('../support/console_page.mjs').ConsolePage} ConsolePage */

/** Waits until the list shows exactly these names in this order. */
function shows(/** @type {ConsolePage} */ page, /** @type {string[]} */ names) {
  return until(`the list shows ${names}`, async () => {
    const seen = await page.page.locator('.machine-name').allInnerTexts();
    if (seen.join() !== names.join()) throw new Error(seen.join());
    return true;
  });
}

/** The class and the machine's name of the element that has the focus; its id outside the list. */
function focused(/** @type {ConsolePage} */ page) {
  return page.page.evaluate(() => {
    const active = document.activeElement;
    const name = active?.closest('.machine')?.querySelector('.machine-name')?.textContent;
    return name ? `${active?.classList.item(active.classList.length - 1)} of ${name}` : active?.id;
  });
}

test('a row keeps its element and the focus while its machine goes offline, moves and comes back', async (t) => {
  const { page, agents } = await listOf(t, ['Alda', 'Brim', 'Dögg']);
  const [alda] = agents;
  const open = page.row(alda).locator('.machine-open');
  await open.focus();
  const element = await open.elementHandle();
  const isSame = () => open.evaluate((now, before) => now === before, element);

  alda.rename('Unnur');
  await shows(page, ['Brim', 'Dögg', 'Unnur']);
  assert.deepEqual([await focused(page), await isSame()], ['machine-open of Unnur', true]);
  alda.rename('Alda');
  await shows(page, ['Alda', 'Brim', 'Dögg']);
  alda.drop();
  await shows(page, ['Brim', 'Dögg', 'Alda']);
  assert.deepEqual([await focused(page), await isSame()], ['machine-open of Alda', true]);
  // An offline machine opens no session, although its button has the focus.
  await page.page.keyboard.press('Enter');
  assert.ok(await page.page.locator('#view-machines').isVisible());

  // The button that disappears when the machine is back passes the focus on to its row.
  await page.page.keyboard.press('Tab');
  assert.equal(await focused(page), 'machine-forget of Alda');
  await alda.connect();
  await shows(page, ['Alda', 'Brim', 'Dögg']);
  assert.equal(await focused(page), 'machine-open of Alda');
  await page.page.keyboard.press('Enter');
  await page.page.locator('#view-session').waitFor();
});

test('a row keeps the focus when the search hides or shows other rows', async (t) => {
  const { page, agents } = await listOf(t, ['Alda', 'Brim', 'Dögg', 'Una']);
  const search = (/** @type {string} */ text) =>
    page.page.locator('#machine-search').evaluate((field, value) => {
      /** @type {HTMLInputElement} */ (field).value = value;
      field.dispatchEvent(new InputEvent('input'));
    }, text);
  await page.row(agents[2]).locator('.machine-open').focus();
  await search('dögg');
  await shows(page, ['Dögg']);
  assert.equal(await focused(page), 'machine-open of Dögg');
  await search('');
  await shows(page, ['Alda', 'Brim', 'Dögg', 'Una']);
  assert.equal(await focused(page), 'machine-open of Dögg');
  // The focus of a row that disappears goes to the next row, to the one before it, and to the search field.
  await search('a');
  await shows(page, ['Alda', 'Una']);
  assert.equal(await focused(page), 'machine-open of Una');
  await search('alda');
  await shows(page, ['Alda']);
  assert.equal(await focused(page), 'machine-open of Alda');
  await search('nothing');
  await shows(page, []);
  assert.equal(await focused(page), 'machine-search');
});

test('after a machine is forgotten, the focus is on the next row', async (t) => {
  const { page, agents } = await listOf(t, ['Alda', 'Brim', 'Dögg']);
  agents[0].drop();
  agents[1].drop();
  await shows(page, ['Dögg', 'Alda', 'Brim']);
  await page.row(agents[0]).locator('.machine-forget').click();
  await page.page.keyboard.press('Escape');
  assert.equal(await focused(page), 'machine-forget of Alda');
  await page.page.keyboard.press('Enter');
  await page.page.click('#forget-dialog button[value=forget]');
  await shows(page, ['Dögg', 'Brim']);
  assert.equal(await focused(page), 'machine-open of Brim');
});
