// A form that a script creates: its fields, the error below them, and its buttons.
import { make } from '../dom.js';
import { field, valuesOf } from './fields.js';

/** @typedef {import('./fields.js').FieldOptions} FieldOptions */
/** @typedef {import('./fields.js').Values} Values */
/**
 * submit: the text of the button. act: carries the form out; what it throws is explained below the fields.
 * others: further buttons, before the form's own.
 * @typedef {object} FormOptions
 * @property {FieldOptions[]} [fields]
 * @property {string} submit
 * @property {boolean} [danger]
 * @property {HTMLElement[]} [others]
 * @property {(values: Values) => Promise<unknown>} act
 * @property {(error: unknown) => string} explain
 */

/**
 * @param {FormOptions} options
 * @returns {{element: HTMLFormElement, focus: () => void, showError: (text: string) => void}}
 */
export function form({ fields = [], submit, danger = false, others = [], act, explain }) {
  const parts = fields.map(field);
  const error = make('p', { className: 'error', role: 'alert' });
  const button = make('button', { className: danger ? 'danger' : 'primary' }, submit);
  const actions = make('div', { className: 'actions' }, ...others, button);
  const element = make('form', { className: 'form' }, ...parts.map((part) => part.element), error, actions);
  element.addEventListener('submit', async (event) => {
    event.preventDefault();
    if (button.disabled) return;
    button.disabled = true;
    error.textContent = '';
    try {
      await act(valuesOf(parts));
    } catch (reason) {
      error.textContent = explain(reason);
      // The button that was pressed has lost the focus by being disabled.
      parts[0]?.focus();
    }
    button.disabled = false;
  });
  const focus = () => (parts[0] ?? button).focus();
  const showError = (/** @type {string} */ text) => {
    error.textContent = text;
  };
  return { element, focus, showError };
}
