// The picture's place and size: a pixel of the machine on a pixel of the display, and zooming.
import assert from 'node:assert/strict';
import test from 'node:test';
import { BROWSER } from '../support/console_page.mjs';
import { fixture, openSession } from '../support/fixture.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('../support/console_page.mjs').ConsolePage} ConsolePage */

const shared = fixture();

/** Ticks or unticks "actual size" in the menu. */
async function setActual(/** @type {ConsolePage} */ { page }, on = true) {
  await page.evaluate((wanted) => {
    const box = /** @type {HTMLInputElement} */ (document.getElementById('actual-size'));
    if (box.checked !== wanted) box.click();
  }, on);
}

/** The canvas and its area in pixels of the display. */
function measure(/** @type {ConsolePage} */ page) {
  return page.canvas.evaluate((canvas) => {
    const edges = (/** @type {Element | null} */ element) => {
      const { left, top, right, bottom } = element?.getBoundingClientRect() ?? new DOMRect();
      return [left, top, right, bottom].map((edge) => edge * devicePixelRatio);
    };
    return { canvas: edges(canvas), area: edges(canvas.parentElement) };
  });
}

/** Draws alternating black and white pixels, and returns the brightness of each pixel of a row on the display. */
async function stripes(/** @type {ConsolePage} */ page) {
  await page.canvas.evaluate((/** @type {HTMLCanvasElement} */ canvas) => {
    const context = canvas.getContext('2d');
    for (let x = 0; x < canvas.width; x++) {
      if (context) context.fillStyle = x % 2 ? '#fff' : '#000';
      context?.fillRect(x, 0, 1, canvas.height);
    }
    // The picture becomes bright gradually after a message over it.
    return Promise.all(canvas.getAnimations().map(({ finished }) => finished)).then(() => {});
  });
  const { canvas, area } = await measure(page);
  const png = (await page.page.screenshot({ scale: 'device' })).toString('base64');
  const left = Math.round(Math.max(canvas[0], area[0]));
  const row = Math.round((canvas[1] + canvas[3]) / 2);
  return page.page.evaluate(
    async ({ data, x, y }) => {
      const bytes = Uint8Array.from(atob(data), (one) => one.charCodeAt(0));
      const picture = await createImageBitmap(new Blob([bytes], { type: 'image/png' }));
      const context = new OffscreenCanvas(picture.width, picture.height).getContext('2d');
      context?.drawImage(picture, 0, 0);
      const { data: pixels } = context?.getImageData(x, y, 100, 1) ?? { data: [] };
      return Array.from({ length: 100 }, (_, i) => pixels[i * 4]);
    },
    { data: png, x: left + 4, y: row },
  );
}

for (const density of [1, 1.5, 2]) {
  test(`at a density of ${density}, a pixel of the picture is a sharp pixel of the display`, async (t) => {
    const { page } = await openSession(t, shared, {
      width: 641,
      height: 361,
      page: { deviceScaleFactor: density, viewport: { width: 1001, height: 703 } },
    });
    await setActual(page);
    const { canvas, area } = await measure(page);
    for (const edge of canvas) assert.ok(Math.abs(edge - Math.round(edge)) < 0.1, String(canvas));
    assert.deepEqual(
      [canvas[2] - canvas[0], canvas[3] - canvas[1]].map((size) => Math.round(size * 4) / 4),
      [641, 361],
    );
    for (const axis of [0, 1]) {
      const off = canvas[axis] - area[axis] - (area[axis + 2] - canvas[axis + 2]);
      assert.ok(Math.abs(off) <= 2.5, `centred: ${off} pixels off`);
    }
    const row = await stripes(page);
    for (const [i, value] of row.entries())
      assert.equal(value, (i + row[0] / 255) % 2 ? 255 : 0, `pixel ${i} of ${row}`);
  });
}

test('the actual size follows the display’s density, and a picture larger than its area can be scrolled', async (t) => {
  if (BROWSER === 'firefox') {
    t.skip('Firefox cannot change the density of an open page over WebDriver BiDi');
    return;
  }
  const { page } = await openSession(t, shared, { width: 1280, height: 720 });
  await setActual(page);
  const area = page.page.locator('#screen-area');
  // The area keeps its size, so that only the density changes for it. Chromium reports a change of the density only
  // together with a change of the window's size.
  await area.evaluate((element) => {
    element.style.cssText = 'inset: 0 auto auto 0; width: 600px; height: 300px';
  });
  const width = () => page.canvas.evaluate((canvas) => canvas.getBoundingClientRect().width);
  const devtools = await page.page.context().newCDPSession(page.page);
  for (const [deviceScaleFactor, expected] of [
    [2, 640],
    [1, 1280],
    [1.6, 800],
  ]) {
    const metrics = { width: 900 + deviceScaleFactor * 10, height: 600, mobile: false, deviceScaleFactor };
    await devtools.send('Emulation.setDeviceMetricsOverride', metrics);
    await until(`${expected} wide`, async () => (await width()) === expected);
  }
  const end = await area.evaluate((element) => {
    element.scrollLeft = 1e6;
    return Math.round(element.scrollLeft + element.clientWidth);
  });
  assert.equal(end, 800, 'the picture’s right edge');
});
