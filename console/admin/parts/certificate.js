// The warning before the relay's certificate ends.

import { texts } from '../texts/texts.js';
import { formats } from './elements.js';

/** ends: in seconds since 1970. @typedef {{ends: number, ends_soon: boolean, problem: string | null}} Certificate */

const DAY = 24 * 3600;

/**
 * The sentence that warns of the certificate's end; '' long before it.
 * @param {Certificate} certificate
 * @param {number} [now] in seconds since 1970
 */
export function certificateWarning({ ends, ends_soon: soon }, now = Date.now() / 1000) {
  if (!soon) return '';
  const when = formats.time(ends);
  if (ends <= now) return texts.status.certificateEnded(when);
  return texts.status.certificateEnds(Math.floor((ends - now) / DAY), when);
}
