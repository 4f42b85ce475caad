// The dialog for changing the representative's password.
import { byId } from '../base/dom.js';
import { texts } from '../base/texts.js';
import { changePassword, statusOf } from '../link/api.js';

const ERRORS = new Map([
  [401, texts.wrongPassword],
  [429, texts.tooManyLogins],
  [0, texts.noRelay],
]);

/** @param {() => void} onChanged */
export function attachPassword(onChanged) {
  const dialog = byId('password-dialog', HTMLDialogElement);
  const form = byId('password-form', HTMLFormElement);
  const showError = (/** @type {string} */ text) => {
    byId('password-error').textContent = text;
  };
  byId('password').addEventListener('click', () => {
    showError('');
    dialog.showModal();
  });
  byId('password-cancel').addEventListener('click', () => dialog.close());
  // However the dialog closes, no password stays in the page.
  dialog.addEventListener('close', () => form.reset());
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    const submit = byId('password-submit', HTMLButtonElement);
    submit.disabled = true;
    const error = await change();
    submit.disabled = false;
    if (error) {
      showError(error);
      return;
    }
    dialog.close();
    onChanged();
  });
}

/** Changes the password to the one in the form. @returns {Promise<string>} the error to show, '' for none */
async function change() {
  const wanted = byId('password-new', HTMLInputElement).value;
  if (wanted !== byId('password-again', HTMLInputElement).value) return texts.passwordsDiffer;
  try {
    await changePassword(byId('password-old', HTMLInputElement).value, wanted);
    return '';
  } catch (error) {
    return ERRORS.get(statusOf(error) ?? -1) ?? texts.failed;
  }
}
