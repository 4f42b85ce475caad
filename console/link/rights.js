// The rights that a person can have in a group of machines.

/** @typedef {'see' | 'control' | 'clipboard' | 'files-up' | 'files-down' | 'restart' | 'forget'} Right */

/** All rights. 'see' is needed for each of the others; 'restart' includes Ctrl+Alt+Del. @type {readonly Right[]} */
export const RIGHTS = ['see', 'control', 'clipboard', 'files-up', 'files-down', 'restart', 'forget'];

/**
 * The rights that a message of the relay names. A message of a relay without rights names none, and then
 * everything is offered: the relay decides in any case what it passes on.
 * @param {unknown} names
 * @returns {Set<Right>}
 */
export function rightsIn(names) {
  return new Set(Array.isArray(names) ? RIGHTS.filter((right) => names.includes(right)) : RIGHTS);
}

/**
 * The rights in the relay's message about an accepted session: those that have an effect at present, and all.
 * @param {Record<string, unknown>} message
 * @returns {[Set<Right>, Set<Right>]}
 */
export function rightsOf({ rights, granted }) {
  return [rightsIn(rights), rightsIn(granted ?? rights)];
}
