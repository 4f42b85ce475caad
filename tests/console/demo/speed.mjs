// Measures the stream while the picture changes: the frames that the console draws each second, and the time
// from a key press in the browser to the changed picture.
import { present } from '../support/present.mjs';
import { DEADLINE_MS } from '../support/waiting.mjs';
import { NOTEPAD_LINE } from './desktop.mjs';

/** @typedef {import('playwright-core').Page} Page */
/** @typedef {import('playwright-core').Locator} Locator */
/** @typedef {{framesPerSecond: number, median: number, least: number, most: number}} Speed times in milliseconds */

// The measurement ends after this time. Fewer presses would give no median worth printing.
const DURATION_MS = 4000;
const FEWEST_PRESSES = 10;
// A key is held for one of several times, so that presses come at different moments between two frames.
const HOLD_STEP_MS = 17;
const HOLD_STEPS = 5;

/**
 * Starts to watch the line of text in Notepad, and returns an object whose property `result` is a promise of the
 * milliseconds between the next key press and the frame in which the line has appeared or disappeared.
 *
 * A frame can show Notepad in the middle of painting. Therefore the watch begins only when the line has its old state
 * in a frame that was drawn after the call.
 * @param {Locator} canvas
 * @param {boolean} appears whether the line appears
 */
function watchLine(canvas, appears) {
  return canvas.evaluateHandle(
    async (element, { area: { x, y, width, height }, wanted, deadline }) => {
      const screen = /** @type {HTMLCanvasElement} */ (element);
      const context = new OffscreenCanvas(width, height).getContext('2d', { willReadFrequently: true });
      if (!context) throw new Error('the browser has no 2d context');
      const isText = () => {
        context.drawImage(screen, -x, -y);
        const { data } = context.getImageData(0, 0, width, height);
        let dark = 0;
        for (let i = 1; i < data.length; i += 4) if ((data[i] ?? 0) < 128) dark += 1;
        // The caret alone is less than one percent of the area.
        return dark > width * height * 0.03;
      };
      const drawn = async (/** @type {() => boolean} */ condition) => {
        const begin = performance.now();
        while (!condition()) {
          if (performance.now() - begin > deadline) throw new Error('the line of text did not change');
          await new Promise(requestAnimationFrame);
        }
      };
      const { frames } = screen.dataset;
      await drawn(() => screen.dataset.frames !== frames && isText() !== wanted);
      const pressed = new Promise((resolve) => {
        addEventListener('keydown', (event) => resolve(event.timeStamp), { capture: true, once: true });
      });
      const measured = async () => {
        const begin = Number(await pressed);
        await drawn(() => isText() === wanted);
        return performance.now() - begin;
      };
      return { result: measured() };
    },
    { area: NOTEPAD_LINE, wanted: appears, deadline: DEADLINE_MS },
  );
}

/** The number of frames drawn so far, and the page's clock in milliseconds. */
function counters(/** @type {Locator} */ canvas) {
  return canvas.evaluate((element) => ({
    frames: Number(element.dataset.frames),
    time: performance.now(),
  }));
}

/**
 * Moves the line of text in Notepad down and up again by pressing Enter and Backspace at its start. The text is the
 * same before and after.
 * @returns {Promise<Speed>}
 */
export async function measure(/** @type {Page} */ page, /** @type {Locator} */ canvas) {
  const times = [];
  await page.keyboard.press('Home');
  const begin = await counters(canvas);
  const deadline = Date.now() + DURATION_MS;
  // The line is up again after an even number of presses.
  for (let i = 0; i < FEWEST_PRESSES || i % 2 === 1 || Date.now() < deadline; ++i) {
    const appears = i % 2 === 1;
    const change = await watchLine(canvas, appears);
    await page.keyboard.press(appears ? 'Backspace' : 'Enter', { delay: (i % HOLD_STEPS) * HOLD_STEP_MS });
    times.push(Number(await change.evaluate(({ result }) => result)));
    await change.dispose();
  }
  const end = await counters(canvas);
  times.sort((a, b) => a - b);
  return {
    framesPerSecond: ((end.frames - begin.frames) * 1000) / (end.time - begin.time),
    median: present(times[Math.floor(times.length / 2)]),
    least: present(times[0]),
    most: present(times.at(-1)),
  };
}
