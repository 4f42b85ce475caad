// JPEG pictures of known content, for the scripted machine.
import { execFileSync } from 'node:child_process';

const jpeg = (/** @type {string[]} */ args) =>
  execFileSync('convert', [...args, '-sampling-factor', '1x1', '-quality', '95', 'jpg:-'], {
    maxBuffer: 1 << 26,
  });

/** A picture of one colour. */
export const plain = (
  /** @type {number} */ width,
  /** @type {number} */ height,
  /** @type {string} */ colour,
) => jpeg(['-size', `${width}x${height}`, `xc:${colour}`]);

/** A picture that looks like a desktop, for screenshots. */
export function desktop(/** @type {number} */ width, /** @type {number} */ height) {
  return jpeg([
    '-size',
    `${width}x${height}`,
    'gradient:#205080-#0a2038',
    '-fill',
    '#f4f6f8',
    '-draw',
    `rectangle ${width * 0.1},${height * 0.12} ${width * 0.62},${height * 0.7}`,
    '-fill',
    '#2a6f97',
    '-draw',
    `rectangle ${width * 0.1},${height * 0.12} ${width * 0.62},${height * 0.17}`,
    '-fill',
    '#d0d8e0',
    '-draw',
    `rectangle 0,${height * 0.95} ${width},${height}`,
  ]);
}
