// Waits for a condition until a deadline. The console's tests wait in no other way.

export const DEADLINE_MS = 40_000;

/**
 * Calls the condition repeatedly until it returns a true value, and returns that value. A condition that
 * throws is called again too.
 * @template T
 * @param {string} what the condition, for the error message
 * @param {() => T | Promise<T>} condition
 * @param {number} [deadlineMs] milliseconds
 * @returns {Promise<Exclude<T, false | 0 | '' | null | undefined | void>>}
 */
export async function until(what, condition, deadlineMs = DEADLINE_MS) {
  const deadline = Date.now() + deadlineMs;
  /** @type {unknown} */
  let last;
  for (;;) {
    try {
      const value = await condition();
      if (value) return /** @type {Exclude<T, false | 0 | '' | null | undefined | void>} */ (value);
      last = value;
    } catch (error) {
      last = error instanceof Error ? error.message : error;
    }
    if (Date.now() > deadline) throw new Error(`${what}: not within ${deadlineMs / 1000} s (last: ${last})`);
    await new Promise((done) => setTimeout(done, 20));
  }
}
