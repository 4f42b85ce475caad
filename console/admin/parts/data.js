// What the relay answers about people, groups and machines, as records.
import { get } from '../../link/api.js';

/** @typedef {import('../../account/me.js').Role} Role */
/** @typedef {import('../../link/api.js').Asking} Asking */
/** @typedef {import('../../link/rights.js').Right} Right */
/** @typedef {{id: number, name: string, role: Role, disabled: boolean, totp: boolean, must_change: boolean,
 *   teams: number[], logins: number}} Person */
/** @typedef {{id: number, name: string, members: number[]}} Team */
/** What a person or a team may do in a group. @typedef {{person?: number, team?: number, rights: Right[]}} Grant */
/** @typedef {{id: number, name: string, step_up: boolean, ask_reason: boolean, four_eyes: boolean, machines: number,
 *   rights: Grant[]}} Group */
/** @typedef {'waiting' | 'approved' | 'blocked' | 'quarantined'} MachineState */
/** Times are in seconds since 1970. @typedef {{id: string, name: string, machine: string, state: MachineState,
 *   connected: boolean, representative: string | null, reason: string, state_since: number, state_by: string,
 *   group: number | null, address: string, hw_id: string, enrolled_at: number, last_seen: number,
 *   same_hardware: string[], used_twice: boolean, refused: boolean}} Machine */

/**
 * The list of this name in the relay's answer.
 * @template Kind
 * @param {string} path
 * @param {string} name
 * @param {Asking} [asking]
 * @returns {Promise<Kind[]>}
 */
export async function listAt(path, name, asking) {
  const answer = await get(path, asking);
  const list = answer[name];
  return Array.isArray(list) ? /** @type {Kind[]} */ (list) : [];
}

/** @returns {Promise<Person[]>} */
export const people = () => listAt('/api/people', 'people');
/** @returns {Promise<Team[]>} */
export const teams = () => listAt('/api/teams', 'teams');
/** @param {Asking} [asking] @returns {Promise<Group[]>} */
export const groups = (asking) => listAt('/api/groups', 'groups', asking);
/** @param {Asking} [asking] @returns {Promise<Machine[]>} */
export const machines = (asking) => listAt('/api/machines', 'machines', asking);

/** The named things as choices of a field. @param {{id: number, name: string}[]} list */
export function choicesOf(list) {
  return list.map(({ id, name }) => ({ value: String(id), label: name }));
}
