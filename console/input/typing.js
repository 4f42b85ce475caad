// Types a whole text as key events, in batches with pauses between them, so that a slow program on the
// machine keeps up.
import * as input from './events.js';
import { keyNamed } from './keymap.js';

const CHARACTERS_PER_BATCH = 30;
const BATCH_PAUSE_MS = 60;

const press = (/** @type {string} */ code) => [
  input.key(keyNamed(code), true),
  input.key(keyNamed(code), false),
];

/**
 * Splits a text into batches of key events. Line ends become Enter, tabs become Tab; other control characters
 * are left out.
 * @param {string} text
 * @returns {input.InputEvent[][]} one list for each batch, of at most input.MAX_EVENTS events
 */
export function typingBatches(text, charactersPerBatch = CHARACTERS_PER_BATCH) {
  const events = [...text.replace(/\r\n?/g, '\n')]
    .map((character) => {
      if (character === '\n') return press('Enter');
      if (character === '\t') return press('Tab');
      return /\p{Cc}/u.test(character) ? [] : input.unicode(character);
    })
    .filter(({ length }) => length);
  const out = [];
  for (let start = 0; start < events.length; start += charactersPerBatch) {
    out.push(events.slice(start, start + charactersPerBatch).flat());
  }
  return out;
}

/**
 * @param {string} text
 * @param {{send: (events: input.InputEvent[]) => void, pause: (ms: number) => Promise<unknown>,
 *   signal: AbortSignal}} outlets
 * @returns {Promise<boolean>} false when the typing was aborted
 */
export async function typeText(text, { send, pause, signal }) {
  const list = typingBatches(text);
  for (const [i, events] of list.entries()) {
    if (signal.aborted) return false;
    send(events);
    if (i + 1 < list.length) await pause(BATCH_PAUSE_MS);
  }
  return true;
}
