// One-time codes as authenticator apps compute them, https://www.rfc-editor.org/rfc/rfc6238
import { createHmac } from 'node:crypto';

const ALPHABET = 'ABCDEFGHIJKLMNOPQRSTUVWXYZ234567';
const STEP_S = 30;

/** The bytes of a text in base 32; spaces are skipped. */
function fromBase32(/** @type {string} */ text) {
  const bits = [...text.replaceAll(' ', '').toUpperCase()]
    .map((letter) => ALPHABET.indexOf(letter).toString(2).padStart(5, '0'))
    .join('');
  return Buffer.from((bits.match(/.{8}/g) ?? []).map((byte) => Number.parseInt(byte, 2)));
}

/** The code of a key at a time. @param {string} secret in base 32 @param {number} [ms] since 1970 */
export function codeOf(secret, ms = Date.now()) {
  const counter = Buffer.alloc(8);
  counter.writeBigUInt64BE(BigInt(Math.floor(ms / 1000 / STEP_S)));
  const digest = createHmac('sha1', fromBase32(secret)).update(counter).digest();
  const at = digest[digest.length - 1] & 15;
  return String((digest.readUInt32BE(at) & 0x7fffffff) % 1_000_000).padStart(6, '0');
}
