// The list of machines: each with its state and a button that opens a session.
import { byId, make } from '../base/dom.js';
import { age } from '../base/formats.js';
import { nameOf, tidy } from '../base/names.js';
import { texts } from '../base/texts.js';

/**
 * The time within which a machine has to go offline after a request to restart. The machine does not answer
 * the request.
 */
export const RESTART_DEADLINE_MS = 90_000;

/** @typedef {{id: string, name: string, machine: string, state: string, last_seen: number,
 *   representative: string | null}} Machine */
/** @typedef {'online' | 'offline' | 'session'} MachineState */

/** A sorted copy: online machines before offline ones, each group by name. */
export function sorted(/** @type {Machine[]} */ machines) {
  return [...machines].sort(
    (a, b) =>
      Number(a.state === 'offline') - Number(b.state === 'offline') ||
      nameOf(a).localeCompare(nameOf(b), texts.language),
  );
}

/** Whether one of a machine's names contains the text. */
function matches(/** @type {Machine} */ machine, /** @type {string} */ search) {
  const names = `${tidy(machine.name)}\n${tidy(machine.machine)}`;
  return names.toLowerCase().includes(search.trim().toLowerCase());
}

/** @returns {MachineState} */
function stateOf(/** @type {Machine} */ { state }) {
  return state === 'session' || state === 'online' ? state : 'offline';
}

export class MachineList {
  #actions;
  /** @type {Machine[]} */
  #machines = [];
  /**
   * Machines that were asked to restart, by id. away: the machine has gone offline since; until: the time by
   * which it has to go offline.
   * @type {Map<string, {away: boolean, until: number}>}
   */
  #restarting = new Map();
  #search = byId('machine-search', HTMLInputElement);

  /** @param {{open: (machine: Machine) => void, forget: (machine: Machine) => void}} actions */
  constructor(actions) {
    this.#actions = actions;
    this.#search.addEventListener('input', () => this.#draw());
  }

  get machines() {
    return this.#machines;
  }

  update(/** @type {unknown} */ list) {
    this.#machines = Array.isArray(list) ? list.filter((one) => typeof one?.id === 'string') : [];
    for (const { id, state } of this.#machines) {
      const restart = this.#restarting.get(id);
      if (!restart) continue;
      if (restart.away ? state !== 'offline' : performance.now() > restart.until) this.#restarting.delete(id);
      else restart.away = state === 'offline';
    }
    this.#draw();
  }

  /** Starts or stops showing the machine as restarting while it is offline. */
  showRestarting(/** @type {string} */ id, /** @type {boolean} */ on) {
    if (on) this.#restarting.set(id, { away: false, until: performance.now() + RESTART_DEADLINE_MS });
    else this.#restarting.delete(id);
  }

  #draw() {
    const all = this.#machines;
    const shown = sorted(all).filter((machine) => matches(machine, this.#search.value));
    const online = all.filter(({ state }) => state !== 'offline').length;
    byId('machine-list').replaceChildren(...shown.map((machine) => this.#row(machine)));
    byId('machine-note').hidden = shown.length > 0;
    byId('machine-note-text').textContent = all.length ? texts.noMatch : texts.noMachines;
    byId('machine-count').textContent = all.length ? texts.machineCount(all.length, online) : '';
  }

  #row(/** @type {Machine} */ machine) {
    const state = stateOf(machine);
    const name = nameOf(machine);
    const open = make(
      'button',
      { type: 'button', className: 'machine-open', disabled: state === 'offline', title: name },
      make('bdi', { className: 'machine-name' }, name),
      make('span', { className: 'machine-details' }, ...details(machine, state)),
    );
    open.addEventListener('click', () => this.#actions.open(machine));
    const shown = state === 'offline' && this.#restarting.has(machine.id) ? 'restarting' : state;
    const badge = make('span', { className: 'badge', dataset: { state: shown } }, texts.state[shown]);
    const properties = { className: 'machine', dataset: { agent: machine.id, state } };
    const item = make('li', properties, open, badge);
    if (shown === 'offline') item.append(this.#forgetButton(machine));
    else if (state === 'online') {
      item.append(make('span', { className: 'go', ariaHidden: 'true' }, texts.connect));
    }
    return item;
  }

  #forgetButton(/** @type {Machine} */ machine) {
    const onclick = () => this.#actions.forget(machine);
    return make('button', { type: 'button', className: 'quiet machine-forget', onclick }, texts.forget);
  }
}

/** The line under the name; each part is isolated, so that right-to-left names do not reorder the line. */
function details(/** @type {Machine} */ machine, /** @type {MachineState} */ state) {
  const { unit, count } = age(machine.last_seen, Date.now() / 1000);
  const computer = tidy(machine.machine);
  const parts = [
    computer === nameOf(machine) ? '' : computer,
    state === 'offline' ? texts.lastSeen(unit, count) : '',
    machine.representative ? texts.with(tidy(machine.representative)) : '',
  ].filter(Boolean);
  return parts.flatMap((part, i) => [...(i ? [' · '] : []), make('bdi', {}, part)]);
}
