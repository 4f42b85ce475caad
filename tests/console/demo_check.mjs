// Plays a representative's whole session in a headless browser against a running demo: log in, open the machine, see
// its desktop, type into Notepad, click in WineMine. Every step is judged from outside: what was typed by the file
// that Notepad saves, what is seen by comparing the console's canvas with a picture of the machine's display.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { readFile, writeFile } from 'node:fs/promises';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { parseArgs, promisify } from 'node:util';
import { launch } from './support/console_page.mjs';
import { DEADLINE_MS, until } from './support/waiting.mjs';

const run = promisify(execFile);
const DESK_TOOL = join(dirname(fileURLToPath(import.meta.url)), '../../tools/desk');
const TYPED = 'Typed in the browser, read in Windows: 6 * 7 = 42 (Yes!)';
// Where tools/demo places the windows, in pixels of the desktop.
const NOTEPAD_TEXT = { x: 700, y: 250 };
const NOTEPAD_LINE = { x: 426, y: 86, width: 530, height: 14 };
const MINE_CELL = { x: 1090, y: 158, width: 12, height: 12 }; // the inside of the middle one
const NOWHERE = { x: 700, y: 600 };
const WHOLE = { x: 0, y: 0, width: 1280, height: 720 };
// Either codec (whose colours are coarse at edges), the painted pointer and a blinking caret stay far below these shares of
// wrong pixels. A missing window is far above the first, missing text above the second, a cell that is open on one
// side only above the third.
const WRONG_PIXEL = '25%';
const MAX_WRONG = new Map([
  [WHOLE, 0.004],
  [NOTEPAD_LINE, 0.045],
  [MINE_CELL, 0.3],
]);

const { values: options } = parseArgs({
  options: Object.fromEntries(
    ['url', 'user', 'machine', 'desk', 'note', 'codec', 'out'].map((name) => [name, { type: 'string' }]),
  ),
});

// The share of an area's pixels that are not the same in two pictures.
async function wrongPixels(first, second, area) {
  const crop = ['-crop', `${area.width}x${area.height}+${area.x}+${area.y}`, '+repage'];
  const { stdout } = await run('convert', [
    first,
    second,
    ...crop,
    '-alpha',
    'off',
    '-compose',
    'difference',
    '-composite',
    '-colorspace',
    'gray',
    '-threshold',
    WRONG_PIXEL,
    '-format',
    '%[fx:mean]',
    'info:',
  ]);
  return Number(stdout);
}

async function colours(picture) {
  const { stdout } = await run('identify', ['-format', '%k', picture]);
  return Number(stdout);
}

const file = (name) => join(options.out, name);
const shot = (name) => run(DESK_TOOL, ['shot', options.desk, file(name)]);

async function saveCanvas(canvas, name) {
  const url = await canvas.evaluate((element) => element.toDataURL('image/png'));
  await writeFile(file(name), Buffer.from(url.slice(url.indexOf(',') + 1), 'base64'));
}

// The point of the page under which the console shows a point of the desktop.
async function onPage(canvas, { x, y }) {
  const box = await canvas.boundingBox();
  const size = await canvas.evaluate((element) => ({ width: element.width, height: element.height }));
  const scale = Math.min(box.width / size.width, box.height / size.height);
  return {
    x: box.x + (box.width - size.width * scale) / 2 + x * scale,
    y: box.y + (box.height - size.height * scale) / 2 + y * scale,
  };
}

async function click(page, canvas, point) {
  const { x, y } = await onPage(canvas, point);
  await page.mouse.move(x, y);
  await page.mouse.click(x, y, { delay: 60 });
}

// Wine sends keys to the window that was in front before until the clicked one has taken up its click.
async function inFront(title) {
  await until(`${title} is in front`, async () => {
    const focused = '. "$0/env" && xdotool getwindowfocus getwindowname';
    const { stdout } = await run('bash', ['-c', focused, options.desk]);
    if (!stdout.includes(title)) throw new Error(stdout.trim());
    return true;
  });
}

async function sameAsDesktop(canvas, name, ...areas) {
  await until(`the picture "${name}" is the desktop's`, async () => {
    await shot(`${name}-desktop.png`);
    await saveCanvas(canvas, `${name}-canvas.png`);
    for (const area of [WHOLE, ...areas]) {
      const wrong = await wrongPixels(file(`${name}-canvas.png`), file(`${name}-desktop.png`), area);
      if (wrong > MAX_WRONG.get(area))
        throw new Error(`${(wrong * 100).toFixed(2)} % of ${JSON.stringify(area)} is wrong`);
    }
    return true;
  });
  assert.ok((await colours(file(`${name}-desktop.png`))) > 8, 'the desktop is not blank');
  console.log(`ok  ${name}: the console shows the desktop`);
}

async function session(page) {
  await page.goto(options.url);
  await page.fill('#login-name', options.user);
  await page.fill('#login-password', process.env.PASSWORD);
  await page.click('#login-submit');
  console.log('ok  logged in');

  await page.getByText(options.machine).first().waitFor({ timeout: DEADLINE_MS });
  await page.screenshot({ path: file('console-machines.png') });
  await openMachine(page);
  const canvas = page.locator('canvas[data-frames]');
  await until('frames arrive', async () => Number(await canvas.getAttribute('data-frames')) > 0);
  console.log('ok  frames arrive');
  await usesCodec(page, options.codec);
  await sameAsDesktop(canvas, 'opened');

  await click(page, canvas, NOTEPAD_TEXT);
  await inFront('Notepad');
  await page.keyboard.type(TYPED, { delay: 20 });
  await page.keyboard.press('Control+s');
  await until('Notepad has the text', async () => {
    const text = (await readFile(options.note, 'utf8')).replace(/^\ufeff/, '');
    if (text !== TYPED) throw new Error(JSON.stringify(text));
    return true;
  });
  console.log('ok  Notepad saved exactly what was typed');
  await sameAsDesktop(canvas, 'typed', NOTEPAD_LINE);

  await click(page, canvas, { x: MINE_CELL.x + 6, y: MINE_CELL.y + 6 });
  // Off the field, for the pointer is part of the picture.
  const aside = await onPage(canvas, NOWHERE);
  await page.mouse.move(aside.x, aside.y);
  await until('the cell opened', async () => {
    await shot('clicked-desktop.png');
    return (
      (await wrongPixels(file('typed-desktop.png'), file('clicked-desktop.png'), MINE_CELL)) >
      MAX_WRONG.get(MINE_CELL)
    );
  });
  await sameAsDesktop(canvas, 'clicked', MINE_CELL);
  await page.screenshot({ path: file('console-session.png') });

  if (options.codec === 'JPEG') return;
  await page.click('#picture-menu summary');
  await page.selectOption('#codec', 'mjpeg');
  await usesCodec(page, 'JPEG');
  await page.click('#picture-menu summary');
  await sameAsDesktop(canvas, 'jpeg');
}

// The machine's encoder and the browser's decoder are what the status line names.
async function usesCodec(page, codec) {
  await until(`the pictures are ${codec}`, async () => {
    const line = await page.locator('#status-line').innerText();
    if (!line.includes(` · ${codec} · `)) throw new Error(line);
    return true;
  });
  console.log(`ok  the pictures are ${codec}`);
}

async function openMachine(page) {
  const name = page.getByText(options.machine).first();
  await name.click();
}

const browser = await launch();
const page = await browser.newPage({ ignoreHTTPSErrors: true, viewport: { width: 1440, height: 900 } });
page.on('console', (message) => {
  if (message.type() === 'error') console.error(`browser: ${message.text()}`);
});
page.on('pageerror', (error) => console.error(`browser: ${error.message}`));
let failed = false;
try {
  await session(page);
} catch (error) {
  failed = true;
  console.error(`FAILED  ${error.message.split('\n', 3).join('\n')}`);
  await page.screenshot({ path: file('console-failed.png') }).catch(() => {});
  await shot('failed-desktop.png').catch(() => {});
} finally {
  await browser.close();
}
process.exit(failed ? 1 : 0);
