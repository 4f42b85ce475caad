// The list of machines: who is there, in which state, and the way in.

import { byId, make } from '../base/dom.js';
import { nameOf, tidy } from '../base/names.js';
import { age } from '../base/status.js';
import { texts } from '../base/texts.js';
import { PATIENCE_MS } from '../session/restart.js';

/** @typedef {{id: string, name: string, machine: string, state: string, last_seen: number,
 *   representative: string | null}} Machine */

const STATES = ['session', 'online', 'offline'];

/** Online ones first, then by name. */
export function sorted(/** @type {Machine[]} */ machines) {
  return [...machines].sort(
    (a, b) =>
      Number(a.state === 'offline') - Number(b.state === 'offline') ||
      nameOf(a).localeCompare(nameOf(b), texts.language),
  );
}

/** Whether any of a machine's names holds the text. */
function matches(/** @type {Machine} */ machine, /** @type {string} */ search) {
  return `${tidy(machine.name)}\n${tidy(machine.machine)}`
    .toLowerCase()
    .includes(search.trim().toLowerCase());
}

export class MachineList {
  /** @param {{open: (machine: Machine) => void, forget: (machine: Machine) => void}} actions */
  constructor(actions) {
    this.actions = actions;
    /** @type {Machine[]} */
    this.machines = [];
    /**
     * Machines that are told to restart: whether they have been away since, and until when they have to go.
     * @type {Map<string, {away: boolean, until: number}>}
     */
    this.restarting = new Map();
    byId('machine-search').addEventListener('input', () => this.draw());
  }

  update(/** @type {unknown} */ list) {
    this.machines = Array.isArray(list) ? list.filter((one) => typeof one?.id === 'string') : [];
    for (const { id, state } of this.machines) {
      const restart = this.restarting.get(id);
      if (!restart) continue;
      if (restart.away ? state !== 'offline' : performance.now() > restart.until) this.restarting.delete(id);
      else restart.away = state === 'offline';
    }
    this.draw();
  }

  /** Shows a machine that goes away as restarting, until it is back. */
  expectBack(/** @type {string} */ id, /** @type {boolean} */ on) {
    if (on) this.restarting.set(id, { away: false, until: performance.now() + PATIENCE_MS });
    else this.restarting.delete(id);
  }

  draw() {
    const all = this.machines;
    const shown = sorted(all).filter((machine) => matches(machine, byId('machine-search').value));
    byId('machine-list').replaceChildren(...shown.map((machine) => this.row(machine)));
    byId('machine-note').hidden = shown.length > 0;
    byId('machine-note-text').textContent = all.length ? texts.noMatch : texts.noMachines;
    byId('machine-count').textContent = all.length
      ? texts.machineCount(all.length, all.filter(({ state }) => state !== 'offline').length)
      : '';
  }

  /** @private */
  row(/** @type {Machine} */ machine) {
    const state = STATES.includes(machine.state) ? machine.state : 'offline';
    const name = nameOf(machine);
    const open = make(
      'button',
      {
        type: 'button',
        className: 'machine-open',
        disabled: state === 'offline',
        title: name,
        onclick: () => this.actions.open(machine),
      },
      make('bdi', { className: 'machine-name' }, name),
      make('span', { className: 'machine-details' }, ...this.details(machine, state)),
    );
    const shown = state === 'offline' && this.restarting.has(machine.id) ? 'restarting' : state;
    const badge = make(
      'span',
      { className: 'badge', dataset: { state: shown } },
      texts.state[/** @type {'online'} */ (shown)],
    );
    const item = make('li', { className: 'machine', dataset: { agent: machine.id, state } }, open, badge);
    if (shown === 'offline') {
      item.append(
        make(
          'button',
          { type: 'button', className: 'quiet machine-forget', onclick: () => this.actions.forget(machine) },
          texts.forget,
        ),
      );
    } else if (state === 'online') {
      item.append(make('span', { className: 'go', ariaHidden: 'true' }, texts.connect));
    }
    return item;
  }

  /** @private What stands under the name, each part a line run of its own. */
  details(/** @type {Machine} */ machine, /** @type {string} */ state) {
    const { unit, count } = age(machine.last_seen, Date.now() / 1000);
    const parts = [
      tidy(machine.machine) === nameOf(machine) ? '' : tidy(machine.machine),
      state === 'offline' ? texts.lastSeen(unit, count) : '',
      machine.representative ? texts.with(tidy(machine.representative)) : '',
    ].filter(Boolean);
    return parts.flatMap((part, i) => [...(i ? [' · '] : []), make('bdi', {}, part)]);
  }
}
