// The relay's reasons for the end of a session and for the refusal of one, and their texts.
import { texts } from '../../base/texts.js';
import { consentTexts } from './texts.js';

/**
 * The reasons for the end of a session that is requested again: the machine is expected to come back, or the relay
 * did not hold the session any longer.
 */
const INTERRUPTIONS = ['agent-gone', 'replaced', 'browser-gone', 'gone'];

export const isInterruption = (/** @type {unknown} */ reason) => INTERRUPTIONS.includes(String(reason));

/** @param {unknown} reason @param {string} machine */
export function endText(reason, machine) {
  return (textIn({ ...texts.ended, ...consentTexts.ended }, reason) ?? texts.ended.other)(machine, '');
}

/**
 * @param {unknown} code
 * @param {string} machine
 * @param {string} who the representative who has a session with the machine
 * @returns {string | undefined} undefined for a code that has no text
 */
export function refusalText(code, machine, who) {
  return textIn({ ...texts.refused, ...consentTexts.refused }, code)?.(machine, who);
}

/**
 * @param {Record<string, (machine: string, who: string) => string>} table
 * @param {unknown} code
 */
function textIn(table, code) {
  return Object.hasOwn(table, String(code)) ? table[String(code)] : undefined;
}

/**
 * Whether others have sessions with the machine, so that the representative can watch with them.
 * @param {import('../../machines/machine_list.js').Machine | undefined} machine
 * @param {{name: string} | null} person the representative
 */
export function isOfOthers(machine, person) {
  return machine?.state === 'session' && machine.representative !== person?.name;
}
