// A table of machines of which several can be selected, with buttons that act on the selected ones.
import { make } from '../../base/dom.js';
import { nameOf } from '../../base/names.js';
import { texts } from '../texts/texts.js';
import { button } from './elements.js';
import { Table } from './table.js';

/** @typedef {import('./data.js').Machine} Machine */
/** @template Name @typedef {{name: Name, label: string, fits: (machine: Machine) => boolean}} Choice */

const OWN = texts.machines;

/** @template {Choice<string>} Action */
export class ChoosingTable {
  #chosen = new Set(/** @type {string[]} */ ([]));
  /** @type {Machine[]} */
  #rows = [];
  #table;
  #all = make('input', { type: 'checkbox' });
  #count = make('span', { className: 'muted', role: 'status' });
  /** @type {{action: Action, control: HTMLButtonElement}[]} */
  #controls;
  element;

  /**
   * @param {object} parts
   * @param {string} parts.name
   * @param {string} parts.empty
   * @param {import('./table.js').Column<Machine>[]} parts.columns
   * @param {(machine: Machine) => (Node | string)[]} parts.details what is said below the machine's name
   * @param {Action[]} parts.actions
   * @param {(action: Action, machines: Machine[]) => void} parts.onAct
   */
  constructor({ name, empty, columns, details, actions, onAct }) {
    this.#table = new Table({
      name,
      empty,
      keyOf: (/** @type {Machine} */ { id }) => id,
      columns: [
        { title: OWN.machine, heads: true, cell: (machine) => [this.#tick(machine), ...details(machine)] },
        ...columns,
      ],
    });
    this.#controls = actions.map((action) => ({
      action,
      control: button(action.label, () => onAct(action, this.#fitting(action))),
    }));
    this.#all.addEventListener('change', () => this.#selectAll());
    const all = make('label', { className: 'tick' }, this.#all, make('span', {}, OWN.selectAll));
    const controls = this.#controls.map(({ control }) => control);
    const tools = make('div', { className: 'tools choosing' }, all, ...controls, this.#count);
    this.element = make('div', {}, tools, this.#table.element);
  }

  /** @param {Machine[]} rows @param {(machine: Machine) => unknown} [more] see Table */
  update(rows, more) {
    this.#rows = rows;
    const present = new Set(rows.map(({ id }) => id));
    for (const id of this.#chosen) if (!present.has(id)) this.#chosen.delete(id);
    this.#table.update(rows, more);
    this.#drawTools();
  }

  /** The selected machines for which the action makes sense. @param {Action} action */
  #fitting(action) {
    return this.#rows.filter((machine) => this.#chosen.has(machine.id) && action.fits(machine));
  }

  #tick(/** @type {Machine} */ machine) {
    const box = make('input', { type: 'checkbox', checked: this.#chosen.has(machine.id) });
    box.addEventListener('change', () => {
      if (box.checked) this.#chosen.add(machine.id);
      else this.#chosen.delete(machine.id);
      this.#drawTools();
    });
    return make('label', {}, box, make('bdi', {}, nameOf(machine)));
  }

  #selectAll() {
    for (const { id } of this.#rows) {
      if (this.#all.checked) this.#chosen.add(id);
      else this.#chosen.delete(id);
    }
    const boxes = /** @type {NodeListOf<HTMLInputElement>} */ (
      this.#table.element.querySelectorAll('tbody th input')
    );
    for (const box of boxes) box.checked = this.#all.checked;
    this.#drawTools();
  }

  #drawTools() {
    const count = this.#chosen.size;
    this.#all.checked = count > 0 && count === this.#rows.length;
    this.#all.indeterminate = count > 0 && count < this.#rows.length;
    this.#count.textContent = count ? OWN.selected(count) : '';
    for (const { action, control } of this.#controls) control.disabled = this.#fitting(action).length === 0;
    const tools = this.element?.firstElementChild;
    if (tools instanceof HTMLElement) tools.hidden = this.#rows.length === 0;
  }
}
