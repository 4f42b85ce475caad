// The question whether the relay is to forget a machine.
import { byId } from '../base/dom.js';
import { inSentence, nameOf } from '../base/names.js';
import { texts } from '../base/texts.js';

/** Asks the question. @returns {Promise<boolean>} whether the answer was yes */
export function askToForget(/** @type {import('./machine_row.js').Machine} */ machine) {
  const dialog = byId('forget-dialog', HTMLDialogElement);
  byId('forget-question').textContent = texts.forgetQuestion(inSentence(nameOf(machine)));
  dialog.returnValue = '';
  dialog.showModal();
  return new Promise((resolve) => {
    dialog.addEventListener('close', () => resolve(dialog.returnValue === 'forget'), { once: true });
  });
}
