// What the page says about a request to the relay that has failed.
import { texts } from '../base/texts.js';
import { ApiError } from './api.js';

/** The relay's own sentence is shown after the page's for these: it says what does not fit. */
const EXPLAINED = [400, 409, 413];

/**
 * @param {unknown} error
 * @param {Record<string, string>} [own] texts for codes and statuses that mean something special here
 */
export function problemOf(error, own = {}) {
  if (!(error instanceof ApiError)) return texts.failed;
  const { status, message, code } = error;
  const special = own[code] ?? own[status];
  if (special) return special;
  if (status === 0) return texts.noRelay;
  const general = /** @type {Record<number, string>} */ (texts.problems)[status] ?? texts.failed;
  return EXPLAINED.includes(status) && message ? `${general} (${message})` : general;
}
