// The questions about one person: adding, inviting, editing, and what an administrator can do with the log-in.
import { ROLES } from '../../account/me.js';
import { make } from '../../base/dom.js';
import { inSentence } from '../../base/names.js';
import { show } from '../../base/ui/ask.js';
import { ticked } from '../../base/ui/fields.js';
import { secretField } from '../../base/ui/secret.js';
import { patch, post, remove } from '../../link/api.js';
import { ask } from '../parts/context.js';
import { choicesOf } from '../parts/data.js';
import { texts } from '../texts/texts.js';

/** @typedef {import('../parts/data.js').Person} Person */
/** @typedef {import('../parts/data.js').Team} Team */
/** @typedef {import('../../base/ui/fields.js').FieldOptions} FieldOptions */

const OWN = texts.people;
const NAME_LENGTH = 64;
const DEFAULT_HOURS = 72;

/** @param {Team[]} teams @param {Partial<Person>} [person] @returns {FieldOptions[]} */
function fieldsOf(teams, { name = '', role = 'representative', teams: own = [] } = {}) {
  const roles = ROLES.map((one) => ({ value: one, label: texts.roles[one] }));
  /** @type {FieldOptions[]} */
  const fields = [
    {
      name: 'name',
      label: texts.name,
      value: name,
      more: { required: true, maxLength: NAME_LENGTH, autocomplete: 'off' },
    },
    { name: 'role', label: texts.role, kind: 'select', value: role, choices: roles, hint: texts.roleHint },
  ];
  if (teams.length)
    fields.push({
      name: 'teams',
      label: OWN.teams,
      kind: 'checks',
      value: own.map(String),
      choices: choicesOf(teams),
    });
  return fields;
}

/** @param {import('../../base/ui/fields.js').Values} values */
function personIn({ name, role, teams }) {
  return { name: String(name).trim(), role: String(role), teams: ticked(teams).map(Number) };
}

const PROBLEMS = { 'name-taken': texts.nameInUse, 'last-administrator': OWN.lastAdministrator };

/** Shows a password that is valid for one log-in. @param {string} name @param {unknown} password */
function showPassword(name, password) {
  const text = make('p', { className: 'dialog-text' }, OWN.passwordText(inSentence(name)));
  const content = [text, secretField(OWN.password, String(password))];
  return show({ title: OWN.passwordTitle, content, done: texts.done });
}

/** @param {Team[]} teams */
export async function addPerson(teams) {
  const added = await ask({
    title: OWN.addTitle,
    text: OWN.addText,
    fields: fieldsOf(teams),
    submit: OWN.addNow,
    problems: PROBLEMS,
    act: async (values) => {
      const person = personIn(values);
      const { password } = await post('/api/people', person);
      return { name: person.name, password };
    },
  });
  if (added?.password) await showPassword(added.name, added.password);
}

/** @param {Team[]} teams */
export async function invitePerson(teams) {
  const invited = await ask({
    title: OWN.inviteTitle,
    text: OWN.inviteText,
    fields: [
      ...fieldsOf(teams),
      {
        name: 'hours',
        label: OWN.hours,
        kind: 'number',
        value: DEFAULT_HOURS,
        more: { min: '1', max: '720', required: true },
      },
    ],
    submit: OWN.inviteNow,
    problems: PROBLEMS,
    act: async (values) => {
      const person = personIn(values);
      const { token } = await post('/api/invitations', { ...person, hours: Number(values.hours) });
      return { name: person.name, link: `${location.origin}/#invitation=${token}` };
    },
  });
  if (!invited) return;
  const text = make('p', { className: 'dialog-text' }, OWN.linkText(inSentence(invited.name)));
  await show({
    title: OWN.linkTitle,
    content: [text, secretField(OWN.link, invited.link)],
    done: texts.done,
  });
}

/** @param {Person} person @param {Team[]} teams */
export function editPerson(person, teams) {
  return ask({
    title: OWN.editTitle(inSentence(person.name)),
    fields: [
      ...fieldsOf(teams, person),
      { name: 'disabled', label: OWN.disabled, kind: 'tick', value: person.disabled },
    ],
    submit: texts.save,
    problems: PROBLEMS,
    act: async (values) => {
      await patch(`/api/people/${person.id}`, { ...personIn(values), disabled: values.disabled === true });
      return texts.saved;
    },
  });
}

/** @param {Person} person */
export async function newPassword({ id, name }) {
  const made = await ask({
    title: OWN.newPasswordTitle(inSentence(name)),
    text: OWN.newPasswordText,
    submit: OWN.newPasswordNow,
    act: () => post(`/api/people/${id}/password`),
  });
  if (made) await showPassword(name, made.password);
}

/** @param {Person} person */
export function resetCodes({ id, name }) {
  return ask({
    title: OWN.resetTitle(inSentence(name)),
    text: OWN.resetText,
    submit: OWN.resetNow,
    danger: true,
    act: async () => {
      await post(`/api/people/${id}/totp-reset`);
      return OWN.resetDone(inSentence(name));
    },
  });
}

/** @param {Person} person */
export function removePerson({ id, name }) {
  return ask({
    title: OWN.removeTitle(inSentence(name)),
    text: OWN.removeText,
    submit: texts.removeNow,
    danger: true,
    problems: PROBLEMS,
    act: async () => {
      await remove(`/api/people/${id}`);
      return OWN.removed(inSentence(name));
    },
  });
}
