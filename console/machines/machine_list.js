// The list of machines: each with its state and a button that opens a session.
import { arrange, byId } from '../base/dom.js';
import { nameOf, tidy } from '../base/names.js';
import { texts } from '../base/texts.js';
import { MachineRow } from './machine_row.js';

/**
 * The time within which a machine has to go offline after a request to restart. The machine does not answer
 * the request.
 */
export const RESTART_DEADLINE_MS = 90_000;

/** @typedef {import('./machine_row.js').Machine} Machine */

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

  /** @type {Map<string, MachineRow>} the rows on the page, in their order, by the machine's id */
  #rows = new Map();

  /** @param {import('./machine_row.js').Actions} actions */
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

  /** Focuses a machine's row; returns false if the list does not show the machine. */
  focus(/** @type {string} */ id) {
    this.#rows.get(id)?.focus();
    return this.#rows.has(id);
  }

  #draw() {
    const all = this.#machines;
    const shown = sorted(all).filter((machine) => matches(machine, this.#search.value));
    this.#drawRows(shown);
    byId('machine-note').hidden = shown.length > 0;
    byId('machine-note-text').textContent = all.length ? texts.noMatch : texts.noMachines;
    this.#drawCount(shown.length);
  }

  #drawRows(/** @type {Machine[]} */ shown) {
    const before = this.#rows;
    this.#rows = new Map(
      shown.map((machine) => [machine.id, before.get(machine.id) ?? new MachineRow(machine, this.#actions)]),
    );
    for (const machine of shown)
      this.#rows.get(machine.id)?.update(machine, this.#restarting.has(machine.id));
    this.#passFocus([...before]);
    arrange(
      byId('machine-list'),
      [...this.#rows.values()].map(({ element }) => element),
    );
  }

  /**
   * Moves the focus out of a row that is about to disappear: to the next row that stays, otherwise to the last
   * one before it, otherwise to the search field.
   */
  #passFocus(/** @type {[string, MachineRow][]} */ before) {
    const at = before.findIndex(([, { element }]) => element.contains(document.activeElement));
    if (at < 0 || this.#rows.has(before[at][0])) return;
    const neighbours = [...before.slice(at + 1), ...before.slice(0, at).reverse()];
    const stays = neighbours.find(([id]) => this.#rows.has(id));
    (stays?.[1] ?? this.#search).focus();
  }

  /** Writes how many machines there are, or how many match the search. The latter is read out as it changes. */
  #drawCount(/** @type {number} */ shown) {
    const all = this.#machines;
    const online = all.filter(({ state }) => state !== 'offline').length;
    const searching = this.#search.value.trim() !== '';
    const text = searching ? texts.machinesFound(shown, all.length) : texts.machineCount(all.length, online);
    const count = byId('machine-count');
    count.ariaLive = searching ? 'polite' : 'off';
    count.textContent = all.length ? text : '';
  }
}
