// The page of the people and of open invitations.
import { make } from '../../base/dom.js';
import { inSentence, tidy } from '../../base/names.js';
import { post, remove } from '../../link/api.js';
import { listAt, people, teams } from '../parts/data.js';
import { bdi, button, moment, section, tag } from '../parts/elements.js';
import { Table } from '../parts/table.js';
import { texts } from '../texts/texts.js';
import {
  addPerson,
  editPerson,
  invitePerson,
  newPassword,
  removePerson,
  resetCodes,
} from './person_forms.js';

/** @typedef {import('../parts/data.js').Person} Person */
/** @typedef {import('../parts/data.js').Team} Team */
/** @typedef {import('../../account/me.js').Role} Role */
/** @typedef {{id: number, name: string, role: Role, expires_at: number, made_by: string}} Invitation */

const OWN = texts.people;

export class PeoplePage {
  element = make('div', {});
  #context;
  /** @type {Team[]} */
  #teams = [];
  #people;
  #invitations;

  constructor(/** @type {import('../parts/context.js').Context} */ context) {
    this.#context = context;
    this.#people = this.#peopleTable();
    this.#invitations = this.#invitationTable();
    const tools = make(
      'div',
      { className: 'tools' },
      button(OWN.invite, () => this.#act(invitePerson(this.#teams)), 'primary'),
      button(OWN.add, () => this.#act(addPerson(this.#teams))),
    );
    this.element.append(
      section(OWN.list, tools, this.#people.element),
      section(OWN.invitations, this.#invitations.element),
    );
  }

  async load() {
    const [list, all, open] = await Promise.all([
      people(),
      teams(),
      /** @type {Promise<Invitation[]>} */ (listAt('/api/invitations', 'invitations')),
    ]);
    this.#teams = all;
    this.#people.update(list, () => all);
    this.#invitations.update(open);
  }

  /** Loads the page again after an action, and shows what it says. @param {Promise<unknown>} action */
  async #act(action) {
    try {
      const text = await action;
      await this.load();
      if (typeof text === 'string') this.#context.notify(text);
    } catch (error) {
      this.#context.fail(error);
    }
  }

  #peopleTable() {
    return new Table({
      name: OWN.list,
      empty: OWN.none,
      keyOf: (/** @type {Person} */ { id }) => String(id),
      columns: [
        { title: texts.name, heads: true, cell: ({ name }) => bdi(name) },
        { title: texts.role, className: 'short', cell: ({ role }) => texts.roles[role] ?? '' },
        { title: OWN.teams, cell: ({ teams: own }) => this.#teamNames(own) },
        { title: OWN.codes, cell: ({ totp }) => (totp ? OWN.codesOn : OWN.codesOff) },
        { title: OWN.logins, cell: ({ logins }) => String(logins) },
        { title: OWN.state, cell: stateOf },
        { title: texts.actions, cell: (person) => this.#actions(person) },
      ],
    });
  }

  #teamNames(/** @type {number[]} */ own) {
    const names = this.#teams.filter(({ id }) => own.includes(id)).map(({ name }) => tidy(name));
    return names.length ? bdi(names.join(', ')) : make('span', { className: 'muted' }, OWN.noTeams);
  }

  #actions(/** @type {Person} */ person) {
    const { id, name } = person;
    const endLogins = () =>
      this.#act(post(`/api/people/${id}/end-logins`).then(() => OWN.loginsEnded(inSentence(name))));
    const all = [
      button(texts.edit, () => this.#act(editPerson(person, this.#teams))),
      button(OWN.newPassword, () => this.#act(newPassword(person))),
      ...(person.totp ? [button(OWN.resetCodes, () => this.#act(resetCodes(person)))] : []),
      ...(person.logins ? [button(OWN.endLogins, endLogins)] : []),
      button(texts.remove, () => this.#act(removePerson(person))),
    ];
    for (const one of all) one.ariaLabel = `${one.textContent} ${tidy(name)}`;
    return make('div', { className: 'acts' }, ...all);
  }

  #invitationTable() {
    const withdraw = (/** @type {Invitation} */ { id }) =>
      this.#act(remove(`/api/invitations/${id}`).then(() => OWN.withdrawn));
    return new Table({
      name: OWN.invitations,
      empty: OWN.noInvitations,
      keyOf: (/** @type {Invitation} */ { id }) => String(id),
      columns: [
        { title: texts.name, heads: true, cell: ({ name }) => bdi(name) },
        { title: texts.role, className: 'short', cell: ({ role }) => texts.roles[role] ?? '' },
        { title: OWN.validUntil, cell: ({ expires_at }) => moment(expires_at) },
        { title: OWN.madeBy, cell: ({ made_by }) => bdi(made_by) },
        {
          title: texts.actions,
          cell: (one) =>
            make(
              'div',
              { className: 'acts' },
              button(OWN.withdraw, () => withdraw(one)),
            ),
        },
      ],
    });
  }
}

function stateOf(/** @type {Person} */ { disabled, must_change }) {
  if (disabled) return tag(OWN.states.disabled, 'bad');
  return must_change ? tag(OWN.states.mustChange, 'warn') : tag(OWN.states.active, 'good');
}
