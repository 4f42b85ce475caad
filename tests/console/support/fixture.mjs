// Starts one relay and one browser for all tests of a file, and a machine and a page for each test.
import { after, before } from 'node:test';
import { ConsolePage, launch } from './console_page.mjs';
import { plain } from './pictures.mjs';
import { PASSWORD, Relay, USER } from './relay.mjs';
import { ScriptedAgent } from './scripted_agent.mjs';

/** @typedef {import('node:test').TestContext} TestContext */
/** @typedef {{relay: Relay, browser: import('playwright-core').Browser}} Shared */
/** @typedef {{agent?: import('./scripted_agent.mjs').AgentOptions,
 *   page?: import('./console_page.mjs').PageOptions}} Options */

/**
 * Starts a relay and a browser before the first test of a file and ends them after the last. To be called
 * once in a file; the result is filled in before the first test.
 * @param {string[]} [relayOptions]
 * @returns {Shared}
 */
export function fixture(relayOptions) {
  const shared = /** @type {Shared} */ ({});
  before(async () => {
    shared.relay = await Relay.started(relayOptions);
    shared.browser = await launch();
  });
  after(async () => {
    await shared.browser?.close();
    await shared.relay?.remove();
  });
  return shared;
}

/**
 * The browser's storage after a log-in at the relay. All tests share it, because the log-in page has tests of
 * its own.
 */
function login(/** @type {Shared} */ { relay, browser }) {
  relay.login ??= (async () => {
    const context = await browser.newContext({ ignoreHTTPSErrors: true });
    await context.request.post(`${relay.url}api/login`, { data: { name: USER, password: PASSWORD } });
    const state = await context.storageState();
    await context.close();
    return state;
  })();
  return relay.login;
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
  const page = await ConsolePage.opened(browser, relay, {
    storageState: await login(shared),
    ...options.page,
  });
  t.after(() => page.close());
  return { agent, page };
}

/**
 * Opens a session between a new machine and a page, in which one picture of the given size is drawn.
 * @param {TestContext} t
 * @param {Shared} shared
 * @param {Options & {width?: number, height?: number}} [options]
 */
export async function openSession(t, shared, { width = 640, height = 360, ...options } = {}) {
  const { agent, page } = await machineAndPage(t, shared, options);
  agent.onStream = () => {
    agent.config({ width, height });
    agent.frame(plain(width, height, '#406080'));
  };
  await page.ask(agent);
  await page.frames(1);
  return { agent, page };
}
