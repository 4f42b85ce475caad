// A viewer in the distribution's Chromium: the console of a relay of its own, or the page of another program.
//
//     node viewer.mjs console           runs a relay and shows the first machine that connects to it
//     node viewer.mjs vnc PORT          shows what a program sends that listens on this port of loopback
//
// change_bench starts it and reads these lines from its standard output:
//     relay PORT PID CERTIFICATE        the relay is ready for a machine; only of the console
//     display NUMBER NS PICTURES BYTES  the page is displayed with this number in the picture's corner, NS
//                                       nanoseconds after the beginning of CLOCK_MONOTONIC; pictures and bytes are
//                                       counted since the page was opened
//     saved                             the answer to `save`
//     failed TEXT                       the last line
// Standard input: `key` presses the key A; `save PATH` writes the picture there as PNG; its end ends the program.
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { ConsolePage, launch } from '../../../tests/console/support/console_page.mjs';
import { Relay } from '../../../tests/console/support/relay.mjs';
import { clockOf } from './clock.mjs';
import { watchPicture } from './page.mjs';
import { PEER_CANVAS, servePeer } from './peer_page.mjs';

/** @typedef {import('../../../tests/console/support/console_page.mjs').Page} Page */
/** @typedef {import('../../../tests/console/support/console_page.mjs').Browser} Browser */
/** @typedef {{number: number, at: number, pictures: number, bytes: number}} Display */

const MACHINE_MS = 60_000;

const say = (/** @type {unknown[]} */ ...words) => process.stdout.write(`${words.join(' ')}\n`);
const watching = (/** @type {string} */ selector) => `(${watchPicture})(${JSON.stringify(selector)})`;

/** What ends with the program, also after a failure. @type {(() => void | Promise<void>)[]} */
const closing = [];

/** @param {Browser} browser */
async function openConsole(browser) {
  const relay = await Relay.started();
  closing.push(() => relay.remove());
  say('relay', relay.port, relay.process?.pid, join(relay.data, 'relay-cert.pem'));
  const console = await ConsolePage.opened(browser, relay, { script: watching('#screen') });
  await console.logIn();
  await console.page.locator('.machine-open').first().click({ timeout: MACHINE_MS });
  return { page: console.page, canvas: console.canvas };
}

/** @param {Browser} browser @param {number} port */
async function openPeer(browser, port) {
  const { url, close } = await servePeer(port);
  closing.push(close);
  const page = await browser.newPage({ viewport: { width: 1440, height: 900 } });
  await page.addInitScript(watching(PEER_CANVAS));
  await page.goto(url);
  return { page, canvas: page.locator(PEER_CANVAS) };
}

/** Reports each display, and starts with the one that is there. @param {Page} page */
async function report(page) {
  const monotonic = await clockOf(page);
  await page.exposeFunction('tell', (/** @type {Display[]} */ displays) => {
    for (const { number, at, pictures, bytes } of displays)
      say('display', number, monotonic(at), pictures, bytes);
  });
}

async function run() {
  const [what, port] = process.argv.slice(2);
  const browser = await launch();
  closing.push(() => browser.close());
  const { page, canvas } = await (what === 'console'
    ? openConsole(browser)
    : openPeer(browser, Number(port)));
  await canvas.waitFor();
  await report(page);
  await canvas.focus();
  for await (const line of createInterface(process.stdin)) {
    const [command, path] = line.split(/ (.*)/);
    if (command === 'key') await page.keyboard.press('a');
    if (command !== 'save') continue;
    const url = await canvas.evaluate((element) =>
      /** @type {HTMLCanvasElement} */ (element).toDataURL('image/png'),
    );
    writeFileSync(path, Buffer.from(url.split(',')[1], 'base64'));
    say('saved');
  }
}

try {
  await run();
} catch (error) {
  say('failed', String(error).replace(/\n.*/s, ''));
}
for (const close of closing.reverse()) await close();
process.exit();
