// Waiting for conditions with a deadline, the only way in which the console's tests wait.

export const DEADLINE_MS = 40_000;

/**
 * Asks again until the condition gives something true, and gives that back. A condition that throws is asked again.
 * @template T
 * @param {string} what for the message of a failure
 * @param {() => T | Promise<T>} condition
 * @param {number} [deadlineMs] milliseconds
 * @returns {Promise<T>}
 */
export async function until(what, condition, deadlineMs = DEADLINE_MS) {
  const deadline = Date.now() + deadlineMs;
  for (let last; ; ) {
    try {
      last = await condition();
      if (last) return last;
    } catch (error) {
      last = error.message;
    }
    if (Date.now() > deadline) throw new Error(`${what}: not within ${deadlineMs / 1000} s (last: ${last})`);
    await new Promise((done) => setTimeout(done, 20));
  }
}
