// Memory, open descriptors and threads of the processes, their growth, and the verdict about it.
import { readdirSync, readFileSync } from 'node:fs';

/**
 * @typedef {{at: number, memory: number, files: number, threads: number}} Sample at in hours, memory in MiB
 */
/** @typedef {'memory' | 'files' | 'threads'} Quantity */

const HOUR_MS = 3_600_000;
/** The growth that is always too much, for each hour of the measured half. */
const MIB_PER_HOUR = 1;
/**
 * What memory may grow besides, once, because a short run has not touched all of it before its second half. The
 * memory is compared at rest. In a run without enough rests, it is compared while an agent with a stream has some
 * 30 MiB more than one without.
 */
const WARM_UP_MIB = 6;
/**
 * A sanitizer keeps freed memory and the stack of each place that allocates, also at rest; it finds leaks itself, at
 * the end.
 */
const RESTLESS_WARM_UP_MIB = 40;
/** So many rests show whether the memory at rest grows. */
const ENOUGH_RESTS = 6;
/**
 * Descriptors and threads come and go with connections and transfers. The margin is the same for every length
 * of a run, so what leaks with each session or fault exceeds it after some minutes.
 */
const MOST_COUNT_GROWTH = 8;

/** @param {number} pid @returns {Sample | null} null if the process has ended */
function sampleOf(pid) {
  try {
    const status = readFileSync(`/proc/${pid}/status`, 'utf8');
    const number = (/** @type {string} */ key) =>
      Number(new RegExp(`^${key}:\\s*(\\d+)`, 'm').exec(status)?.[1]);
    const memory = number('VmRSS') / 1024;
    if (!(memory > 0)) return null;
    const files = readdirSync(`/proc/${pid}/fd`).length;
    return { at: performance.now() / HOUR_MS, memory, files, threads: number('Threads') };
  } catch {
    return null;
  }
}

/**
 * The slope of a least-squares line through the values, for each hour.
 * @param {Sample[]} samples
 * @param {Quantity} of
 */
export function slope(samples, of) {
  const count = samples.length;
  const meanAt = samples.reduce((sum, { at }) => sum + at, 0) / count;
  const mean = samples.reduce((sum, sample) => sum + sample[of], 0) / count;
  let [above, below] = [0, 0];
  for (const sample of samples) {
    above += (sample.at - meanAt) * (sample[of] - mean);
    below += (sample.at - meanAt) ** 2;
  }
  return below > 0 ? above / below : 0;
}

/**
 * By how much the least value of the last third exceeds that of the first.
 * @param {Sample[]} samples
 * @param {Quantity} of
 */
function floorGrowth(samples, of) {
  const third = Math.ceil(samples.length / 3);
  const least = (/** @type {Sample[]} */ part) => Math.min(...part.map((sample) => sample[of]));
  return least(samples.slice(-third)) - least(samples.slice(0, third));
}

export class Measurement {
  /** The samples of each process since its last start or since begin(). @type {Map<string, Sample[]>} */
  #samples = new Map();
  /** For each process, the sample with the least memory of each rest. @type {Map<string, Map<number, Sample>>} */
  #rests = new Map();
  /** @type {Map<string, number>} */
  #pids = new Map();
  #sanitized;
  #streams;

  /**
   * @param {(name: string) => boolean} sanitized whether a sanitizer is part of this process
   * @param {(name: string) => boolean} streams whether a stream needs much of its memory
   */
  constructor(sanitized, streams) {
    this.#sanitized = sanitized;
    this.#streams = streams;
  }

  /** Forgets what was measured before, so that only the second half of the run counts. */
  begin() {
    this.#samples.clear();
    this.#rests.clear();
  }

  /** @param {string} name @param {number} pid */
  take(name, pid) {
    const sample = pid ? sampleOf(pid) : null;
    if (!sample) return;
    this.#know(name, pid);
    const known = this.#samples.get(name) ?? [];
    this.#samples.set(name, [...known, sample]);
  }

  /**
   * Measures a process that has nothing to do. The least memory of one rest counts, because what the last session
   * has used is freed in its own time.
   * @param {number} rest the number of the rest @param {string} name @param {number} pid
   */
  takeAtRest(rest, name, pid) {
    const sample = pid ? sampleOf(pid) : null;
    if (!sample) return;
    this.#know(name, pid);
    const known = this.#rests.get(name) ?? new Map();
    const least = known.get(rest);
    if (!least || sample.memory < least.memory) known.set(rest, sample);
    this.#rests.set(name, known);
  }

  /** Forgets what was measured of an earlier process of this name. @param {string} name @param {number} pid */
  #know(name, pid) {
    if (this.#pids.get(name) === pid) return;
    this.#pids.set(name, pid);
    this.#samples.delete(name);
    this.#rests.delete(name);
  }

  /** The memory of each process in its last rest, in one line. */
  get restLine() {
    const parts = [...this.#rests].map(([name, rests]) => {
      const last = [...rests.values()].pop();
      return `${name} ${last?.memory.toFixed(1)} MiB`;
    });
    return parts.join(', ');
  }

  /** The last values of each process, in one line. */
  get line() {
    const parts = [...this.#samples].map(([name, samples]) => {
      const { memory, files, threads } = samples[samples.length - 1];
      return `${name} ${memory.toFixed(1)} MiB ${files} fd ${threads} thr`;
    });
    return parts.join(', ');
  }

  /** Prints the slopes. @returns {string[]} what grows too much */
  verdict() {
    const found = [];
    for (const [name, samples] of this.#samples) {
      const hours = samples[samples.length - 1].at - samples[0].at;
      const rests = [...(this.#rests.get(name) ?? new Map()).values()];
      const rested = rests.length >= ENOUGH_RESTS;
      const words = [];
      for (const of of /** @type {Quantity[]} */ (['memory', 'files', 'threads'])) {
        const measured = of === 'memory' && rested ? rests : samples;
        const perHour = slope(measured, of);
        const floor = floorGrowth(measured, of);
        words.push(`${of} ${perHour.toFixed(1)}/h (floor ${floor.toFixed(1)})`);
        const most = this.#most(name, of, hours, rested);
        // Load that rises and falls tilts the line, but only what is never given back lifts the floor too.
        if (perHour * hours > most && floor > most) found.push(`${name}: ${words[words.length - 1]}`);
      }
      console.log(
        `  ${name}: ${words.join(', ')}, over ${(hours * 60).toFixed(1)} min and ${rests.length} rests`,
      );
    }
    return found;
  }

  /** @param {string} name @param {Quantity} of @param {number} hours @param {boolean} rested */
  #most(name, of, hours, rested) {
    if (of !== 'memory') return MOST_COUNT_GROWTH;
    const restless = this.#sanitized(name) || (this.#streams(name) && !rested);
    return MIB_PER_HOUR * hours + (restless ? RESTLESS_WARM_UP_MIB : WARM_UP_MIB);
  }
}
