// A table whose rows stay the same elements while nothing in them changes, so that focus and ticks are kept. On a
// narrow screen each row becomes a card. The roles are explicit, because cards are no longer tables for browsers.
import { arrange, make } from '../../base/dom.js';

/** @typedef {{[key: string]: unknown}} Row */
/**
 * cell: the content of a row's cell. A column with `heads` names the row.
 * @template {Row} Kind
 * @typedef {{title: string, cell: (row: Kind) => Node | string | (Node | string)[], heads?: boolean,
 *   className?: string}} Column
 */

/** @template {Row} Kind */
export class Table {
  #columns;
  #keyOf;
  #body = make('tbody', { role: 'rowgroup' });
  #empty;
  #table;
  /** @type {Map<string, {element: HTMLTableRowElement, state: string}>} */
  #rows = new Map();
  element;

  /**
   * @param {object} parts
   * @param {string} parts.name the table's accessible name
   * @param {Column<Kind>[]} parts.columns
   * @param {(row: Kind) => string} parts.keyOf
   * @param {string} parts.empty what is shown in place of a table without rows
   */
  constructor({ name, columns, keyOf, empty }) {
    this.#columns = columns;
    this.#keyOf = keyOf;
    const titles = columns.map(({ title, className = '' }) =>
      make('th', { role: 'columnheader', scope: 'col', className }, title),
    );
    const head = make('thead', { role: 'rowgroup' }, make('tr', { role: 'row' }, ...titles));
    this.#table = make(
      'table',
      { role: 'table', className: 'list', ariaLabel: name, hidden: true },
      head,
      this.#body,
    );
    this.#empty = make('p', { className: 'muted none', hidden: true }, empty);
    this.element = make('div', { className: 'list-place' }, this.#table, this.#empty);
  }

  /**
   * @param {Kind[]} rows
   * @param {(row: Kind) => unknown} [more] what a row shows besides its own data; a change draws the row again
   */
  update(rows, more = () => '') {
    const before = this.#rows;
    this.#rows = new Map();
    const focus = this.#focused(before);
    for (const row of rows) {
      const key = this.#keyOf(row);
      const state = JSON.stringify([row, more(row)]);
      const kept = before.get(key);
      this.#rows.set(key, kept?.state === state ? kept : { element: this.#draw(row, key), state });
    }
    arrange(
      this.#body,
      [...this.#rows.values()].map(({ element }) => element),
    );
    this.#table.hidden = rows.length === 0;
    this.#empty.hidden = rows.length > 0;
    this.#giveBack(focus);
  }

  /** Which control of which row has the focus. @param {Map<string, {element: HTMLElement}>} rows */
  #focused(rows) {
    for (const [key, { element }] of rows) {
      const controls = [...element.querySelectorAll('button, input, select, a')];
      const at = controls.indexOf(/** @type {Element} */ (document.activeElement));
      if (at >= 0) return { key, at };
    }
    return null;
  }

  /** @param {{key: string, at: number} | null} focus */
  #giveBack(focus) {
    if (!focus || this.#body.contains(document.activeElement)) return;
    const controls = this.#rows.get(focus.key)?.element.querySelectorAll('button, input, select, a') ?? [];
    const control = controls[Math.min(focus.at, controls.length - 1)];
    if (control instanceof HTMLElement) control.focus();
  }

  /** @param {Kind} row @param {string} key */
  #draw(row, key) {
    const element = make('tr', { role: 'row', dataset: { key } });
    for (const { title, cell, heads, className = '' } of this.#columns) {
      const content = cell(row);
      const role = heads ? 'rowheader' : 'cell';
      const place = make(heads ? 'th' : 'td', { role, className, dataset: { title } });
      if (heads) place.setAttribute('scope', 'row');
      place.append(...(Array.isArray(content) ? content : [content]));
      element.append(place);
    }
    return element;
  }
}
