// What an administrator can do with machines: which states each action is for, and the question before it.
import { inSentence, nameOf } from '../../base/names.js';
import { post } from '../../link/api.js';
import { ask } from '../parts/context.js';
import { choicesOf } from '../parts/data.js';
import { texts } from '../texts/texts.js';

/** @typedef {import('../parts/data.js').Machine} Machine */
/** @typedef {import('../parts/data.js').Group} Group */
/** @typedef {import('../../base/ui/fields.js').FieldOptions} FieldOptions */
/** @typedef {keyof typeof OWN.done} ActionName */
/**
 * fits: whether the action makes sense for a machine. question: the title and the text of the question; none for an
 * action that harms nothing.
 * @typedef {object} Action
 * @property {ActionName} name
 * @property {string} label
 * @property {(machine: Machine) => boolean} fits
 * @property {{title: (what: string) => string, text: string, danger?: boolean}} [question]
 * @property {(machines: Machine[], known: {groups: Group[], machines: Machine[]}) => FieldOptions[]} [fields]
 */

const OWN = texts.machines;
const REASON_LENGTH = 500;

const isApproved = (/** @type {Machine} */ { state }) => state === 'approved';
const isWaiting = (/** @type {Machine} */ { state }) => state === 'waiting';

/** @type {NonNullable<Action['fields']>} */
const groupField = ([first], { groups }) => [
  {
    name: 'group',
    label: OWN.group,
    kind: 'select',
    value: String(first.group ?? 1),
    choices: choicesOf(groups),
  },
];

/** @type {NonNullable<Action['fields']>} */
const reasonField = () => [
  {
    name: 'reason',
    label: OWN.reason,
    more: { required: true, maxLength: REASON_LENGTH, autocomplete: 'off' },
  },
];

/** Whether one machine takes an old row over is asked only for a machine whose hardware is known. */
const approvalFields = (
  /** @type {Machine[]} */ chosen,
  /** @type {{groups: Group[], machines: Machine[]}} */ known,
) => {
  const fields = groupField(chosen, known);
  const [{ same_hardware: same = [] }] = chosen;
  if (chosen.length > 1 || !same.length) return fields;
  const old = known.machines.filter(({ id }) => same.includes(id));
  const choices = [
    { value: '', label: OWN.replacesNone },
    ...old.map((one) => ({ value: one.id, label: nameOf(one) })),
  ];
  fields.push({ name: 'replaces', label: OWN.replaces, kind: 'select', choices, hint: OWN.replacesHint });
  return fields;
};

/** @type {Action[]} for waiting machines */
export const WAITING_ACTIONS = [
  {
    name: 'approve',
    label: OWN.approve,
    fits: isWaiting,
    question: { title: OWN.approveTitle, text: '' },
    fields: approvalFields,
  },
  {
    name: 'refuse',
    label: OWN.refuse,
    fits: isWaiting,
    question: { title: OWN.refuseTitle, text: OWN.refuseText, danger: true },
  },
];

/** @type {Action[]} for machines that were approved once */
export const KNOWN_ACTIONS = [
  {
    name: 'move',
    label: OWN.move,
    fits: () => true,
    question: { title: OWN.moveTitle, text: OWN.moveText },
    fields: groupField,
  },
  {
    name: 'disconnect',
    label: OWN.disconnect,
    fits: ({ connected }) => connected,
    question: { title: OWN.disconnectTitle, text: OWN.disconnectText, danger: true },
  },
  {
    name: 'quarantine',
    label: OWN.quarantine,
    fits: isApproved,
    question: { title: OWN.quarantineTitle, text: OWN.quarantineText, danger: true },
    fields: reasonField,
  },
  {
    name: 'release',
    label: OWN.release,
    fits: ({ state, used_twice }) => state === 'quarantined' || used_twice,
  },
  {
    name: 'block',
    label: OWN.block,
    fits: ({ state }) => state !== 'blocked',
    question: { title: OWN.blockTitle, text: OWN.blockText, danger: true },
    fields: reasonField,
  },
  { name: 'unblock', label: OWN.unblock, fits: ({ state }) => state === 'blocked' },
  {
    name: 'remove',
    label: OWN.remove,
    fits: () => true,
    question: { title: OWN.removeTitle, text: OWN.removeText, danger: true },
  },
];

/** How a sentence names the machines. @param {Machine[]} machines */
function named(machines) {
  return machines.length === 1 ? inSentence(nameOf(machines[0])) : OWN.count(machines.length);
}

/**
 * Asks what the action needs to know and carries it out.
 * @param {Action} action
 * @param {Machine[]} chosen one or several
 * @param {{groups: Group[], machines: Machine[]}} known
 * @returns {Promise<string | null>} what was done; null after cancelling
 */
export function carryOut({ name, label, question, fields }, chosen, known) {
  const ids = chosen.map(({ id }) => id);
  const act = async (/** @type {import('../../base/ui/fields.js').Values} */ { group, reason, replaces }) => {
    await post(`/api/machines/${name}`, {
      ids,
      ...(group === undefined ? {} : { group: Number(group) }),
      ...(reason === undefined ? {} : { reason: String(reason).trim() }),
      ...(replaces ? { replaces } : {}),
    });
    return OWN.done[name](named(chosen));
  };
  if (!question) return act({});
  return ask({
    title: question.title(named(chosen)),
    text: question.text,
    fields: fields?.(chosen, known) ?? [],
    submit: label.replace(' …', ''),
    danger: question.danger,
    problems: name === 'approve' ? { 409: OWN.replacesConnected } : {},
    act,
  });
}
