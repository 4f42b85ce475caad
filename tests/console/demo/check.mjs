// Plays a representative's whole session in a headless browser against a running demo: logs in, opens the
// machine, looks at its desktop, types into Notepad and clicks in WineMine. Every step is checked from
// outside: typed text in the file that Notepad saves, and the picture by comparing the console's canvas with
// a screenshot of the machine's display.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { readFile, writeFile } from 'node:fs/promises';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { parseArgs, promisify } from 'node:util';
import { launch } from './support/console_page.mjs';
import { present } from './support/present.mjs';
import { DEADLINE_MS, until } from './support/waiting.mjs';

/** @typedef {import('playwright-core').Page} Page */
/** @typedef {import('playwright-core').Locator} Locator */
/** @typedef {{x: number, y: number}} Point */
/** @typedef {Point & {width: number, height: number}} Area */

const run = promisify(execFile);
const DESK_TOOL = join(dirname(fileURLToPath(import.meta.url)), '../../tools/desk');
const TYPED = 'Typed in the browser, read in Windows: 6 * 7 = 42 (Yes!)';
// Where tools/demo places the windows, in pixels of the desktop.
const NOTEPAD_TEXT = { x: 700, y: 250 };
const NOTEPAD_LINE = { x: 426, y: 86, width: 530, height: 14 };
// The inside of the middle cell of WineMine's board.
const MINE_CELL = { x: 1090, y: 158, width: 12, height: 12 };
const BESIDE_WINDOWS = { x: 700, y: 600 };
const WHOLE = { x: 0, y: 0, width: 1280, height: 720 };
// The largest accepted share of wrong pixels in each area. The colour errors of both codecs at edges, the
// pointer in the picture and a blinking caret stay far below these limits. A missing window is far above the
// limit of WHOLE, missing text above that of NOTEPAD_LINE, and a cell that is open in only one of the two
// pictures above that of MINE_CELL.
const WRONG_PIXEL = '25%';
/** @type {Map<Area, number>} */
const MAX_WRONG = new Map([
  [WHOLE, 0.004],
  [NOTEPAD_LINE, 0.045],
  [MINE_CELL, 0.3],
]);

const options = readOptions();

function readOptions() {
  const text = /** @type {const} */ ({ type: 'string' });
  const { values } = parseArgs({
    options: { url: text, user: text, machine: text, desk: text, note: text, codec: text, out: text },
  });
  return {
    url: present(values.url),
    user: present(values.user),
    machine: present(values.machine),
    desk: present(values.desk),
    note: present(values.note),
    codec: present(values.codec),
    out: present(values.out),
  };
}

/** The share of an area's pixels that differ between two pictures. */
async function wrongPixels(
  /** @type {string} */ first,
  /** @type {string} */ second,
  /** @type {Area} */ area,
) {
  const crop = ['-crop', `${area.width}x${area.height}+${area.x}+${area.y}`, '+repage'];
  const compare = '-alpha off -compose difference -composite -colorspace gray'.split(' ');
  const share = ['-threshold', WRONG_PIXEL, '-format', '%[fx:mean]', 'info:'];
  const { stdout } = await run('convert', [first, second, ...crop, ...compare, ...share]);
  return Number(stdout);
}

async function colourCount(/** @type {string} */ picture) {
  const { stdout } = await run('identify', ['-format', '%k', picture]);
  return Number(stdout);
}

const file = (/** @type {string} */ name) => join(options.out, name);
const shot = (/** @type {string} */ name) => run(DESK_TOOL, ['shot', options.desk, file(name)]);
const report = (/** @type {string} */ what) => console.log(`ok  ${what}`);

async function saveCanvas(/** @type {Locator} */ canvas, /** @type {string} */ name) {
  const url = await canvas.evaluate((element) =>
    /** @type {HTMLCanvasElement} */ (element).toDataURL('image/png'),
  );
  await writeFile(file(name), Buffer.from(url.slice(url.indexOf(',') + 1), 'base64'));
}

/** The point of the page at which the console shows a point of the desktop. */
async function onPage(/** @type {Locator} */ canvas, /** @type {Point} */ { x, y }) {
  const box = present(await canvas.boundingBox());
  const size = await canvas.evaluate((element) => {
    const { width, height } = /** @type {HTMLCanvasElement} */ (element);
    return { width, height };
  });
  const scale = Math.min(box.width / size.width, box.height / size.height);
  return {
    x: box.x + (box.width - size.width * scale) / 2 + x * scale,
    y: box.y + (box.height - size.height * scale) / 2 + y * scale,
  };
}

async function click(/** @type {Page} */ page, /** @type {Locator} */ canvas, /** @type {Point} */ point) {
  const { x, y } = await onPage(canvas, point);
  await page.mouse.move(x, y);
  await page.mouse.click(x, y, { delay: 60 });
}

/** Waits until a window is in front: after a click, Wine sends keys to the previous window for a moment. */
async function inFront(/** @type {string} */ title) {
  await until(`${title} is in front`, async () => {
    const focused = '. "$0/env" && xdotool getwindowfocus getwindowname';
    const { stdout } = await run('bash', ['-c', focused, options.desk]);
    if (!stdout.includes(title)) throw new Error(stdout.trim());
    return true;
  });
}

async function sameAsDesktop(
  /** @type {Locator} */ canvas,
  /** @type {string} */ name,
  /** @type {Area[]} */ ...areas
) {
  await until(`the picture "${name}" equals the desktop`, async () => {
    await shot(`${name}-desktop.png`);
    await saveCanvas(canvas, `${name}-canvas.png`);
    for (const area of [WHOLE, ...areas]) {
      const wrong = await wrongPixels(file(`${name}-canvas.png`), file(`${name}-desktop.png`), area);
      if (wrong > present(MAX_WRONG.get(area)))
        throw new Error(`${(wrong * 100).toFixed(2)} % of ${JSON.stringify(area)} is wrong`);
    }
    return true;
  });
  assert.ok((await colourCount(file(`${name}-desktop.png`))) > 8, 'the desktop is not blank');
  report(`${name}: the console shows the desktop`);
}

async function logIn(/** @type {Page} */ page) {
  await page.goto(options.url);
  await page.fill('#login-name', options.user);
  await page.fill('#login-password', process.env.PASSWORD ?? '');
  await page.click('#login-submit');
  report('logged in');
}

/** Opens a session with the machine. @returns {Promise<Locator>} the picture */
async function openSession(/** @type {Page} */ page) {
  const machine = page.getByText(options.machine).first();
  await machine.waitFor({ timeout: DEADLINE_MS });
  await page.screenshot({ path: file('console-machines.png') });
  await machine.click();
  const canvas = page.locator('canvas[data-frames]');
  await until('frames arrive', async () => Number(await canvas.getAttribute('data-frames')) > 0);
  report('frames arrive');
  await usesCodec(page, options.codec);
  await sameAsDesktop(canvas, 'opened');
  return canvas;
}

async function typeIntoNotepad(/** @type {Page} */ page, /** @type {Locator} */ canvas) {
  await click(page, canvas, NOTEPAD_TEXT);
  await inFront('Notepad');
  await page.keyboard.type(TYPED, { delay: 20 });
  await page.keyboard.press('Control+s');
  await until('Notepad has the text', async () => {
    const text = (await readFile(options.note, 'utf8')).replace(/^\ufeff/, '');
    if (text !== TYPED) throw new Error(JSON.stringify(text));
    return true;
  });
  report('Notepad saved exactly what was typed');
  await sameAsDesktop(canvas, 'typed', NOTEPAD_LINE);
}

async function clickInWineMine(/** @type {Page} */ page, /** @type {Locator} */ canvas) {
  await click(page, canvas, { x: MINE_CELL.x + 6, y: MINE_CELL.y + 6 });
  // The pointer is moved off the cell, because it is part of the picture.
  const aside = await onPage(canvas, BESIDE_WINDOWS);
  await page.mouse.move(aside.x, aside.y);
  await until('the cell opened', async () => {
    await shot('clicked-desktop.png');
    const changed = await wrongPixels(file('typed-desktop.png'), file('clicked-desktop.png'), MINE_CELL);
    return changed > present(MAX_WRONG.get(MINE_CELL));
  });
  await sameAsDesktop(canvas, 'clicked', MINE_CELL);
  await page.screenshot({ path: file('console-session.png') });
}

async function switchToJpeg(/** @type {Page} */ page, /** @type {Locator} */ canvas) {
  await page.click('#picture-menu summary');
  await page.selectOption('#codec', 'mjpeg');
  await usesCodec(page, 'JPEG');
  await page.click('#picture-menu summary');
  await sameAsDesktop(canvas, 'jpeg');
}

/**
 * Waits until the status line names the codec, which requires that the machine's encoder and the browser's
 * decoder both work.
 */
async function usesCodec(/** @type {Page} */ page, /** @type {string} */ codec) {
  await until(`the pictures are ${codec}`, async () => {
    const line = await page.locator('#status-line').innerText();
    if (!line.includes(` · ${codec} · `)) throw new Error(line);
    return true;
  });
  report(`the pictures are ${codec}`);
}

const browser = await launch();
const page = await browser.newPage({ ignoreHTTPSErrors: true, viewport: { width: 1440, height: 900 } });
page.on('console', (message) => {
  if (message.type() === 'error') console.error(`browser: ${message.text()}`);
});
page.on('pageerror', (error) => console.error(`browser: ${error.message}`));
let failed = false;
try {
  await logIn(page);
  const canvas = await openSession(page);
  await typeIntoNotepad(page, canvas);
  await clickInWineMine(page, canvas);
  if (options.codec !== 'JPEG') await switchToJpeg(page, canvas);
} catch (error) {
  failed = true;
  const message = error instanceof Error ? error.message : String(error);
  console.error(`FAILED  ${message.split('\n', 3).join('\n')}`);
  await page.screenshot({ path: file('console-failed.png') }).catch(() => {});
  await shot('failed-desktop.png').catch(() => {});
} finally {
  await browser.close();
}
process.exit(failed ? 1 : 0);
