// The page of the groups of machines; an address with a group's number shows the rights in that group.
import { make } from '../../base/dom.js';
import { inSentence, tidy } from '../../base/names.js';
import { patch, post, remove } from '../../link/api.js';
import { ask } from '../parts/context.js';
import { groups, people, teams } from '../parts/data.js';
import { bdi, button, section } from '../parts/elements.js';
import { Table } from '../parts/table.js';
import { texts } from '../texts/texts.js';
import { RightsTable } from './rights_table.js';

/** @typedef {import('../parts/data.js').Group} Group */

const OWN = texts.groups;
const NAME_LENGTH = 64;

export class GroupsPage {
  element = make('div', {});
  #context;
  #table;
  #list;

  constructor(/** @type {import('../parts/context.js').Context} */ context) {
    this.#context = context;
    this.#table = new Table({
      name: OWN.list,
      empty: OWN.none,
      keyOf: (/** @type {Group} */ { id }) => String(id),
      columns: [
        { title: texts.name, heads: true, cell: ({ name }) => bdi(name) },
        { title: OWN.machines, cell: ({ machines }) => OWN.machineCount(machines) },
        { title: OWN.before, cell: questionsOf },
        { title: texts.actions, cell: (group) => this.#actions(group) },
      ],
    });
    const tools = make(
      'div',
      { className: 'tools' },
      button(OWN.add, () => this.#act(addGroup()), 'primary'),
    );
    const intro = make('p', { className: 'muted' }, OWN.intro);
    this.#list = section(OWN.list, intro, tools, this.#table.element);
  }

  /** @param {string} rest the number of the group whose rights are shown; '' for the list */
  async load(rest) {
    if (rest) return this.#showRights(rest);
    this.element.replaceChildren(this.#list);
    this.#table.update(await groups());
  }

  async #showRights(/** @type {string} */ id) {
    const [list, everybody, all] = await Promise.all([groups(), people(), teams()]);
    const group = list.find((one) => String(one.id) === id);
    const back = make('p', {}, make('a', { href: '#admin/groups' }, `‹ ${OWN.allGroups}`));
    if (!group) {
      this.element.replaceChildren(back, make('p', {}, OWN.gone));
      return;
    }
    const table = new RightsTable(group, everybody, all, (error) => this.#context.fail(error));
    const intro = make('p', { className: 'muted' }, OWN.rightsIntro);
    const part = section(OWN.rightsTitle(inSentence(group.name)), intro, table.element);
    this.element.replaceChildren(back, part);
  }

  /** Loads the list again after an action, and shows what it says. @param {Promise<string | null>} action */
  async #act(action) {
    try {
      const text = await action;
      await this.load('');
      if (text) this.#context.notify(text);
    } catch (error) {
      this.#context.fail(error);
    }
  }

  #actions(/** @type {Group} */ group) {
    const rights = button(OWN.editRights, () => {
      location.hash = `#admin/groups/${group.id}`;
    });
    const all = [
      rights,
      button(texts.edit, () => this.#act(editGroup(group))),
      ...(group.id === 1 ? [] : [button(texts.remove, () => this.#act(removeGroup(group)))]),
    ];
    for (const one of all) one.ariaLabel = `${one.textContent} ${tidy(group.name)}`;
    return make('div', { className: 'acts' }, ...all);
  }
}

/** What a group asks before a session. */
function questionsOf(/** @type {Group} */ { step_up, ask_reason, four_eyes }) {
  const questions = [
    ...(step_up ? [OWN.stepUpShort] : []),
    ...(ask_reason ? [OWN.askReasonShort] : []),
    ...(four_eyes ? [OWN.fourEyesShort] : []),
  ];
  return questions.join(', ') || make('span', { className: 'muted' }, OWN.nothing);
}

/** @param {Partial<Group>} group @returns {import('../../base/ui/fields.js').FieldOptions[]} */
function fieldsOf({ name = '', step_up = false, ask_reason = false, four_eyes = false }) {
  return [
    {
      name: 'name',
      label: texts.name,
      value: name,
      more: { required: true, maxLength: NAME_LENGTH, autocomplete: 'off' },
    },
    { name: 'step_up', label: `${OWN.before}: ${OWN.stepUp}`, kind: 'tick', value: step_up },
    { name: 'ask_reason', label: `${OWN.before}: ${OWN.askReason}`, kind: 'tick', value: ask_reason },
    { name: 'four_eyes', label: OWN.fourEyes, kind: 'tick', value: four_eyes },
  ];
}

/** @param {import('../../base/ui/fields.js').Values} values */
function groupIn({ name, step_up, ask_reason, four_eyes }) {
  return {
    name: String(name).trim(),
    step_up: step_up === true,
    ask_reason: ask_reason === true,
    four_eyes: four_eyes === true,
  };
}

function addGroup() {
  return ask({
    title: OWN.addTitle,
    fields: fieldsOf({}),
    submit: OWN.addNow,
    problems: { 'name-taken': texts.nameInUse },
    act: async (values) => {
      await post('/api/groups', groupIn(values));
      return texts.saved;
    },
  });
}

function editGroup(/** @type {Group} */ group) {
  return ask({
    title: OWN.editTitle(inSentence(group.name)),
    fields: fieldsOf(group),
    submit: texts.save,
    problems: { 'name-taken': texts.nameInUse },
    act: async (values) => {
      await patch(`/api/groups/${group.id}`, groupIn(values));
      return texts.saved;
    },
  });
}

function removeGroup(/** @type {Group} */ { id, name }) {
  return ask({
    title: OWN.removeTitle(inSentence(name)),
    text: OWN.removeText,
    submit: texts.removeNow,
    danger: true,
    act: async () => {
      await remove(`/api/groups/${id}`);
      return OWN.removed(inSentence(name));
    },
  });
}
