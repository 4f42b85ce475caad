// A row of the machine list. The row and its buttons stay the same elements while the machine changes, so that
// the focus and a click that has begun are not lost.
import { make } from '../base/dom.js';
import { age } from '../base/formats.js';
import { nameOf, tidy } from '../base/names.js';
import { texts } from '../base/texts.js';
import { rightsIn } from '../link/rights.js';
import { machineTexts } from './texts.js';

/** @typedef {{id: string, name: string, machine: string, state: string, last_seen: number,
 *   representative: string | null, quarantine?: unknown, rights?: unknown, ask_reason?: unknown,
 *   asked?: unknown, others?: number}} Machine */
/** @typedef {{open: (machine: Machine) => void, forget: (machine: Machine) => void}} Actions */
/** @typedef {'online' | 'offline' | 'session' | 'quarantine'} MachineState */

let rows = 0;

/** @returns {MachineState} */
function stateOf(/** @type {Machine} */ { state, quarantine }) {
  if (typeof quarantine === 'string') return 'quarantine';
  return state === 'session' || state === 'online' ? state : 'offline';
}

const mayOpen = (/** @type {MachineState} */ state) => state === 'online' || state === 'session';

export class MachineRow {
  #machine;
  #name = make('bdi', { className: 'machine-name' });
  #details = make('span', { className: 'machine-details' });
  #badge = make('span', { className: 'badge', id: `machine-state-${++rows}` });
  #go = make('span', { className: 'go', ariaHidden: 'true' }, texts.connect);
  #open = make('button', { type: 'button', className: 'machine-open' }, this.#name, this.#details);
  #forget = make('button', { type: 'button', className: 'quiet machine-forget' }, texts.forget);
  #element = make('li', { className: 'machine' }, this.#open, this.#badge, this.#go, this.#forget);

  /** @param {Machine} machine @param {Actions} actions */
  constructor(machine, actions) {
    this.#machine = machine;
    this.#element.dataset.agent = machine.id;
    this.#open.setAttribute('aria-describedby', this.#badge.id);
    this.#open.addEventListener('click', () => {
      if (mayOpen(stateOf(this.#machine))) actions.open(this.#machine);
    });
    this.#forget.addEventListener('click', () => actions.forget(this.#machine));
  }

  get element() {
    return this.#element;
  }

  focus() {
    this.#open.focus();
  }

  /** @param {Machine} machine @param {boolean} restarting whether the machine is expected back */
  update(machine, restarting) {
    const state = stateOf(machine);
    const shown = state === 'offline' && restarting ? 'restarting' : state;
    const name = nameOf(machine);
    this.#machine = machine;
    this.#element.dataset.state = state;
    this.#name.textContent = name;
    this.#open.title = name;
    // A disabled button would lose the focus when the machine goes offline.
    this.#open.ariaDisabled = String(!mayOpen(state));
    this.#details.replaceChildren(...details(machine, state));
    this.#badge.dataset.state = shown;
    this.#badge.textContent = texts.state[shown];
    this.#go.hidden = !mayOpen(state);
    this.#go.textContent = state === 'session' ? machineTexts.watch : texts.connect;
    const mayForget = shown === 'offline' && rightsIn(machine.rights).has('forget');
    if (!mayForget && this.#forget === document.activeElement) this.focus();
    this.#forget.hidden = !mayForget;
    this.#forget.ariaLabel = `${texts.forget} ${name}`;
  }
}

const others = (/** @type {Machine} */ machine) =>
  machine.others ? ` ${machineTexts.others(machine.others)}` : '';

/** The line under the name; each part is isolated, so that right-to-left names do not reorder the line. */
function details(/** @type {Machine} */ machine, /** @type {MachineState} */ state) {
  const { unit, count } = age(machine.last_seen, Date.now() / 1000);
  const computer = tidy(machine.machine);
  const parts = [
    computer === nameOf(machine) ? '' : computer,
    state === 'offline' ? texts.lastSeen(unit, count) : '',
    state === 'quarantine' ? tidy(machine.quarantine) : '',
    machine.representative ? `${texts.with(tidy(machine.representative))}${others(machine)}` : '',
  ].filter(Boolean);
  return parts.flatMap((part, i) => [...(i ? [' · '] : []), make('bdi', {}, part)]);
}
