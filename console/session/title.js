// The title of the page during a session: names the machine, and says if the session is not open.
import { setTitle } from '../base/dom.js';
import { tidy } from '../base/names.js';
import { texts } from '../base/texts.js';

/**
 * @param {'none' | 'accepted' | keyof typeof texts.sessionStates} state of the session
 * @param {string} name the name of the machine
 */
export function showTitle(state, name) {
  if (state === 'none') return;
  const stateText = state === 'accepted' ? '' : `${texts.sessionStates[state]}: `;
  setTitle(`${stateText}${tidy(name)}`);
}
