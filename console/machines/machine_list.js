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

/** The time after which the rows of offline machines say again how long ago the machines were seen. */
const AGE_INTERVAL_MS = 30_000;

/** @typedef {import('./machine_row.js').Machine} Machine */
/** @typedef {import('./machine_row.js').Actions & {requestList: () => void}} ListActions */
/** @typedef {import('../link/link.js').ControlMessage} ControlMessage */

/** A sorted copy: online machines before offline ones, each group by name. */
export function sorted(/** @type {Machine[]} */ machines) {
  const { compare } = new Intl.Collator(texts.language);
  return [...machines].sort(
    (a, b) => Number(a.state === 'offline') - Number(b.state === 'offline') || compare(nameOf(a), nameOf(b)),
  );
}

/** What decides where the list shows a machine; undefined for a machine that it does not have. */
function place(/** @type {Machine | undefined} */ machine) {
  return machine && `${nameOf(machine)}\n${tidy(machine.machine)}\n${machine.state === 'offline'}`;
}

/** The machines in a list that the relay sent. */
function machinesIn(/** @type {unknown} */ list) {
  return /** @type {Machine[]} */ (Array.isArray(list) ? list : []).filter(
    (one) => typeof one?.id === 'string',
  );
}

/** Whether one of a machine's names contains the text. */
function matches(/** @type {Machine} */ machine, /** @type {string} */ search) {
  const names = `${tidy(machine.name)}\n${tidy(machine.machine)}`;
  return names.toLowerCase().includes(search.trim().toLowerCase());
}

export class MachineList {
  #actions;
  /** @type {Map<string, Machine>} by id */
  #machines = new Map();
  /**
   * The version of the list; null while the list is incomplete, because a change was missed.
   * @type {number | null}
   */
  #version = null;
  /**
   * Machines that were asked to restart, by id. away: the machine has gone offline since; until: the time by
   * which it has to go offline.
   * @type {Map<string, {away: boolean, until: number}>}
   */
  #restarting = new Map();
  #search = byId('machine-search', HTMLInputElement);

  /** @type {Map<string, MachineRow>} the rows on the page, in their order, by the machine's id */
  #rows = new Map();

  /** @param {ListActions} actions */
  constructor(actions) {
    this.#actions = actions;
    this.#search.addEventListener('input', () => this.#draw());
    setInterval(() => this.#drawAges(), AGE_INTERVAL_MS);
  }

  get machines() {
    return [...this.#machines.values()];
  }

  /**
   * Applies a message with the whole list or with changes of it; requests the whole list when a change before
   * the message is missing. Returns false when the list is as before.
   */
  receive(/** @type {ControlMessage} */ { type, version, agents, changed, removed }) {
    if (type === 'agents') {
      this.#machines = new Map();
      this.#apply(machinesIn(agents), Number(version));
      this.#draw();
      return true;
    }
    if (type !== 'agents-changed' || this.#version === null) return false;
    if (version !== this.#version + 1) {
      this.#version = null;
      this.#actions.requestList();
      return false;
    }
    this.#change(machinesIn(changed), Array.isArray(removed) ? removed : []);
    return true;
  }

  /** Most changes move no row, so the other rows are left alone. */
  #change(/** @type {Machine[]} */ changed, /** @type {unknown[]} */ removed) {
    const moved = changed.some((machine) => place(this.#machines.get(machine.id)) !== place(machine));
    this.#apply(changed, Number(this.#version) + 1);
    for (const id of removed) this.#machines.delete(String(id));
    if (moved || removed.length > 0) this.#draw();
    for (const { id } of changed) this.#drawRow(id);
  }

  #apply(/** @type {Machine[]} */ changed, /** @type {number} */ version) {
    this.#version = version;
    for (const machine of changed) {
      this.#machines.set(machine.id, machine);
      this.#followRestart(machine);
    }
  }

  #followRestart(/** @type {Machine} */ { id, state }) {
    const restart = this.#restarting.get(id);
    if (!restart) return;
    if (restart.away ? state !== 'offline' : performance.now() > restart.until) this.#restarting.delete(id);
    else restart.away = state === 'offline';
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
    const all = this.machines;
    const shown = sorted(all.filter((machine) => matches(machine, this.#search.value)));
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
    for (const id of this.#rows.keys()) this.#drawRow(id);
    this.#passFocus([...before]);
    arrange(
      byId('machine-list'),
      [...this.#rows.values()].map(({ element }) => element),
    );
  }

  #drawRow(/** @type {string} */ id) {
    const machine = this.#machines.get(id);
    if (machine) this.#rows.get(id)?.update(machine, this.#restarting.has(id));
  }

  #drawAges() {
    for (const [id, { state }] of this.#machines) if (state === 'offline') this.#drawRow(id);
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
    const all = this.machines;
    const online = all.filter(({ state }) => state !== 'offline').length;
    const searching = this.#search.value.trim() !== '';
    const text = searching ? texts.machinesFound(shown, all.length) : texts.machineCount(all.length, online);
    const count = byId('machine-count');
    count.ariaLive = searching ? 'polite' : 'off';
    count.textContent = all.length ? text : '';
  }
}
