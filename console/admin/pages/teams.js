// The page of the teams.
import { make } from '../../base/dom.js';
import { inSentence, tidy } from '../../base/names.js';
import { ticked } from '../../base/ui/fields.js';
import { patch, post, remove } from '../../link/api.js';
import { ask } from '../parts/context.js';
import { choicesOf, people, teams } from '../parts/data.js';
import { bdi, button, section } from '../parts/elements.js';
import { Table } from '../parts/table.js';
import { texts } from '../texts/texts.js';

/** @typedef {import('../parts/data.js').Person} Person */
/** @typedef {import('../parts/data.js').Team} Team */

const OWN = texts.teams;
const NAME_LENGTH = 64;

export class TeamsPage {
  element = make('div', {});
  #context;
  /** @type {Person[]} */
  #people = [];
  #table;

  constructor(/** @type {import('../parts/context.js').Context} */ context) {
    this.#context = context;
    this.#table = new Table({
      name: OWN.list,
      empty: OWN.none,
      keyOf: (/** @type {Team} */ { id }) => String(id),
      columns: [
        { title: texts.name, heads: true, cell: ({ name }) => bdi(name) },
        { title: OWN.members, cell: ({ members }) => this.#names(members) },
        { title: texts.actions, cell: (team) => this.#actions(team) },
      ],
    });
    const add = button(OWN.add, () => this.#act(this.#add()), 'primary');
    const tools = make('div', { className: 'tools' }, add);
    this.element.append(
      section(OWN.list, make('p', { className: 'muted' }, OWN.intro), tools, this.#table.element),
    );
  }

  async load() {
    const [list, all] = await Promise.all([teams(), people()]);
    this.#people = all;
    this.#table.update(list, () => all.map(({ id, name }) => [id, name]));
  }

  /** Loads the page again after an action, and shows what it says. @param {Promise<string | null>} action */
  async #act(action) {
    try {
      const text = await action;
      await this.load();
      if (text) this.#context.notify(text);
    } catch (error) {
      this.#context.fail(error);
    }
  }

  #names(/** @type {number[]} */ members) {
    const names = this.#people.filter(({ id }) => members.includes(id)).map(({ name }) => tidy(name));
    return names.length ? bdi(names.join(', ')) : make('span', { className: 'muted' }, OWN.noMembers);
  }

  #actions(/** @type {Team} */ team) {
    const all = [
      button(texts.edit, () => this.#act(this.#edit(team))),
      button(texts.remove, () => this.#act(removeTeam(team))),
    ];
    for (const one of all) one.ariaLabel = `${one.textContent} ${tidy(team.name)}`;
    return make('div', { className: 'acts' }, ...all);
  }

  /** @param {Partial<Team>} team @returns {import('../../base/ui/fields.js').FieldOptions[]} */
  #fields({ name = '', members = [] }) {
    const choices = choicesOf(this.#people);
    return [
      {
        name: 'name',
        label: texts.name,
        value: name,
        more: { required: true, maxLength: NAME_LENGTH, autocomplete: 'off' },
      },
      { name: 'members', label: OWN.members, kind: 'checks', value: members.map(String), choices },
    ];
  }

  #add() {
    return ask({
      title: OWN.addTitle,
      fields: this.#fields({}),
      submit: OWN.addNow,
      problems: { 'name-taken': texts.nameInUse },
      act: async (values) => {
        await post('/api/teams', teamIn(values));
        return texts.saved;
      },
    });
  }

  #edit(/** @type {Team} */ team) {
    return ask({
      title: OWN.editTitle(inSentence(team.name)),
      fields: this.#fields(team),
      submit: texts.save,
      problems: { 'name-taken': texts.nameInUse },
      act: async (values) => {
        await patch(`/api/teams/${team.id}`, teamIn(values));
        return texts.saved;
      },
    });
  }
}

/** @param {import('../../base/ui/fields.js').Values} values */
function teamIn({ name, members }) {
  return { name: String(name).trim(), members: ticked(members).map(Number) };
}

function removeTeam(/** @type {Team} */ { id, name }) {
  return ask({
    title: OWN.removeTitle(inSentence(name)),
    text: OWN.removeText,
    submit: texts.removeNow,
    danger: true,
    act: async () => {
      await remove(`/api/teams/${id}`);
      return OWN.removed(inSentence(name));
    },
  });
}
