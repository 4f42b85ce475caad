// Pauses of the whole run, in which the memory of the processes is measured while they have nothing to do.
import { GivenUp, RETURN_MS } from './world.mjs';

/** @typedef {import('./world.mjs').World} World */
/** @typedef {import('./faults.mjs').Faults} Faults */
/** @typedef {import('./representative.mjs').Representative} Representative */

const BETWEEN_MS = 100_000;
/** The time in which a process frees what the last session has left. */
const SETTLING_MS = 4000;
const LOOKS = 4;
const BETWEEN_LOOKS_MS = 1000;
const pause = (/** @type {number} */ ms) => new Promise((done) => setTimeout(done, ms));

/** @param {World} world @param {(first: boolean) => void} look */
async function measured(world, look) {
  world.note('rest');
  await pause(SETTLING_MS);
  for (let i = 0; i < LOOKS && !world.ending; i++) {
    look(i === 0);
    await pause(BETWEEN_LOOKS_MS);
  }
}

/**
 * Lets all sessions end every two minutes or so, and then looks at the processes some times.
 * @param {World} world @param {Faults} faults @param {Representative} observer
 * @param {(first: boolean) => void} look measures once; `first` in each rest @param {() => void} rested
 */
export async function rests(world, faults, observer, look, rested) {
  let since = performance.now();
  while (!world.ending) {
    await pause(200);
    if (performance.now() - since < BETWEEN_MS) continue;
    world.resting = true;
    const over = async () => !faults.underWay && !(await observer.api.get('sessions')).sessions.length;
    const rules = { deadlineMs: 2 * RETURN_MS };
    const isOver = await world.until('all sessions have ended', over, rules).catch(judged);
    if (isOver) await measured(world, look);
    if (isOver) rested();
    world.resting = false;
    since = performance.now();
  }
}

/** What was not met in time is a wrong observation already. */
function judged(/** @type {unknown} */ error) {
  if (!(error instanceof GivenUp)) throw error;
  return false;
}
