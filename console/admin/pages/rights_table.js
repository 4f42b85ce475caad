// The table of the rights in a group: a row for each person or team, a tick for each right. Each change is sent at
// once.
import { make } from '../../base/dom.js';
import { tidy } from '../../base/names.js';
import { put } from '../../link/api.js';
import { RIGHTS } from '../../link/rights.js';
import { bdi, button } from '../parts/elements.js';
import { Table } from '../parts/table.js';
import { texts } from '../texts/texts.js';

/** @typedef {import('../parts/data.js').Group} Group */
/** @typedef {import('../parts/data.js').Grant} Grant */
/** @typedef {import('../../link/rights.js').Right} Right */

const OWN = texts.groups;

/** A text that names the person or team of a row. */
function keyOf(/** @type {Grant} */ { person, team }) {
  return team === undefined ? `person-${person}` : `team-${team}`;
}

export class RightsTable {
  element = make('div', {});
  #group;
  #people;
  #teams;
  #onError;
  /** @type {Grant[]} */
  #grants;
  #table;
  #adding = make('select', {});
  /** The changes are sent one after the other, so that the last one counts. */
  #sending = Promise.resolve();

  /**
   * @param {Group} group
   * @param {import('../parts/data.js').Person[]} people
   * @param {import('../parts/data.js').Team[]} teams
   * @param {(error: unknown) => void} onError
   */
  constructor(group, people, teams, onError) {
    this.#group = group;
    this.#people = people;
    this.#teams = teams;
    this.#onError = onError;
    this.#grants = group.rights;
    const columns = RIGHTS.map((right) => ({
      title: texts.rights[right],
      className: 'tick-cell',
      cell: (/** @type {Grant} */ grant) => this.#tick(grant, right),
    }));
    this.#table = new Table({
      name: OWN.rights,
      empty: OWN.rightsNone,
      keyOf,
      columns: [
        { title: OWN.who, heads: true, cell: (grant) => this.#who(grant) },
        ...columns,
        { title: texts.actions, cell: (grant) => this.#remove(grant) },
      ],
    });
    this.element.append(this.#table.element, this.#tools());
    this.#draw();
  }

  #tools() {
    const add = button(OWN.addRights, () => this.#add());
    this.#adding.id = 'rights-adding';
    const label = make('label', { htmlFor: this.#adding.id }, OWN.addWho);
    const choice = make('div', { className: 'field field-place' }, label, this.#adding);
    return make('div', { className: 'tools adding' }, choice, add);
  }

  #draw() {
    this.#table.update(this.#grants);
    const taken = new Set(this.#grants.map(keyOf));
    // Administrators have all rights, and auditors none.
    const representatives = this.#people.filter(({ role }) => role === 'representative');
    const options = [
      ...this.#teams.map(({ id, name }) => ({ key: keyOf({ team: id, rights: [] }), name, kind: OWN.team })),
      ...representatives.map(({ id, name }) => ({
        key: keyOf({ person: id, rights: [] }),
        name,
        kind: OWN.person,
      })),
    ].filter(({ key }) => !taken.has(key));
    const choices = options.map(({ key, name, kind }) =>
      make('option', { value: key }, `${tidy(name)} (${kind})`),
    );
    this.#adding.replaceChildren(make('option', { value: '' }, OWN.chooseWho), ...choices);
  }

  #nameOf(/** @type {Grant} */ { person, team }) {
    const list = team === undefined ? this.#people : this.#teams;
    return tidy(list.find(({ id }) => id === (team ?? person))?.name) || String(team ?? person);
  }

  #who(/** @type {Grant} */ grant) {
    return [bdi(this.#nameOf(grant)), make('small', {}, grant.team === undefined ? OWN.person : OWN.team)];
  }

  /** @param {Grant} grant @param {Right} right */
  #tick(grant, right) {
    const box = make('input', { type: 'checkbox', checked: grant.rights.includes(right) });
    box.ariaLabel = OWN.rightOf(texts.rights[right], this.#nameOf(grant));
    box.addEventListener('change', () => this.#change(grant, changed(grant.rights, right, box.checked)));
    return box;
  }

  #remove(/** @type {Grant} */ grant) {
    const one = button(OWN.removeAll, () => {
      this.#send(this.#grants.filter((other) => keyOf(other) !== keyOf(grant)));
      this.#adding.focus();
    });
    one.ariaLabel = `${OWN.removeAll} ${this.#nameOf(grant)}`;
    return make('div', { className: 'acts' }, one);
  }

  #add() {
    const [kind, id] = this.#adding.value.split('-');
    if (!id) {
      this.#adding.focus();
      return;
    }
    /** @type {Grant} */
    const grant = { [kind]: Number(id), rights: ['see'] };
    this.#send([...this.#grants, grant]);
  }

  /** @param {Grant} grant @param {Right[]} rights */
  #change(grant, rights) {
    this.#send(this.#grants.map((other) => (keyOf(other) === keyOf(grant) ? { ...other, rights } : other)));
  }

  /** Shows the rights and sends them. After a refusal, the rights are shown as they were. */
  #send(/** @type {Grant[]} */ grants) {
    const before = this.#grants;
    this.#grants = grants;
    this.#draw();
    const rights = grants.filter((grant) => grant.rights.length > 0);
    this.#sending = this.#sending.then(async () => {
      try {
        await put(`/api/groups/${this.#group.id}/rights`, { rights });
      } catch (error) {
        this.#grants = before;
        this.#draw();
        this.#onError(error);
      }
    });
  }
}

/**
 * The rights after a tick was changed. 'see' is needed for each of the others.
 * @param {Right[]} rights
 * @param {Right} right
 * @param {boolean} on
 * @returns {Right[]}
 */
export function changed(rights, right, on) {
  if (!on) return right === 'see' ? [] : rights.filter((one) => one !== right);
  const wanted = new Set([...rights, right, 'see']);
  return RIGHTS.filter((one) => wanted.has(one));
}
