// The page of the enrolment windows: opening enrolment into a group, and closing it.
import { make } from '../../base/dom.js';
import { tidy } from '../../base/names.js';
import { form } from '../../base/ui/form.js';
import { post, remove } from '../../link/api.js';
import { problemOf } from '../../link/problems.js';
import { Refresh } from '../parts/context.js';
import { choicesOf, groups, listAt } from '../parts/data.js';
import { bdi, button, moment, section } from '../parts/elements.js';
import { Table } from '../parts/table.js';
import { texts } from '../texts/texts.js';

/** @typedef {import('../parts/data.js').Group} Group */
/** @typedef {{id: number, group: number, until: number, machines_left: number | null, opened_by: string}} Window */

const OWN = texts.enrolment;
const DEFAULT_MINUTES = 30;
const MOST_MINUTES = 10080;
const MOST_MACHINES = 10000;

export class EnrolmentPage {
  element = make('div', {});
  #context;
  /** @type {Group[]} */
  #groups = [];
  #table;
  #opening = make('div', {});
  #refresh;

  constructor(/** @type {import('../parts/context.js').Context} */ context) {
    this.#context = context;
    this.#refresh = new Refresh(
      (asking) => this.#fetch(asking),
      (error) => context.fail(error),
    );
    this.#table = new Table({
      name: OWN.windows,
      empty: OWN.none,
      keyOf: (/** @type {Window} */ { id }) => String(id),
      columns: [
        { title: OWN.group, heads: true, cell: ({ group }) => bdi(this.#groupName(group)) },
        { title: OWN.until, cell: ({ until }) => (until ? moment(until) : OWN.noLimit) },
        { title: OWN.left, cell: ({ machines_left: left }) => (left === null ? OWN.noLimit : String(left)) },
        { title: OWN.by, cell: ({ opened_by }) => bdi(opened_by) },
        { title: texts.actions, cell: (one) => this.#closeButton(one) },
      ],
    });
    const opening = section(OWN.open, this.#opening);
    opening.classList.add('narrow');
    this.element.append(
      section(OWN.windows, make('p', { className: 'muted' }, OWN.intro), this.#table.element),
      opening,
    );
  }

  async load() {
    await this.#fetch();
    this.#drawForm();
    this.#refresh.start();
  }

  stop() {
    this.#refresh.stop();
  }

  /** @param {import('../../link/api.js').Asking} [asking] */
  async #fetch(asking) {
    const [list, all] = await Promise.all([
      /** @type {Promise<Window[]>} */ (listAt('/api/enrolment', 'windows', asking)),
      groups(asking),
    ]);
    this.#groups = all;
    this.#table.update(list, ({ group }) => this.#groupName(group));
  }

  #groupName(/** @type {number} */ wanted) {
    return tidy(this.#groups.find(({ id }) => id === wanted)?.name);
  }

  #drawForm() {
    const opening = form({
      fields: [
        { name: 'group', label: OWN.group, kind: 'select', choices: choicesOf(this.#groups) },
        {
          name: 'minutes',
          label: OWN.minutes,
          kind: 'number',
          value: DEFAULT_MINUTES,
          more: { min: '1', max: String(MOST_MINUTES), required: true },
        },
        {
          name: 'machines',
          label: OWN.machines,
          kind: 'number',
          hint: OWN.machinesHint,
          more: { min: '1', max: String(MOST_MACHINES) },
        },
      ],
      submit: OWN.openNow,
      act: async ({ group, minutes, machines }) => {
        const limit = machines ? { machines: Number(machines) } : {};
        await post('/api/enrolment', { group: Number(group), minutes: Number(minutes), ...limit });
        await this.#fetch();
        this.#context.notify(OWN.opened);
      },
      explain: problemOf,
    });
    this.#opening.replaceChildren(opening.element);
  }

  #closeButton(/** @type {Window} */ { id, group }) {
    const close = button(OWN.close, async () => {
      try {
        await remove(`/api/enrolment/${id}`);
        await this.#fetch();
        this.#context.notify(OWN.closed);
      } catch (error) {
        this.#context.fail(error);
      }
    });
    close.ariaLabel = `${OWN.close} ${this.#groupName(group)}`;
    return make('div', { className: 'acts' }, close);
  }
}
