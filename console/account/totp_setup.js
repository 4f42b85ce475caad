// Setting up one-time codes: the key as a picture and as text, the code that confirms it, and the backup codes.
import { make } from '../base/dom.js';
import { form } from '../base/ui/form.js';
import { codeList, secretField } from '../base/ui/secret.js';
import { post } from '../link/api.js';
import { problemOf } from '../link/problems.js';
import { texts } from './texts/texts.js';

/** The field for a one-time code. @returns {import('../base/ui/fields.js').FieldOptions} */
export function codeField() {
  return {
    name: 'code',
    label: texts.code,
    more: { autocomplete: 'one-time-code', autocapitalize: 'off', maxLength: 32, required: true },
  };
}

/** The key in groups of four characters. */
function inGroups(/** @type {string} */ secret) {
  return secret.match(/.{1,4}/g)?.join(' ') ?? secret;
}

/**
 * The QR code as an image. An image runs no script and loads nothing, whatever its markup contains.
 * @param {string} markup SVG
 */
function qrCode(markup) {
  const url = URL.createObjectURL(new Blob([markup], { type: 'image/svg+xml' }));
  const image = make('img', { className: 'qr-code', alt: texts.qrCode, width: 200, height: 200, src: url });
  const release = () => URL.revokeObjectURL(url);
  image.addEventListener('load', release);
  image.addEventListener('error', release);
  return image;
}

/**
 * Requests a key and creates the elements for it.
 * @param {object} parts
 * @param {HTMLElement[]} parts.others further buttons
 * @param {(codes: string[]) => Promise<void> | void} parts.onDone called with the backup codes
 * @returns {Promise<{content: HTMLElement[], focus: () => void}>}
 */
export async function totpSetup({ others, onDone }) {
  const { secret, qr } = await post('/api/totp/begin');
  const confirm = form({
    fields: [codeField()],
    submit: texts.confirmCode,
    others,
    act: async ({ code }) => {
      const { backup_codes: codes } = await post('/api/totp/confirm', { code: String(code).trim() });
      await onDone(Array.isArray(codes) ? codes.map(String) : []);
    },
    explain: (error) =>
      problemOf(error, { 400: texts.wrongCode, 401: texts.wrongCode, 429: texts.tooManyCodes }),
  });
  const steps = make(
    'ol',
    { className: 'steps' },
    make('li', {}, make('p', {}, texts.setUpSteps.scan), qrCode(String(qr ?? ''))),
    make('li', {}, secretField(texts.setUpSteps.secret, inGroups(String(secret ?? '')))),
    make('li', {}, make('p', {}, texts.setUpSteps.code), confirm.element),
  );
  return { content: [steps], focus: confirm.focus };
}

/** The backup codes with what to do with them. @param {string[]} codes @param {string} name of the person */
export function backupCodes(codes, name) {
  const list = codeList(codes, { heading: texts.backupHeading(name), file: texts.backupFile });
  return [make('p', {}, texts.backupText), list];
}
