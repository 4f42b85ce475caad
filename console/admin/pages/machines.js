// The page of the machines: those that wait for approval, and all others.
import { make } from '../../base/dom.js';
import { inSentence, nameOf, tidy } from '../../base/names.js';
import { field } from '../../base/ui/fields.js';
import { ChoosingTable } from '../parts/choosing.js';
import { Refresh } from '../parts/context.js';
import { choicesOf, groups, machines } from '../parts/data.js';
import { bdi, host, moment, section, tag } from '../parts/elements.js';
import { texts } from '../texts/texts.js';
import { carryOut, KNOWN_ACTIONS, WAITING_ACTIONS } from './machine_actions.js';

/** @typedef {import('../parts/data.js').Machine} Machine */
/** @typedef {import('../parts/data.js').Group} Group */
/** @typedef {import('./machine_actions.js').Action} Action */

const OWN = texts.machines;

/** The state of a machine that the page names. @returns {[keyof typeof OWN.states, string]} the colour too */
function stateOf(/** @type {Machine} */ { state, used_twice, refused, connected, representative }) {
  if (used_twice) return ['usedTwice', 'bad'];
  if (refused) return ['refused', 'bad'];
  if (state === 'blocked') return ['blocked', 'bad'];
  if (state === 'quarantined') return ['quarantined', 'warn'];
  if (!connected) return ['offline', ''];
  return representative ? ['session', 'warn'] : ['online', 'good'];
}

function stateCell(/** @type {Machine} */ machine) {
  const [state, kind] = stateOf(machine);
  const { reason, state_by, representative } = machine;
  const remarks = [
    ...(representative ? [OWN.withWhom(inSentence(representative))] : []),
    ...(reason && !machine.used_twice ? [`${OWN.reason}: ${inSentence(reason)}`] : []),
    ...(machine.state !== 'approved' && state_by ? [OWN.stateBy(inSentence(state_by))] : []),
  ];
  return [tag(OWN.states[state], kind), ...remarks.map((text) => make('small', {}, text))];
}

export class MachinesPage {
  element = make('div', {});
  #context;
  /** @type {Machine[]} */
  #machines = [];
  /** @type {Group[]} */
  #groups = [];
  #waiting;
  #known;
  #search = field({ name: 'search', label: OWN.search, kind: 'search' });
  #filter = make('div', { className: 'tools' });
  #group = field({ name: 'group', label: OWN.group, kind: 'select' });
  #refresh;

  constructor(/** @type {import('../parts/context.js').Context} */ context) {
    this.#context = context;
    this.#refresh = new Refresh(
      (asking) => this.#fetch(asking),
      (error) => context.fail(error),
    );
    this.#waiting = this.#waitingTable();
    this.#known = this.#knownTable();
    this.#filter.append(this.#search.element, this.#group.element);
    this.#filter.addEventListener('input', () => this.#draw());
    this.element.append(
      section(OWN.waiting, make('p', { className: 'muted' }, OWN.waitingIntro), this.#waiting.element),
      section(OWN.known, this.#filter, this.#known.element),
    );
  }

  async load() {
    await this.#fetch();
    this.#refresh.start();
  }

  stop() {
    this.#refresh.stop();
  }

  /** @param {import('../../link/api.js').Asking} [asking] */
  async #fetch(asking) {
    const [list, all] = await Promise.all([machines(asking), groups(asking)]);
    this.#machines = list;
    const changed = JSON.stringify(all) !== JSON.stringify(this.#groups);
    this.#groups = all;
    if (changed) this.#drawGroups();
    this.#draw();
  }

  #drawGroups() {
    const chosen = String(this.#group.value());
    const choices = [{ value: '', label: OWN.anyGroup }, ...choicesOf(this.#groups)];
    const fresh = field({ name: 'group', label: OWN.group, kind: 'select', value: chosen, choices });
    this.#group.element.replaceWith(fresh.element);
    this.#group = fresh;
  }

  #draw() {
    const byName = (/** @type {Machine} */ a, /** @type {Machine} */ b) =>
      nameOf(a).localeCompare(nameOf(b), texts.language);
    const waiting = this.#machines.filter(({ state }) => state === 'waiting');
    const known = this.#machines.filter(({ state }) => state !== 'waiting');
    const [search, group] = [String(this.#search.value()).trim().toLowerCase(), this.#group.value()];
    const shown = known.filter(
      (machine) =>
        (!group || String(machine.group) === group) &&
        `${tidy(machine.name)}\n${tidy(machine.machine)}\n${machine.address}\n${machine.hw_id}`
          .toLowerCase()
          .includes(search),
    );
    this.#waiting.update(
      waiting.sort((a, b) => b.enrolled_at - a.enrolled_at),
      (one) => this.#sameHardware(one),
    );
    this.#known.update(shown.sort(byName), ({ group: id }) => this.#groupName(id));
    this.#filter.hidden = known.length === 0;
  }

  #groupName(/** @type {number | null} */ wanted) {
    return tidy(this.#groups.find(({ id }) => id === wanted)?.name);
  }

  /** The names of the machines with the same hardware id. */
  #sameHardware(/** @type {Machine} */ { same_hardware: same = [] }) {
    return this.#machines.filter(({ id }) => same.includes(id)).map(nameOf);
  }

  /** Carries an action out, and shows what was done. @param {Action} action @param {Machine[]} chosen */
  async #act(action, chosen) {
    try {
      const done = await carryOut(action, chosen, { groups: this.#groups, machines: this.#machines });
      if (done === null) return;
      await this.#fetch();
      this.#context.notify(done);
    } catch (error) {
      this.#context.fail(error);
    }
  }

  #waitingTable() {
    return new ChoosingTable({
      name: OWN.waiting,
      empty: OWN.noneWaiting,
      details: (machine) => {
        const same = this.#sameHardware(machine);
        const own = make('small', {}, make('bdi', {}, tidy(machine.machine)));
        if (!same.length) return [own];
        const names = same.map(inSentence).join(', ');
        const heading = make('strong', {}, OWN.sameHardware(names));
        return [own, make('span', { className: 'advice' }, heading, `. ${OWN.sameHardwareAdvice}`)];
      },
      columns: [
        { title: OWN.from, className: 'address', cell: ({ address }) => host(address) },
        { title: OWN.hardware, cell: ({ hw_id }) => bdi(hw_id) },
        { title: OWN.since, cell: ({ enrolled_at }) => moment(enrolled_at) },
      ],
      actions: WAITING_ACTIONS,
      onAct: (action, chosen) => this.#act(action, chosen),
    });
  }

  #knownTable() {
    return new ChoosingTable({
      name: OWN.known,
      empty: OWN.noMatch,
      details: ({ machine, used_twice }) => [
        make('small', {}, make('bdi', {}, tidy(machine))),
        ...(used_twice ? [make('span', { className: 'advice' }, OWN.usedTwiceAdvice)] : []),
      ],
      columns: [
        { title: OWN.state, cell: stateCell },
        { title: OWN.group, cell: ({ group }) => bdi(this.#groupName(group)) },
        { title: OWN.from, className: 'address', cell: ({ address }) => host(address) },
        { title: OWN.seen, cell: ({ last_seen }) => moment(last_seen) },
      ],
      actions: KNOWN_ACTIONS,
      onAct: (action, chosen) => this.#act(action, chosen),
    });
  }
}
