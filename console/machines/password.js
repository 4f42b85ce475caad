// The representative's own password, changed in a dialog.

import { byId } from '../base/dom.js';
import { texts } from '../base/texts.js';
import { changePassword } from '../link/api.js';

/** @param {() => void} onChanged */
export function attachPassword(onChanged) {
  const dialog = byId('password-dialog');
  const form = byId('password-form');
  const say = (/** @type {string} */ text) => {
    byId('password-error').textContent = text;
  };
  byId('password').addEventListener('click', () => {
    say('');
    dialog.showModal();
  });
  byId('password-cancel').addEventListener('click', () => dialog.close());
  // However it closes, no password stays in the page.
  dialog.addEventListener('close', () => form.reset());
  form.addEventListener('submit', async (/** @type {SubmitEvent} */ event) => {
    event.preventDefault();
    const wanted = byId('password-new').value;
    if (wanted !== byId('password-again').value) {
      say(texts.passwordsDiffer);
      return;
    }
    byId('password-submit').disabled = true;
    try {
      await changePassword(byId('password-old').value, wanted);
      dialog.close();
      onChanged();
    } catch (/** @type {any} */ error) {
      const known = /** @type {Record<number, string>} */ ({
        401: texts.wrongPassword,
        429: texts.tooManyLogins,
        0: texts.noRelay,
      });
      say(known[error.status] ?? texts.failed);
    }
    byId('password-submit').disabled = false;
  });
}
