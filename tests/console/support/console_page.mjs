// A browser with the console in it, and the few things that every test does there.
import { mkdirSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { chromium } from 'playwright-core';
import { PASSWORD, USER } from './relay.mjs';
import { DEADLINE_MS, until } from './waiting.mjs';

const SHOTS = join(dirname(fileURLToPath(import.meta.url)), '../../../build/console-shots');

export function launch() {
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
    ],
  });
}

export class ConsolePage {
  /** @param {import('playwright-core').BrowserContextOptions & {script?: string}} [options] script: run before the page's */
  static async opened(browser, relay, { script = '', ...options } = {}) {
    const context = await browser.newContext({
      ignoreHTTPSErrors: true,
      viewport: { width: 1440, height: 900 },
      locale: 'en-GB',
      ...options,
    });
    if (script) await context.addInitScript(script);
    const page = await context.newPage();
    page.setDefaultTimeout(DEADLINE_MS);
    const self = new ConsolePage(page, relay);
    await page.goto(relay.url);
    return self;
  }

  constructor(page, relay) {
    this.page = page;
    this.relay = relay;
    /** Exceptions of the page's scripts: a test that ends with one has failed. */
    this.faults = [];
    page.on('pageerror', (error) => this.faults.push(error.stack));
    this.canvas = page.locator('#screen');
  }

  async logIn(user = USER, password = PASSWORD) {
    await this.page.fill('#login-name', user);
    await this.page.fill('#login-password', password);
    await this.page.click('#login-submit');
  }

  row(agent) {
    return this.page.locator(`.machine[data-agent="${agent.id}"]`);
  }

  /** Asks for a session, without waiting for its start. */
  async ask(agent) {
    await this.row(agent).locator('.machine-open').click();
  }

  async frames(count) {
    await until(
      `${count} frames are drawn`,
      async () => Number(await this.canvas.getAttribute('data-frames')) >= count,
    );
  }

  /** The text over the picture, '' when there is none. */
  async note() {
    const note = this.page.locator('#session-note');
    return (await note.isVisible()) ? this.page.locator('#session-note-text').innerText() : '';
  }

  async waitForNote(pattern) {
    await until(
      `a note like ${pattern}`,
      async () => pattern.test(await this.note()) || (`"${await this.note()}"` && false),
    );
  }

  /** Colours of the canvas at its own pixels, as [red, green, blue]. */
  async pixels(points) {
    return this.canvas.evaluate(
      (canvas, places) =>
        places.map(({ x, y }) => [...canvas.getContext('2d').getImageData(x, y, 1, 1).data.slice(0, 3)]),
      points,
    );
  }

  /** For the eye: build/console-shots/NAME.png. */
  async shot(name) {
    mkdirSync(SHOTS, { recursive: true });
    await this.page.screenshot({ path: join(SHOTS, `${name}.png`) });
  }

  async close() {
    await this.page.context().close();
    if (this.faults.length) throw new Error(`the page's scripts failed: ${this.faults.join('\n')}`);
  }
}
