// The relay sends changes of the list of machines: what the page redraws, and what it does about a missed change.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, logInPage } from '../support/fixture.mjs';
import { Relay } from '../support/relay.mjs';
import { ScriptedAgent } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

/** Runs in the page: records the control messages that it sends, and drops one change of the list on request. */
const WATCH = `
  window.controls = [];
  const { send } = WebSocket.prototype;
  WebSocket.prototype.send = function (data) {
    if (typeof data === 'string') controls.push(JSON.parse(data).type);
    return send.call(this, data);
  };
  const { set, ...others } = Object.getOwnPropertyDescriptor(WebSocket.prototype, 'onmessage');
  Object.defineProperty(WebSocket.prototype, 'onmessage', {
    ...others,
    set(handler) {
      set.call(this, (event) => {
        const isChange = typeof event.data === 'string' && event.data.includes('"agents-changed"');
        if (isChange && window.dropNext) window.dropNext = false;
        else handler.call(this, event);
      });
    },
  });`;

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
  const page = await logInPage(t, { ...shared, relay }, { script: WATCH });
  await page.logIn();
  for (const agent of agents) await page.row(agent).waitFor();
  const controls = (/** @type {string} */ type) =>
    page.page.evaluate((wanted) => window.controls.filter((one) => one === wanted).length, type);
  /** Waits until the list shows exactly these names in this order. */
  const shows = (/** @type {string[]} */ expected) =>
    until(`the list shows ${expected}`, async () => {
      const seen = await page.page.locator('.machine-name').allInnerTexts();
      return seen.join() === expected.join();
    });
  return { relay, page, agents, controls, shows };
}

test('a change of one machine changes only the row of this machine', async (t) => {
  const { page, agents, shows } = await listOf(t, ['Alda', 'Brim', 'Dögg']);
  await page.page.evaluate(() => {
    const touched = new Set();
    window.touched = touched;
    new MutationObserver((records) => {
      for (const { target } of records) {
        const element = target instanceof Element ? target : target.parentElement;
        touched.add(element?.closest('.machine')?.querySelector('.machine-name')?.textContent ?? 'the list');
      }
    }).observe(document.getElementById('machine-list') ?? document.body, {
      attributes: true,
      characterData: true,
      childList: true,
      subtree: true,
    });
  });
  const touched = () => page.page.evaluate(() => [...window.touched].sort());
  const other = await logInPage(t, { ...shared, relay: agents[1].relay });
  await other.logIn();
  await other.ask(agents[1]);
  await page.badge(agents[1], 'session').waitFor();
  assert.deepEqual(await touched(), ['Brim']);
  agents[2].drop();
  await page.badge(agents[2], 'offline').waitFor();
  await shows(['Alda', 'Brim', 'Dögg']);
});

test('a page that missed a change asks for the whole list once', async (t) => {
  const { page, agents, controls, shows } = await listOf(t, ['Alda', 'Brim', 'Dögg']);
  const [alda, brim, dogg] = agents;
  alda.rename('Una');
  await shows(['Brim', 'Dögg', 'Una']);
  assert.equal(await controls('list'), 0);

  await page.page.evaluate(() => {
    window.dropNext = true;
  });
  brim.rename('Missed');
  await until('the page missed it', () => page.page.evaluate(() => !window.dropNext));
  dogg.rename('Embla');
  await shows(['Embla', 'Missed', 'Una']);
  assert.equal(await controls('list'), 1);

  brim.rename('Seen');
  await shows(['Embla', 'Seen', 'Una']);
  assert.equal(await controls('list'), 1);
});

test('a forgotten machine leaves the list of every page', async (t) => {
  const { page, agents, relay, shows } = await listOf(t, ['Alda', 'Brim']);
  agents[0].drop();
  await shows(['Brim', 'Alda']);
  const other = await logInPage(t, { ...shared, relay });
  await other.logIn();
  await other.row(agents[0]).locator('.machine-forget').click();
  await other.page.click('#forget-dialog button[value=forget]');
  await other.row(agents[0]).waitFor({ state: 'detached' });
  await shows(['Brim']);
  assert.equal(await page.page.locator('#machine-count').innerText(), '1 machine, 1 online');
});
