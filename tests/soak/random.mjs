// Random numbers that follow from a seed, so that a run can be repeated as far as the machine's timing
// allows.
import { createCipheriv } from 'node:crypto';

export class Random {
  #state;

  constructor(/** @type {number} */ seed) {
    this.#state = seed >>> 0;
  }

  /** A number from 0 up to 1. */
  next() {
    this.#state = (this.#state + 0x6d2b79f5) >>> 0;
    let mixed = this.#state;
    mixed = Math.imul(mixed ^ (mixed >>> 15), mixed | 1);
    mixed ^= mixed + Math.imul(mixed ^ (mixed >>> 7), mixed | 61);
    return ((mixed ^ (mixed >>> 14)) >>> 0) / 2 ** 32;
  }

  /** An integer from `least` to `most`. @param {number} least @param {number} most */
  integer(least, most) {
    return least + Math.floor(this.next() * (most - least + 1));
  }

  /** One of the values. @template T @param {readonly T[]} values @returns {T} */
  one(values) {
    return values[this.integer(0, values.length - 1)];
  }

  /** Bytes that no other call returns, from a cipher, because next() is too slow for megabytes. */
  bytes(/** @type {number} */ count) {
    const key = Buffer.alloc(32);
    for (let at = 0; at < key.length; at += 4) key.writeUInt32BE(this.integer(0, 0xffffffff), at);
    return createCipheriv('aes-256-ctr', key, Buffer.alloc(16)).update(Buffer.alloc(count));
  }

  /** A generator of its own for another actor. */
  split() {
    return new Random(this.integer(0, 0xffffffff));
  }
}
