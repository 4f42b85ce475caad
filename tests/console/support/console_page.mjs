// A browser page that shows the console, with the actions and queries that many tests need.
import { mkdirSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { chromium, firefox } from 'playwright-core';
import { PASSWORD, USER } from './relay.mjs';
import { DEADLINE_MS, until } from './waiting.mjs';

const SHOTS = join(dirname(fileURLToPath(import.meta.url)), '../../../build/console-shots');

/**
 * script: runs before the scripts of the page. prepare: is called before the page is opened. at: the fragment of
 * the page's address.
 * @typedef {import('playwright-core').BrowserContextOptions & {script?: string, at?: string,
 *   prepare?: (context: import('playwright-core').BrowserContext) => Promise<void>}} PageOptions
 */
/** For programs outside this folder, which do not find the package. */
/** @typedef {import('playwright-core').Browser} Browser */
/** @typedef {import('playwright-core').Page} Page */
/** @typedef {{id?: string}} Machine */
/** @typedef {{x: number, y: number}} Point */

/** The browser in which the tests run: 'firefox' if the environment variable BROWSER says so. */
export const BROWSER = process.env.BROWSER === 'firefox' ? 'firefox' : 'chromium';

/** Starts the distribution's browser: Chromium over its own protocol, Firefox over WebDriver BiDi. */
/** @param {string[]} [more] arguments for Chromium */
export function launch(more = []) {
  if (BROWSER === 'firefox') {
    return firefox.launch({
      channel: 'moz-firefox',
      executablePath: process.env.FIREFOX ?? '/usr/bin/firefox-esr',
    });
  }
  return chromium.launch({
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    args: [
      '--no-sandbox',
      '--disable-gpu',
      '--disable-quic',
      '--no-first-run',
      '--disable-background-networking',
      '--disable-component-update',
      '--disable-sync',
      ...more,
    ],
  });
}

/**
 * Firefox also reports as errors what its scripts did not throw: lost connections, and the style that a screenshot
 * adds to the page, which the page's policy forbids.
 */
function isWarning(/** @type {Error} */ { name, message }) {
  return (
    BROWSER === 'firefox' &&
    /^Content-Security-Policy|^Firefox can’t establish a connection|^The connection to wss:/.test(
      `${name}: ${message}`.replace(/^(Error)?: /, ''),
    )
  );
}

/** Runs in the page. Firefox does not count clicks that come over WebDriver BiDi, so it reports no double click. */
function countClicks() {
  let last = { time: -Infinity, x: 0, y: 0 };
  addEventListener('click', ({ target, timeStamp: time, clientX, clientY }) => {
    const isSecond = time - last.time < 2000 && Math.hypot(clientX - last.x, clientY - last.y) < 5;
    last = { time: isSecond ? -Infinity : time, x: clientX, y: clientY };
    if (isSecond) target?.dispatchEvent(new MouseEvent('dblclick', { bubbles: true, clientX, clientY }));
  });
}

export class ConsolePage {
  /**
   * @param {import('playwright-core').Browser} browser
   * @param {import('./relay.mjs').Relay} relay
   * @param {PageOptions} [options]
   */
  static async opened(browser, relay, { script = '', at = '', prepare, ...options } = {}) {
    const context = await browser.newContext({
      ignoreHTTPSErrors: true,
      viewport: { width: 1440, height: 900 },
      locale: 'en-GB',
      ...options,
    });
    if (BROWSER === 'firefox') await context.addInitScript(countClicks);
    if (script) await context.addInitScript(script);
    await prepare?.(context);
    const page = await context.newPage();
    page.setDefaultTimeout(DEADLINE_MS);
    const self = new ConsolePage(page);
    await page.goto(`${relay.url}${at}`);
    return self;
  }

  constructor(/** @type {import('playwright-core').Page} */ page) {
    this.page = page;
    /** @type {string[]} exceptions of the page's scripts; close() throws if there are any */
    this.exceptions = [];
    page.on('pageerror', (error) => {
      if (!isWarning(error)) this.exceptions.push(error.stack ?? error.message);
    });
    this.canvas = page.locator('#screen');
  }

  async logIn(user = USER, password = PASSWORD) {
    await this.page.fill('#login-name', user);
    await this.page.fill('#login-password', password);
    await this.page.click('#login-submit');
  }

  /** The machine's row in the list. */
  row(/** @type {Machine} */ agent) {
    return this.page.locator(`.machine[data-agent="${agent.id}"]`);
  }

  /** The part of the machine's row that shows a state. */
  badge(/** @type {Machine} */ agent, /** @type {string} */ state) {
    return this.row(agent).locator(`.badge[data-state=${state}]`);
  }

  /** Requests a session, without waiting for its start. */
  async ask(/** @type {Machine} */ agent) {
    await this.row(agent).locator('.machine-open').click();
  }

  /** Waits until at least `count` frames are drawn. */
  async frames(/** @type {number} */ count) {
    await until(`${count} frames are drawn`, async () => (await this.frameCount()) >= count);
  }

  async frameCount() {
    return Number(await this.canvas.getAttribute('data-frames'));
  }

  /** The size of the picture in its own pixels. */
  async pictureSize() {
    return this.canvas.evaluate((/** @type {HTMLCanvasElement} */ canvas) => [canvas.width, canvas.height]);
  }

  /** The canvas's rectangle on the page. */
  async canvasBox() {
    const box = await this.canvas.boundingBox();
    if (!box) throw new Error('the picture is not visible');
    return box;
  }

  /** The message over the picture; '' when no message is shown. */
  async note() {
    const note = this.page.locator('#session-note');
    return (await note.isVisible()) ? this.page.locator('#session-note-text').innerText() : '';
  }

  async waitForNote(/** @type {RegExp} */ pattern) {
    await until(`a message like ${pattern}`, async () => {
      const note = await this.note();
      if (!pattern.test(note)) throw new Error(`"${note}"`);
      return true;
    });
  }

  async waitForNoNote() {
    await until('the message is gone', async () => (await this.note()) === '');
  }

  /** Colours of the canvas at points in its own pixels, each as [red, green, blue]. */
  async pixels(/** @type {Point[]} */ points) {
    return this.canvas.evaluate(
      (/** @type {HTMLCanvasElement} */ canvas, /** @type {Point[]} */ places) =>
        places.map(({ x, y }) => [
          ...(canvas.getContext('2d')?.getImageData(x, y, 1, 1).data.slice(0, 3) ?? []),
        ]),
      points,
    );
  }

  /** Saves a screenshot as build/console-shots/NAME.png. */
  async shot(/** @type {string} */ name) {
    mkdirSync(SHOTS, { recursive: true });
    await this.page.screenshot({ path: join(SHOTS, `${name}.png`) });
  }

  async close() {
    await this.page.context().close();
    if (this.exceptions.length) throw new Error(`the page's scripts failed: ${this.exceptions.join('\n')}`);
  }
}
