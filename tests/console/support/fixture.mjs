// One relay and one browser for the tests of a file, and a machine and a page for each of them.
import { after, before } from 'node:test';
import { ConsolePage, launch } from './console_page.mjs';
import { plain } from './pictures.mjs';
import { PASSWORD, Relay, USER } from './relay.mjs';
import { ScriptedAgent } from './scripted_agent.mjs';

/**
 * Call once in a test file. What it gives is filled in before the first test.
 * @param {string[]} [relayOptions]
 */
export function fixture(relayOptions) {
  /** @type {{relay: Relay, browser: import('playwright-core').Browser}} */
  const shared = /** @type {any} */ ({});
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

/** What a browser keeps of a log-in at that relay, made once: the page of log-in has tests of its own. */
function login(/** @type {Relay} */ relay, browser) {
  relay.login ??= (async () => {
    const context = await browser.newContext({ ignoreHTTPSErrors: true });
    await context.request.post(`${relay.url}api/login`, { data: { name: USER, password: PASSWORD } });
    const state = await context.storageState();
    await context.close();
    return state;
  })();
  return relay.login;
}

let machines = 0;

/**
 * A machine of its own and a page that is logged in; both end with the test.
 * @param {import('node:test').TestContext} t
 * @param {{agent?: object, page?: object}} [options]
 */
export async function machineAndPage(t, { relay, browser }, options = {}) {
  const agent = await ScriptedAgent.online(relay, { name: `Ship ${++machines}`, ...options.agent });
  t.after(() => agent.drop());
  const page = await ConsolePage.opened(browser, relay, {
    storageState: await login(relay, browser),
    ...options.page,
  });
  t.after(() => page.close());
  return { agent, page };
}

/** The same with a session that runs: one picture of that size is drawn. */
export async function session(t, shared, { width = 640, height = 360, ...options } = {}) {
  const { agent, page } = await machineAndPage(t, shared, options);
  agent.onStream = () => {
    agent.config({ width, height });
    agent.frame(plain(width, height, '#406080'));
  };
  await page.ask(agent);
  await page.frames(1);
  return { agent, page };
}
