// The desk of the demo as the check sees it from outside: its display, its windows and its files. The console's
// picture is compared with screenshots of the display.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { readFile, stat, writeFile } from 'node:fs/promises';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { present } from '../support/present.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('playwright-core').Locator} Locator */
/** @typedef {{x: number, y: number}} Point */
/** @typedef {Point & {width: number, height: number}} Area */

const run = promisify(execFile);
const DESK_TOOL = join(dirname(fileURLToPath(import.meta.url)), '../../../tools/desk');
// Where tools/demo places the windows, in pixels of the desktop.
export const NOTEPAD_TEXT = { x: 700, y: 250 };
export const NOTEPAD_LINE = { x: 426, y: 86, width: 530, height: 14 };
// The inside of the middle cell of WineMine's board.
export const MINE_CELL = { x: 1090, y: 158, width: 12, height: 12 };
export const BESIDE_WINDOWS = { x: 700, y: 600 };
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

async function saveCanvas(/** @type {Locator} */ canvas, /** @type {string} */ path) {
  const url = await canvas.evaluate((element) =>
    /** @type {HTMLCanvasElement} */ (element).toDataURL('image/png'),
  );
  await writeFile(path, Buffer.from(url.slice(url.indexOf(',') + 1), 'base64'));
}

export class Desktop {
  #desk;
  #note;
  #out;

  /**
   * @param {object} folders
   * @param {string} folders.desk the folder of the desk
   * @param {string} folders.note the file that Notepad edits
   * @param {string} folders.out the folder for pictures, which also contains machine.log
   */
  constructor({ desk, note, out }) {
    this.#desk = desk;
    this.#note = note;
    this.#out = out;
  }

  file(/** @type {string} */ name) {
    return join(this.#out, name);
  }

  /** Saves a screenshot of the display. */
  shot(/** @type {string} */ name) {
    return run(DESK_TOOL, ['shot', this.#desk, this.file(name)]);
  }

  /** Waits until a window is in front: after a click, Wine sends keys to the previous window for a moment. */
  async inFront(/** @type {string} */ title) {
    await until(`${title} is in front`, async () => {
      const focused = '. "$0/env" && xdotool getwindowfocus getwindowname';
      const { stdout } = await run('bash', ['-c', focused, this.#desk]);
      if (!stdout.includes(title)) throw new Error(stdout.trim());
      return true;
    });
  }

  /** Waits until the console shows the desktop, and compares the areas of small details closely. */
  async isShown(/** @type {Locator} */ canvas, /** @type {string} */ name, /** @type {Area[]} */ ...areas) {
    const [shown, real] = [this.file(`${name}-canvas.png`), this.file(`${name}-desktop.png`)];
    await until(`the picture "${name}" equals the desktop`, async () => {
      await this.shot(`${name}-desktop.png`);
      await saveCanvas(canvas, shown);
      for (const area of [WHOLE, ...areas]) {
        const wrong = await wrongPixels(shown, real, area);
        if (wrong > present(MAX_WRONG.get(area)))
          throw new Error(`${(wrong * 100).toFixed(2)} % of ${JSON.stringify(area)} is wrong`);
      }
      return true;
    });
    assert.ok((await colourCount(real)) > 8, 'the desktop is not blank');
  }

  /** Whether an area of the display differs from an earlier screenshot. */
  async hasChanged(/** @type {Area} */ area, /** @type {string} */ before, /** @type {string} */ now) {
    await this.shot(now);
    return (await wrongPixels(this.file(before), this.file(now), area)) > present(MAX_WRONG.get(area));
  }

  /** The text that Notepad has saved. */
  async savedText() {
    return (await readFile(this.#note, 'utf8')).replace(/^\ufeff/, '');
  }

  /** The time at which Notepad last saved, in milliseconds. */
  async savedAt() {
    return (await stat(this.#note)).mtimeMs;
  }

  /** How often an event is in the log of the machine that tools/demo writes. */
  async eventCount(/** @type {string} */ event) {
    const lines = (await readFile(this.file('machine.log'), 'utf8')).split('\n');
    return lines.filter((line) => line === event).length;
  }
}
