// The wall clock of one process, which jumps while its monotonic clock goes on.
import { execFileSync } from 'node:child_process';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';

/** Below the age at which a log-in ends, so a jump changes nothing that anybody sees. */
const MOST_AHEAD_S = 2 * 3600;

/** @typedef {import('../random.mjs').Random} Random */

export class WallClock {
  /** By how much the clock is ahead. */
  seconds = 0;
  #file;

  /** @param {string} out the folder of the run @param {string} name of the process */
  constructor(out, name) {
    this.#file = join(out, `${name}.clock`);
    writeFileSync(this.#file, Buffer.alloc(8));
  }

  /**
   * Forward or back, but never to before the certificates.
   * @param {Random} random
   */
  jump(random) {
    this.#set(this.seconds > 0 && random.next() < 0.5 ? 0 : random.integer(1, MOST_AHEAD_S));
  }

  /**
   * The environment of the process.
   * @param {string} root the folder of the sources @param {string} tree whose program it is
   */
  environment(root, tree) {
    const library = join(root, 'build/host/tests/soak_clock.so');
    return { LD_PRELOAD: [...runtimeOf(tree), library].join(':'), VANTELINK_CLOCK_FILE: this.#file };
  }

  #set(/** @type {number} */ seconds) {
    const bytes = Buffer.alloc(8);
    bytes.writeBigInt64LE(BigInt(seconds));
    // The file keeps its identity, because processes have it mapped.
    writeFileSync(this.#file, bytes, { flag: 'r+' });
    this.seconds = seconds;
  }
}

/** A sanitizer's library, which must be loaded before all others. @param {string} tree @returns {string[]} */
function runtimeOf(tree) {
  if (tree === 'host') return [];
  return [execFileSync('gcc', [`-print-file-name=lib${tree}.so`], { encoding: 'utf8' }).trim()];
}
