// Starts one relay and one browser for all tests of a file, and a machine and a page for each test.
import { after, before } from 'node:test';
import { Api, administrator, decide } from './admin/api.mjs';
import { ConsolePage, launch } from './console_page.mjs';
import { plain } from './pictures.mjs';
import { Relay } from './relay.mjs';
import { ScriptedAgent } from './scripted_agent.mjs';

/** @typedef {import('node:test').TestContext} TestContext */
/** @typedef {{relay: Relay, browser: import('playwright-core').Browser}} Shared */
/**
 * who: whose log-in the page has, by default the administrator's. group: the machine's group, by default the first.
 * @typedef {{agent?: import('./scripted_agent.mjs').AgentOptions, group?: number,
 *   page?: import('./console_page.mjs').PageOptions, who?: import('./admin/api.mjs').Login}} Options
 */

/**
 * Starts a relay and a browser before the first test of a file and ends them after the last. To be called
 * once in a file; the result is filled in before the first test.
 * @param {string[]} [relayOptions]
 * @param {import('./relay.mjs').SetUp} [setUp]
 * @param {(shared: Shared) => Promise<unknown>} [prepare] called before the first test
 * @returns {Shared}
 */
export function fixture(relayOptions, setUp, prepare) {
  const shared = /** @type {Shared} */ ({});
  before(async () => {
    shared.relay = await Relay.started(relayOptions, setUp);
    shared.browser = await launch();
    await prepare?.(shared);
  });
  after(async () => {
    await shared.browser?.close();
    await shared.relay?.remove();
  });
  return shared;
}

/**
 * Opens a page that shows the log-in form, and closes the page after the test.
 * @param {TestContext} t
 * @param {Shared} shared
 * @param {import('./console_page.mjs').PageOptions} [options]
 */
export async function logInPage(t, { relay, browser }, options) {
  const page = await ConsolePage.opened(browser, relay, options);
  t.after(() => page.close());
  await page.page.locator('#login-form').waitFor();
  return page;
}

let machines = 0;

/**
 * Connects a new machine and opens a page that is logged in; both are closed after the test.
 * @param {TestContext} t
 * @param {Shared} shared
 * @param {Options} [options]
 */
export async function machineAndPage(t, shared, options = {}) {
  const { relay, browser } = shared;
  const agent = await ScriptedAgent.online(relay, { name: `Ship ${++machines}`, ...options.agent });
  t.after(() => agent.drop());
  if (options.group) await decide(relay, 'move', [agent], { group: options.group });
  const api = options.who ? await Api.loggedIn(relay, options.who) : await administrator(relay);
  const page = await ConsolePage.opened(browser, relay, {
    storageState: api.browserState,
    ...options.page,
  });
  t.after(() => page.close());
  return { agent, page };
}

/**
 * Opens a session between a new machine and a page, in which one picture of the given size is drawn.
 * @param {TestContext} t
 * @param {Shared} shared
 * @param {Options & {width?: number, height?: number, reason?: string}} [options] reason: the answer to the
 *   question before the session
 */
export async function openSession(t, shared, { width = 640, height = 360, reason, ...options } = {}) {
  const { agent, page } = await machineAndPage(t, shared, options);
  agent.onStream = () => {
    agent.config({ width, height });
    agent.frame(plain(width, height, '#406080'));
  };
  await page.ask(agent);
  if (reason) await page.page.getByRole('dialog').getByLabel('Reason').fill(reason);
  if (reason) await page.page.getByRole('button', { name: 'Ask for the session' }).click();
  await page.frames(1);
  return { agent, page };
}
