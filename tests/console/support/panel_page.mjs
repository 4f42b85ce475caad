// The file panel in a browser: its folders, for tests of the panel, of downloads and of uploads.
import { createHash } from 'node:crypto';
import { openSession } from './fixture.mjs';
import { MachineFolders } from './machine_folders.mjs';
import { until } from './waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */

export const MiB = 1024 * 1024;

export const sha256 = (/** @type {Uint8Array} */ bytes) => createHash('sha256').update(bytes).digest('hex');

/** The time of a file from before 1970, as the machine sends it. */
const BEFORE_1970 = 2 ** 64 - 600;

/** @type {import('./machine_folders.mjs').Folders} */
export const DISK = {
  '': [
    { name: 'C:', dir: true, mtime: 0 },
    { name: 'E:', dir: true, mtime: 0 },
  ],
  'C:\\': [{ name: 'Users', dir: true, path: 'C:\\Users' }],
  'C:\\Users': [
    { name: 'Zoe', dir: true },
    { name: 'Ægir', dir: true },
    { name: 'b10.txt', size: 10 },
    { name: 'B9.txt', size: 5_000_000, mtime: 1_600_000_000 },
    { name: 'old.txt', size: 7, mtime: BEFORE_1970 },
    { name: 'þjóð.txt', size: 1234, mtime: 1_650_000_000 },
  ],
  'C:\\Users\\Zoe': [],
};

/**
 * Opens a session and its file panel, which shows the drives.
 * @param {import('node:test').TestContext} t
 * @param {import('./fixture.mjs').Shared} shared
 * @param {import('./machine_folders.mjs').Folders} [folders]
 * @param {import('./fixture.mjs').Options} [options]
 */
export async function openPanel(t, shared, folders = DISK, options = {}) {
  const { agent, page } = await openSession(t, shared, options);
  const machine = new MachineFolders(agent, structuredClone(folders));
  await clickPanelButton(page.page);
  await page.page.locator('.file').first().waitFor();
  return { agent, machine, page, p: page.page };
}

/** Opens the file panel by its button, which a narrow page has in a menu. */
export async function clickPanelButton(/** @type {Page} */ p) {
  const button = p.locator('#panel-files-button');
  if (!(await button.isVisible())) await p.click('#bar-menu');
  await button.click();
}

/** The names of the rows on the page, in their order. */
export function namesIn(/** @type {Page} */ p) {
  return p
    .locator('.file')
    .evaluateAll((rows) =>
      /** @type {HTMLElement[]} */ (rows)
        .sort((a, b) => Number(a.dataset.index) - Number(b.dataset.index))
        .map((row) => row.querySelector('bdi')?.textContent ?? ''),
    );
}

/** Waits until the folder shows exactly these names. */
export function shows(/** @type {Page} */ p, /** @type {string[]} */ wanted) {
  return until(`the folder shows ${wanted}`, async () => {
    const seen = await namesIn(p);
    if (seen.join('|') !== wanted.join('|')) throw new Error(seen.join('|'));
    return true;
  });
}

/** The row of a file. */
export function fileRow(/** @type {Page} */ p, /** @type {string} */ name) {
  return p.locator('.file', { has: p.locator(`bdi:text-is(${JSON.stringify(name)})`) });
}

/** Opens the folder C:\Users of DISK. */
export async function openUsers(/** @type {Page} */ p) {
  await fileRow(p, 'C:').dblclick();
  await fileRow(p, 'Users').dblclick();
  await fileRow(p, 'Zoe').waitFor();
}
