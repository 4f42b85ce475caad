// The fields of forms that scripts create: each has a label, and returns its value in one form.
import { make } from '../dom.js';

/** @typedef {{value: string, label: string}} Choice */
/** @typedef {string | boolean | string[]} Value a tick's is a boolean, that of several ticks their names */
/** @typedef {Record<string, Value>} Values the fields' values by their names */
/**
 * What a field is. kind: 'text' by default; 'checks' are several ticks, 'lines' is a text of several lines.
 * more: further properties of the element.
 * @typedef {object} FieldOptions
 * @property {string} name
 * @property {string} label
 * @property {'text' | 'password' | 'number' | 'datetime-local' | 'search' | 'select' | 'checks' | 'tick' | 'lines'} [kind]
 * @property {Value | number} [value]
 * @property {Choice[]} [choices] of a selection or of ticks
 * @property {string} [hint]
 * @property {Partial<Omit<HTMLInputElement, 'dataset'>>} [more]
 */
/** @typedef {{name: string, element: HTMLElement, value: () => Value, focus: () => void}} Field */

let fields = 0;

/** Creates a field. @param {FieldOptions} options @returns {Field} */
export function field(options) {
  if (options.kind === 'checks') return checks(options);
  if (options.kind === 'tick') return tick(options);
  const control = controlOf(options);
  if (options.hint) control.setAttribute('aria-describedby', `${control.id}-hint`);
  // The label does not contain the control, because a selection's choices would become part of its text.
  const label = make('label', { htmlFor: control.id }, options.label);
  const element = make(
    'div',
    { className: 'field-place' },
    make('div', { className: 'field' }, label, control),
  );
  if (options.hint)
    element.append(make('p', { className: 'muted field-hint', id: `${control.id}-hint` }, options.hint));
  return { name: options.name, element, value: () => control.value, focus: () => control.focus() };
}

/** @param {FieldOptions} options @returns {HTMLInputElement | HTMLSelectElement | HTMLTextAreaElement} */
function controlOf({ name, kind = 'text', value = '', choices = [], more = {} }) {
  const id = `field-${++fields}-${name}`;
  const control = bareControl(kind, String(value), choices);
  return Object.assign(control, { id, name }, /** @type {object} */ (more));
}

/** @param {string} kind @param {string} value @param {Choice[]} choices */
function bareControl(kind, value, choices) {
  if (kind === 'lines') return make('textarea', { rows: 3, value });
  if (kind !== 'select') return Object.assign(make('input'), { type: kind, value, spellcheck: false });
  const options = choices.map((one) =>
    make('option', { value: one.value, selected: one.value === value }, one.label),
  );
  return make('select', {}, ...options);
}

/** @param {FieldOptions} options @returns {Field} */
function tick({ name, label, value, hint, more }) {
  const box = Object.assign(
    make('input', { type: 'checkbox', name, checked: value === true }),
    /** @type {object} */ (more ?? {}),
  );
  const element = make('div', { className: 'field-place' });
  element.append(make('label', { className: 'tick' }, box, make('span', {}, label)));
  if (hint) element.append(make('p', { className: 'muted field-hint' }, hint));
  return { name, element, value: () => box.checked, focus: () => box.focus() };
}

/** @param {FieldOptions} options @returns {Field} */
function checks({ name, label, value, choices = [], hint }) {
  const chosen = Array.isArray(value) ? value : [];
  const boxes = choices.map((one) =>
    make('input', { type: 'checkbox', name, value: one.value, checked: chosen.includes(one.value) }),
  );
  const element = make('fieldset', { className: 'checks' }, make('legend', {}, label));
  for (const [i, box] of boxes.entries())
    element.append(make('label', { className: 'tick' }, box, make('bdi', {}, choices[i].label)));
  if (hint) element.append(make('p', { className: 'muted field-hint' }, hint));
  const ticked = () => boxes.filter((box) => box.checked).map((box) => box.value);
  return { name, element, value: ticked, focus: () => boxes[0]?.focus() };
}

/** The values of fields by their names. @param {Field[]} all @returns {Values} */
export function valuesOf(all) {
  return Object.fromEntries(all.map((one) => [one.name, one.value()]));
}

/** The names of the ticks that are set. @param {Value | undefined} value @returns {string[]} */
export function ticked(value) {
  return Array.isArray(value) ? value : [];
}
