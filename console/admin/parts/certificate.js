// The warning before the relay's certificate or its authority ends.

import { texts } from '../texts/texts.js';
import { formats } from './elements.js';

/**
 * The end of a certificate, in seconds since 1970, and whether that is soon. @typedef {{ends: number, ends_soon: boolean}} End
 * authority: null unless the relay has an authority of its own.
 * @typedef {End & {authority: End | null, problem: string | null}} Certificate
 */

const DAY = 24 * 3600;

/**
 * The sentence that warns of the certificate's end, or of its authority's; '' long before it.
 * @param {Certificate} certificate
 * @param {number} [now] in seconds since 1970
 */
export function certificateWarning({ ends, ends_soon: soon, authority }, now = Date.now() / 1000) {
  const days = (/** @type {number} */ end) => Math.floor((end - now) / DAY);
  if (authority?.ends_soon && authority.ends > now)
    return texts.status.authorityEnds(days(authority.ends), formats.time(authority.ends));
  if (!soon) return '';
  const when = formats.time(ends);
  if (ends <= now) return texts.status.certificateEnded(when);
  return texts.status.certificateEnds(days(ends), when);
}
