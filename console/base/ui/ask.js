// Dialogs that scripts create: a question with fields, and a message that shows something once.
import { make } from '../dom.js';
import { texts } from '../texts.js';
import { form } from './form.js';

/** @typedef {import('./form.js').FormOptions & {title: string, text?: string, content?: Node[]}} Question */

let dialogs = 0;

/** @param {string} title @param {(Node | string)[]} content */
function makeDialog(title, content) {
  const id = `dialog-${++dialogs}`;
  const dialog = make('dialog', { className: 'asked' }, make('h2', { id }, title), ...content);
  dialog.setAttribute('aria-labelledby', id);
  document.body.append(dialog);
  return dialog;
}

/**
 * Asks a question. The dialog stays open until `act` succeeds or the question is cancelled.
 * @template Result
 * @param {Omit<Question, 'act'> & {act: (values: import('./fields.js').Values) => Promise<Result>}} question
 * @returns {Promise<Result | null>} null after cancelling
 */
export function ask({ title, text = '', content = [], act, ...rest }) {
  return new Promise((resolve) => {
    /** @type {Result | null} */
    let result = null;
    const cancel = make('button', { type: 'button', className: 'quiet' }, texts.cancel);
    const asked = form({
      ...rest,
      others: [cancel],
      act: async (values) => {
        result = await act(values);
        dialog.close();
      },
    });
    const introduction = text ? [make('p', { className: 'dialog-text' }, text)] : [];
    const dialog = makeDialog(title, [...introduction, ...content, asked.element]);
    cancel.addEventListener('click', () => dialog.close());
    dialog.addEventListener('close', () => {
      dialog.remove();
      resolve(result);
    });
    dialog.showModal();
    if (rest.danger) cancel.focus();
    else asked.focus();
  });
}

/**
 * Shows something until it is dismissed.
 * @param {{title: string, content: Node[], done: string}} message done: the text of the button
 * @returns {Promise<void>}
 */
export function show({ title, content, done }) {
  return new Promise((resolve) => {
    const close = make('button', { type: 'button', className: 'primary' }, done);
    const dialog = makeDialog(title, [...content, make('div', { className: 'actions' }, close)]);
    close.addEventListener('click', () => dialog.close());
    dialog.addEventListener('close', () => {
      dialog.remove();
      resolve();
    });
    dialog.showModal();
    close.focus();
  });
}
