// The questions about file transfers. Each is asked in a dialog, and only one at a time.
import { byId, make } from '../base/dom.js';
import { visible } from '../base/names.js';
import { texts } from '../base/texts.js';

/** The largest number of files that the question whether to overwrite lists. */
const FILES_SHOWN = 8;

/** @typedef {import('../base/formats.js').Formats} Formats */
/**
 * Size and time of a file; mtime: in seconds since 1970.
 * @typedef {{size: number, mtime: number}} Version
 */
/**
 * A file on the machine that an upload would replace, as it is there and as it is here.
 * @typedef {{name: string, there: Version, here: Version}} Conflict
 */
/** @typedef {'overwrite' | 'skip' | 'cancel'} Answer */

export class Questions {
  #formats;
  /** @type {Promise<unknown>} fulfilled when the last question has been answered */
  #answered = Promise.resolve();
  #session = new AbortController();

  constructor(/** @type {Formats} */ formats) {
    this.#formats = formats;
  }

  /**
   * Asks what to do with files that exist already. Rejects when the session ends before the answer.
   * @param {Conflict[]} conflicts
   * @returns {Promise<Answer>}
   */
  async overwrite(conflicts) {
    const answer = await this.#ask(byId('overwrite-dialog', HTMLDialogElement), () => {
      byId('overwrite-question').textContent = texts.overwriteQuestion(conflicts.length);
      const more = conflicts.length - FILES_SHOWN;
      byId('overwrite-names').replaceChildren(
        ...conflicts.slice(0, FILES_SHOWN).map((conflict) => this.#item(conflict)),
        ...(more > 0 ? [make('li', {}, texts.andMore(more))] : []),
      );
    });
    return answer === 'overwrite' || answer === 'skip' ? answer : 'cancel';
  }

  /**
   * Asks whether to close the machine's connection. Rejects when the session ends before the answer.
   * @returns {Promise<boolean>}
   */
  async cut() {
    return (await this.#ask(byId('cut-dialog', HTMLDialogElement), () => {})) === 'cut';
  }

  /** Closes the question that is shown; it and all that wait are rejected. */
  sessionOver() {
    this.#session.abort(new Error('sessionOver'));
    this.#session = new AbortController();
  }

  /**
   * Shows a dialog when the earlier questions are answered.
   * @param {HTMLDialogElement} dialog
   * @param {() => void} fill writes the question into the dialog
   * @returns {Promise<string>} the value of the button that closed the dialog; '' for the Escape key
   */
  #ask(dialog, fill) {
    const { signal } = this.#session;
    const answer = this.#answered.then(() => {
      signal.throwIfAborted();
      fill();
      return show(dialog, signal);
    });
    this.#answered = answer.catch(() => {});
    return answer;
  }

  #item(/** @type {Conflict} */ { name, there, here }) {
    return make(
      'li',
      {},
      make('bdi', {}, visible(name)),
      make('span', { className: 'muted' }, texts.versionThere(...this.#describe(there))),
      make('span', { className: 'muted' }, texts.versionHere(...this.#describe(here))),
    );
  }

  /** @returns {[size: string, time: string]} */
  #describe(/** @type {Version} */ { size, mtime }) {
    return [this.#formats.size(size), this.#formats.time(mtime)];
  }
}

/**
 * @param {HTMLDialogElement} dialog
 * @param {AbortSignal} signal closes the dialog and rejects the result
 * @returns {Promise<string>}
 */
function show(dialog, signal) {
  dialog.returnValue = '';
  dialog.showModal();
  return new Promise((resolve, reject) => {
    const abort = () => {
      dialog.close();
      reject(signal.reason);
    };
    signal.addEventListener('abort', abort, { once: true });
    const closed = () => {
      signal.removeEventListener('abort', abort);
      resolve(dialog.returnValue);
    };
    dialog.addEventListener('close', closed, { once: true });
  });
}
