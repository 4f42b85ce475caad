// The question whether the relay is to forget a machine.
import { byId } from '../base/dom.js';
import { inSentence, nameOf } from '../base/names.js';
import { texts } from '../base/texts.js';

/** Ends the previous question: a dialog reports its closing in a later task, when the next question may be open. */
let earlier = new AbortController();

/** Asks the question. @returns {Promise<boolean>} whether the answer was yes */
export function askToForget(/** @type {import('./machine_row.js').Machine} */ machine) {
  const dialog = byId('forget-dialog', HTMLDialogElement);
  earlier.abort();
  earlier = new AbortController();
  const { signal } = earlier;
  byId('forget-question').textContent = texts.forgetQuestion(inSentence(nameOf(machine)));
  dialog.returnValue = '';
  dialog.showModal();
  return new Promise((resolve) => {
    signal.addEventListener('abort', () => resolve(false));
    const closed = () => {
      // A report that arrives while this question is open belongs to the previous one.
      if (!dialog.open) resolve(dialog.returnValue === 'forget');
    };
    dialog.addEventListener('close', closed, { signal });
  });
}
