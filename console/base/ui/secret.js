// Secrets that the page shows once, such as a password or backup codes, with ways to keep them.
import { make } from '../dom.js';
import { saveFile } from '../save_file.js';
import { texts } from '../texts.js';

/** Copies a text and says so on the button, for a moment. @param {HTMLButtonElement} button @param {string} text */
async function copy(button, text) {
  const copied = await navigator.clipboard.writeText(text).then(
    () => true,
    () => false,
  );
  button.textContent = copied ? texts.copiedNow : texts.copyByHand;
}

/** A button that copies a text. @param {string} text */
export function copyButton(text) {
  const button = make('button', { type: 'button', className: 'copy' }, texts.copy);
  button.ariaLive = 'polite';
  button.addEventListener('click', () => copy(button, text));
  return button;
}

/** The number of characters of a secret that fit one line on a phone. */
const LINE = 22;

/**
 * One secret in a field that can be selected, with a button that copies it.
 * @param {string} label
 * @param {string} secret
 */
export function secretField(label, secret) {
  const rows = Math.ceil(secret.length / LINE);
  const shown = make('textarea', {
    readOnly: true,
    value: secret,
    rows,
    className: 'secret',
    spellcheck: false,
  });
  shown.addEventListener('focus', () => shown.select());
  return make(
    'div',
    { className: 'secret-place' },
    make('label', { className: 'field' }, make('span', {}, label), shown),
    copyButton(secret),
  );
}

/**
 * A list of codes with buttons that copy, print and save them.
 * @param {string[]} codes
 * @param {{heading: string, file: string}} names heading: the first line of what is printed and saved
 */
export function codeList(codes, { heading, file }) {
  const list = make(
    'ol',
    { className: 'codes' },
    ...codes.map((code) => make('li', {}, make('code', {}, code))),
  );
  const text = `${heading}\n\n${codes.join('\n')}\n`;
  const print = make('button', { type: 'button' }, texts.print);
  print.addEventListener('click', () => {
    document.body.classList.add('printing');
    window.print();
    document.body.classList.remove('printing');
  });
  const save = make('button', { type: 'button' }, texts.save);
  save.addEventListener('click', () => saveFile(new Blob([text], { type: 'text/plain' }), file));
  return make(
    'div',
    { className: 'code-place' },
    make('p', { className: 'printed-only' }, heading),
    list,
    make('div', { className: 'code-acts' }, copyButton(text), print, save),
  );
}
