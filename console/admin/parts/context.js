// What each page gets: its reports, questions to the person, and the repeated loading of what changes by itself.
import { ask as askIn } from '../../base/ui/ask.js';
import { problemOf } from '../../link/problems.js';

/** @typedef {import('../../base/ui/ask.js').Question} Question */
/**
 * A page of the view. load: shows the page's data; rest: what follows the page's path in the address; query: what
 * follows the question mark.
 * @typedef {{element: HTMLElement, load: (rest: string, query: URLSearchParams) => Promise<void>,
 *   stop?: () => void}} Page
 */
/**
 * notify: shows a message above the page. fail: shows why a request has failed. me: the person who is logged in.
 * @typedef {{notify: (text: string) => void, fail: (error: unknown) => void,
 *   me: () => import('../../account/me.js').Me}} Context
 */

/** The pause between two requests for what changes by itself. */
export const REFRESH_MS = 5000;

/**
 * Asks a question, explaining errors in the words for requests to the relay.
 * @template Result
 * @param {Omit<Question, 'act' | 'explain'> & {problems?: Record<string, string>,
 *   act: (values: import('../../base/ui/fields.js').Values) => Promise<Result>}} question problems: texts for
 *   codes and statuses that mean something special here
 */
export function ask({ problems = {}, ...question }) {
  return askIn({ ...question, explain: (error) => problemOf(error, problems) });
}

/** Repeats a request while a page is shown, one at a time, and not while nobody sees the page. */
export class Refresh {
  #load;
  #onError;
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  #timer;
  #on = false;

  /**
   * @param {(asking: import('../../link/api.js').Asking) => Promise<unknown>} load
   * @param {(error: unknown) => void} onError
   */
  constructor(load, onError) {
    this.#load = load;
    this.#onError = onError;
  }

  start() {
    this.stop();
    this.#on = true;
    this.#plan();
  }

  stop() {
    this.#on = false;
    clearTimeout(this.#timer);
  }

  #plan() {
    this.#timer = setTimeout(async () => {
      if (!document.hidden) await this.#load({ unattended: true }).catch(this.#onError);
      if (this.#on) this.#plan();
    }, REFRESH_MS);
  }
}
