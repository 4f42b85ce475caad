// The relation of a page's clock to the monotonic clock of this machine.

const READINGS = 60;

/** @typedef {import('../../../tests/console/support/console_page.mjs').Page} Page */

/**
 * @param {Page} page
 * @returns {Promise<(at: number) => bigint>} turns a time of the page, performance.now(), into nanoseconds of
 *   CLOCK_MONOTONIC. Of many readings the one with the shortest way there and back counts, and the page's reading is
 *   taken to be in its middle; on loopback the error is some tenths of a millisecond.
 */
export async function clockOf(page) {
  // hrtime is CLOCK_MONOTONIC. The protocol's own session avoids Playwright's work around each call.
  const session = await page.context().newCDPSession(page);
  let [shortest, offset] = [1n << 62n, 0n];
  for (let i = 0; i < READINGS; i++) {
    const before = process.hrtime.bigint();
    const { result } = await session.send('Runtime.evaluate', { expression: 'performance.now()' });
    const after = process.hrtime.bigint();
    if (after - before >= shortest) continue;
    shortest = after - before;
    offset = (before + after) / 2n - nanoseconds(result.value);
  }
  await session.detach();
  return (at) => offset + nanoseconds(at);
}

const nanoseconds = (/** @type {number} */ milliseconds) => BigInt(Math.round(milliseconds * 1e6));
