// Compares the modifiers that are down on the machine with those that a key or pointer event reports. A
// browser does not always report the release of a modifier: Chromium reports none for Shift after a dead key.

const MODIFIER = /^(Shift|Control|Alt|Meta|OS)(Left|Right)$/;
const FLAGS = /** @type {const} */ ({
  Shift: 'shiftKey',
  Control: 'ctrlKey',
  Alt: 'altKey',
  Meta: 'metaKey',
  OS: 'metaKey',
});

/** @typedef {{shiftKey?: boolean, ctrlKey: boolean, altKey: boolean, metaKey: boolean,
 *   getModifierState?: (name: string) => boolean}} ModifierFlags */

export const isModifier = (/** @type {string} */ code) => MODIFIER.test(code);

/**
 * Selects the modifiers that are up according to the event. AltGr counts as Alt and Ctrl: Windows reports it
 * as both, and browsers clear one or both flags while they apply AltGr to a character.
 * @param {ModifierFlags & {code?: string}} event
 * @param {Iterable<string>} down the codes of the keys that are down on the machine
 * @param {boolean} altGraph whether the AltGr key is known to be down
 * @returns {string[]} codes; without the key of the event itself, whose flag browsers set before or after
 */
export function modifiersUp(event, down, altGraph) {
  const usesAltGraph = altGraph || !!event.getModifierState?.('AltGraph');
  return [...down].filter((code) => {
    const kind = /** @type {keyof typeof FLAGS | undefined} */ (MODIFIER.exec(code)?.[1]);
    if (!kind || kindOf(event.code) === kind) return false;
    if (usesAltGraph && (kind === 'Alt' || kind === 'Control')) return false;
    return event[FLAGS[kind]] === false;
  });
}

const kindOf = (/** @type {string | undefined} */ code) => MODIFIER.exec(code ?? '')?.[1];
