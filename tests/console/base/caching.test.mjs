// The console's files come compressed from the relay's program, and a page that is loaded again asks for one of them.
import assert from 'node:assert/strict';
import { createHash, X509Certificate } from 'node:crypto';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import test from 'node:test';
import { ConsolePage, launch } from '../support/console_page.mjs';
import { Relay } from '../support/relay.mjs';

/** @typedef {{path: string, transferSize: number, encodedBodySize: number, decodedBodySize: number}} Loaded */

/** What the page has loaded. @returns {Promise<Loaded[]>} */
const loaded = (/** @type {import('playwright-core').Page} */ page) =>
  page.evaluate(() =>
    [...performance.getEntriesByType('navigation'), ...performance.getEntriesByType('resource')].map(
      (entry) => {
        const { name, transferSize, encodedBodySize, decodedBodySize } =
          /** @type {PerformanceResourceTiming} */ (entry);
        return { path: new URL(name).pathname, transferSize, encodedBodySize, decodedBodySize };
      },
    ),
  );

/** The bytes of these files. @param {Loaded[]} files @param {'encodedBodySize' | 'decodedBodySize'} size */
const bytes = (files, size) => files.reduce((all, file) => all + file[size], 0);

/** An argument that makes Chromium trust the relay: it stores nothing of a server with an unknown certificate. */
function trusting(/** @type {Relay} */ relay) {
  const certificate = new X509Certificate(readFileSync(join(relay.data, 'relay-cert.pem')));
  const key = certificate.publicKey.export({ type: 'spki', format: 'der' });
  return `--ignore-certificate-errors-spki-list=${createHash('sha256').update(key).digest('base64')}`;
}

test('a page that is loaded again loads only the first page and the state of its log-in', async (t) => {
  const relay = await Relay.started();
  t.after(() => relay.remove());
  const browser = await launch([trusting(relay)]);
  t.after(() => browser.close());
  const { page } = await ConsolePage.opened(browser, relay);
  await page.locator('#login-form').waitFor();
  const first = await loaded(page);
  const files = first.filter(({ path }) => !path.startsWith('/api/'));
  assert.ok(files.length > 100, `${files.length} files`);
  assert.deepEqual(
    files.filter(({ path }) => !path.startsWith('/v/')).map(({ path }) => path),
    ['/'],
  );
  assert.ok(
    bytes(files, 'encodedBodySize') * 2 < bytes(files, 'decodedBodySize'),
    'the files are compressed',
  );
  await page.reload();
  await page.locator('#login-form').waitFor();
  const again = await loaded(page);
  assert.equal(again.length, first.length);
  const transferred = again.filter(({ path, transferSize }) => transferSize > 0 && !path.startsWith('/api/'));
  assert.deepEqual(
    transferred.map(({ path }) => path),
    ['/'],
  );
});
