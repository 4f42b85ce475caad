// The question whether the relay is to forget a machine.
import { byId } from '../base/dom.js';
import { inSentence, nameOf } from '../base/names.js';
import { texts } from '../base/texts.js';

/** Ends the question before, which may not know yet that it was closed: a dialog reports that in a later task. */
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
      // The report belongs to the question before while this one is open.
      if (!dialog.open) resolve(dialog.returnValue === 'forget');
    };
    dialog.addEventListener('close', closed, { signal });
  });
}
