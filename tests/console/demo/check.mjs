// Plays a representative's whole session in a headless browser against a running demo: logs in, opens the
// machine, looks at its desktop, types into Notepad, clicks in WineMine, presses Ctrl+Alt+Del and restarts the
// machine. Every step is checked from outside: typed text in the file that Notepad saves, and the picture by
// comparing the console's canvas with a screenshot of the machine's display. The speed of the stream is measured
// and printed.
import { parseArgs } from 'node:util';
import { launch } from '../support/console_page.mjs';
import { present } from '../support/present.mjs';
import { DEADLINE_MS, until } from '../support/waiting.mjs';
import { BESIDE_WINDOWS, Desktop, MINE_CELL, NOTEPAD_LINE, NOTEPAD_TEXT } from './desktop.mjs';
import { measure } from './speed.mjs';

/** @typedef {import('playwright-core').Page} Page */
/** @typedef {import('playwright-core').Locator} Locator */

const TYPED = 'Typed in the browser, read in Windows: 6 * 7 = 42 (Yes!)';
const FRAME_LIMITS = ['15', '30'];

const options = readOptions();
const desktop = new Desktop(options);

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

const report = (/** @type {string} */ what) => console.log(`ok  ${what}`);

async function isShown(
  /** @type {Locator} */ canvas,
  /** @type {string} */ name,
  /** @type {import('./desktop.mjs').Area[]} */ ...areas
) {
  await desktop.isShown(canvas, name, ...areas);
  report(`${name}: the console shows the desktop`);
}

/** The point of the page at which the console shows a point of the desktop. */
async function onPage(/** @type {Locator} */ canvas, /** @type {import('./desktop.mjs').Point} */ { x, y }) {
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

async function click(
  /** @type {Page} */ page,
  /** @type {Locator} */ canvas,
  /** @type {import('./desktop.mjs').Point} */ point,
) {
  const { x, y } = await onPage(canvas, point);
  await page.mouse.move(x, y);
  await page.mouse.click(x, y, { delay: 60 });
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
  await page.screenshot({ path: desktop.file('console-machines.png') });
  await machine.click();
  const canvas = page.locator('canvas[data-frames]');
  await until('frames arrive', async () => (await frameCount(canvas)) > 0);
  report('frames arrive');
  await usesCodec(page, options.codec);
  await isShown(canvas, 'opened');
  return canvas;
}

async function frameCount(/** @type {Locator} */ canvas) {
  return Number(await canvas.getAttribute('data-frames'));
}

async function typeIntoNotepad(/** @type {Page} */ page, /** @type {Locator} */ canvas) {
  await click(page, canvas, NOTEPAD_TEXT);
  await desktop.inFront('Notepad');
  await page.keyboard.type(TYPED, { delay: 20 });
  await save(page);
  await isShown(canvas, 'typed', NOTEPAD_LINE);
}

/** Saves in Notepad, which must be in front, and checks the text. */
async function save(/** @type {Page} */ page) {
  const before = await desktop.savedAt();
  await page.keyboard.press('Control+s');
  await until('Notepad has the text', async () => {
    const text = await desktop.savedText();
    if (text !== TYPED) throw new Error(JSON.stringify(text));
    return (await desktop.savedAt()) > before;
  });
  report('Notepad saved exactly what was typed');
}

async function clickInWineMine(/** @type {Page} */ page, /** @type {Locator} */ canvas) {
  await click(page, canvas, { x: MINE_CELL.x + 6, y: MINE_CELL.y + 6 });
  // The pointer is moved off the cell, because it is part of the picture.
  const aside = await onPage(canvas, BESIDE_WINDOWS);
  await page.mouse.move(aside.x, aside.y);
  await until('the cell opened', () =>
    desktop.hasChanged(MINE_CELL, 'typed-desktop.png', 'clicked-desktop.png'),
  );
  await isShown(canvas, 'clicked', MINE_CELL);
  await page.screenshot({ path: desktop.file('console-session.png') });
}

async function switchToJpeg(/** @type {Page} */ page, /** @type {Locator} */ canvas) {
  await choose(page, '#codec', 'mjpeg');
  await usesCodec(page, 'JPEG');
  await isShown(canvas, 'jpeg');
}

async function choose(/** @type {Page} */ page, /** @type {string} */ select, /** @type {string} */ value) {
  await page.click('#picture-menu summary');
  await page.selectOption(select, value);
  await page.click('#picture-menu summary');
}

/** Measures the stream in Notepad at each limit of frames a second, and prints the figures. */
async function showSpeed(
  /** @type {Page} */ page,
  /** @type {Locator} */ canvas,
  /** @type {string} */ codec,
) {
  await choose(page, '#quality', 'hand');
  for (const limit of FRAME_LIMITS) {
    await choose(page, '#max-fps', limit);
    await click(page, canvas, NOTEPAD_TEXT);
    await desktop.inFront('Notepad');
    const { framesPerSecond, median, least, most } = await measure(page, canvas);
    report(
      `speed of ${codec}, at most ${limit} frames a second: ${framesPerSecond.toFixed(1)} frames a second, ` +
        `key press to pixel ${median.toFixed(0)} ms in the median (${least.toFixed(0)} to ${most.toFixed(0)} ms)`,
    );
  }
  await save(page);
}

/** Presses Ctrl+Alt+Del, at which tools/demo opens the Task Manager. */
async function pressAttention(/** @type {Page} */ page, /** @type {Locator} */ canvas) {
  await page.click('#machine-menu summary');
  await page.click('#attention');
  await desktop.inFront('Task Manager');
  await isShown(canvas, 'attention');
}

/** Restarts the machine and waits until the console shows its new desktop. */
async function restart(/** @type {Page} */ page, /** @type {Locator} */ canvas) {
  await page.click('#machine-menu summary');
  await page.click('#restart');
  await page.click('#restart-dialog button[value=restart]');
  await until('Windows shuts down', () => desktop.eventCount('Windows has shut down'));
  const before = await frameCount(canvas);
  await page.screenshot({ path: desktop.file('console-restarting.png') });
  report('Windows has shut down');
  await until('the agent is back', async () => (await desktop.eventCount('the agent was started')) > 1);
  await until('frames arrive again', async () => (await frameCount(canvas)) !== before);
  await usesCodec(page, 'JPEG');
  await isShown(canvas, 'restarted', NOTEPAD_LINE);
  await page.screenshot({ path: desktop.file('console-restarted.png') });
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

async function playSession(/** @type {Page} */ page) {
  await logIn(page);
  // Before the log-in, the browser reports an error for the console's question whether a log-in is still valid.
  page.on('console', (message) => {
    if (message.type() === 'error') console.error(`browser: ${message.text()}`);
  });
  const canvas = await openSession(page);
  await typeIntoNotepad(page, canvas);
  await clickInWineMine(page, canvas);
  await showSpeed(page, canvas, options.codec);
  if (options.codec !== 'JPEG') {
    await switchToJpeg(page, canvas);
    await showSpeed(page, canvas, 'JPEG');
  }
  await pressAttention(page, canvas);
  await restart(page, canvas);
}

const browser = await launch();
const page = await browser.newPage({ ignoreHTTPSErrors: true, viewport: { width: 1440, height: 900 } });
page.on('pageerror', (error) => console.error(`browser: ${error.message}`));
let failed = false;
try {
  await playSession(page);
} catch (error) {
  failed = true;
  const message = error instanceof Error ? error.message : String(error);
  console.error(`FAILED  ${message.split('\n', 3).join('\n')}`);
  const noPicture = (/** @type {Error} */ problem) => console.error(`no screenshot: ${problem.message}`);
  await page.screenshot({ path: desktop.file('console-failed.png') }).catch(noPicture);
  await desktop.shot('failed-desktop.png').catch(noPicture);
} finally {
  await browser.close();
}
process.exit(failed ? 1 : 0);
