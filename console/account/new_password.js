// The two fields for a new password, and the check that they fit each other.
import { texts } from './texts/texts.js';

const LEAST = 10;
const MOST = 1024;

/** What is shown for a new password that does not fit; other errors come from the relay. */
export class UnfitPassword extends Error {}

/** @returns {import('../base/ui/fields.js').FieldOptions[]} */
export function newPasswordFields() {
  const more = /** @type {const} */ ({ autocomplete: 'new-password', maxLength: MOST, required: true });
  return [
    { name: 'wanted', label: texts.newPassword, kind: 'password', more: { ...more, minLength: LEAST } },
    { name: 'again', label: texts.newPasswordAgain, kind: 'password', more },
  ];
}

/** @returns {import('../base/ui/fields.js').FieldOptions} */
export function oldPasswordField() {
  return {
    name: 'old',
    label: texts.oldPassword,
    kind: 'password',
    more: { autocomplete: 'current-password', maxLength: MOST, required: true },
  };
}

/** The new password; throws UnfitPassword. @param {import('../base/ui/fields.js').Values} values */
export function newPassword({ wanted, again }) {
  const password = String(wanted);
  if ([...password].length < LEAST) throw new UnfitPassword(texts.passwordTooShort);
  if (password !== again) throw new UnfitPassword(texts.passwordsDiffer);
  return password;
}
