// Two relays that share a database: a session begins at the relay that has the machine, and goes on at the other one
// when that relay dies.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { copyFileSync, mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { createServer } from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { administrator } from '../support/admin/api.mjs';
import { ConsolePage, launch } from '../support/console_page.mjs';
import { plain } from '../support/pictures.mjs';
import { Relay } from '../support/relay.mjs';
import { ScriptedAgent } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const SERVER = join(dirname(fileURLToPath(import.meta.url)), '../../tools/postgresql-server');

/** @type {string} */
let folder;
/** @type {Relay} */
let north;
/** @type {Relay} */
let south;
/** @type {import('playwright-core').Browser} */
let browser;

/** @returns {Promise<number>} a port that nothing uses at this moment */
const freePort = () =>
  new Promise((done) => {
    const server = createServer();
    server.listen(0, '127.0.0.1', () => {
      const { port } = /** @type {import('node:net').AddressInfo} */ (server.address());
      server.close(() => done(port));
    });
  });

/** @param {string} name @param {boolean} first whether the relay adds the administrator */
async function relayNamed(name, first) {
  const port = await freePort();
  const database = readFileSync(join(folder, 'url'), 'utf8').trim();
  const options = ['--relay-name', name, '--relay-address', `https://localhost:${port}`];
  const relay = new Relay(options, { people: first, enrolment: first, database });
  relay.port = port;
  return relay;
}

before(async () => {
  folder = mkdtempSync(join(tmpdir(), 'vantelink-console-'));
  execFileSync(SERVER, ['start', folder, '-c', 'fsync=off']);
  north = await relayNamed('north', true);
  await north.start();
  south = await relayNamed('south', false);
  for (const key of ['trail-key.pem', 'trail-key.pub'])
    copyFileSync(join(north.data, key), join(south.data, key));
  await south.start();
  browser = await launch();
});

after(async () => {
  await browser?.close();
  await north?.remove();
  await south?.remove();
  execFileSync(SERVER, ['stop', folder]);
  rmSync(folder, { recursive: true, force: true });
});

test('a session follows its machine to the relay that has it, and back when that relay dies', async (t) => {
  const agent = await ScriptedAgent.online(south, { name: 'Esja' });
  t.after(() => agent.drop());
  agent.onStream = () => {
    agent.config({ width: 640, height: 360 });
    agent.frame(plain(640, 360, '#406080'));
  };
  const api = await administrator(north);
  const page = await ConsolePage.opened(browser, north, { storageState: api.browserState });
  t.after(() => page.close());
  page.page.on('dialog', () => assert.fail('the page asks before it goes to another relay'));
  await page.ask(agent);
  await page.page.waitForURL(`${south.url}**`);
  await page.frames(1);
  assert.equal(await page.page.locator('#session-name').innerText(), 'Esja');
  assert.doesNotMatch(page.page.url(), /ticket/);

  const session = agent.session;
  await south.kill();
  agent.drop();
  agent.relay = north;
  await agent.connect();
  await page.page.waitForURL(`${north.url}**`, { timeout: 30_000 });
  await page.frames(1);
  assert.notEqual(agent.session, session, 'the session was asked for again');
  await until('the silent relay is reported', () => /the relay "south" is silent/.test(north.log));
});
