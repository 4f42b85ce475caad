// The list of machines: who is there, in which state, and the way in.
import { age } from './status.js';
import { byId, make } from './dom.js';
import { texts } from './texts.js';

/** @typedef {{id: string, name: string, machine: string, state: string, last_seen: number,
 *   representative: string | null}} Machine */

const relative = new Intl.RelativeTimeFormat('en', { numeric: 'auto' });
const ORDER = ['session', 'online', 'offline'];

/** Online ones first, then by name. */
export function sorted(/** @type {Machine[]} */ machines) {
  return [...machines].sort((a, b) => Number(a.state === 'offline') - Number(b.state === 'offline') ||
    a.name.localeCompare(b.name));
}

/** Whether any of a machine's names holds the text. */
export function matches(/** @type {Machine} */ machine, /** @type {string} */ search) {
  return `${machine.name}\n${machine.machine}`.toLowerCase().includes(search.trim().toLowerCase());
}

export class MachineList {
  /** @param {{open: (machine: Machine) => void, forget: (machine: Machine) => void}} actions */
  constructor(actions) {
    this.actions = actions;
    /** @type {Machine[]} */
    this.machines = [];
    byId('machine-search').addEventListener('input', () => this.draw());
  }

  update(/** @type {unknown} */ list) {
    this.machines = Array.isArray(list) ? list.filter((one) => typeof one?.id === 'string') : [];
    this.draw();
  }

  name(/** @type {string} */ id) {
    return this.machines.find((machine) => machine.id === id)?.name ?? id;
  }

  draw() {
    const shown = sorted(this.machines).filter((machine) => matches(machine, byId('machine-search').value));
    byId('machine-list').replaceChildren(...shown.map((machine) => this.row(machine)));
    const note = byId('machine-note');
    note.hidden = shown.length > 0;
    note.textContent = this.machines.length ? texts.noMatch : texts.noMachines;
  }

  /** @private */
  row(/** @type {Machine} */ machine) {
    const state = ORDER.includes(machine.state) ? machine.state : 'offline';
    const { unit, count } = age(machine.last_seen, Date.now() / 1000);
    const seen = unit === 'now' ? relative.format(0, 'second') : relative.format(-count, /** @type {any} */ (unit));
    const details = [machine.machine === machine.name ? '' : machine.machine,
      state === 'offline' ? texts.lastSeen(seen) : '',
      machine.representative ? texts.with(machine.representative) : ''].filter(Boolean).join(' · ');
    const open = make('button', { type: 'button', className: 'machine-open', disabled: state === 'offline',
      onclick: () => this.actions.open(machine) },
    make('span', { className: 'machine-name' }, machine.name || machine.id),
    make('span', { className: 'machine-details' }, details));
    const badge = make('span', { className: 'badge', dataset: { state } }, texts.state[/** @type {'online'} */ (state)]);
    const item = make('li', { className: 'machine', dataset: { agent: machine.id, state } }, open, badge);
    if (state === 'offline') {
      item.append(make('button', { type: 'button', className: 'quiet machine-forget',
        onclick: () => this.actions.forget(machine) }, texts.forget));
    }
    return item;
  }
}
