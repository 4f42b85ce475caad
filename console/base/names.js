// Makes names from a machine safe to show. The page shows names as text, never as markup, but a text can
// still contain characters that reorder or hide the text around it.

const MAX_LENGTH = 200;
// Control characters, line separators, and the marks that change the direction of text.
const UNSAFE = /[\p{Cc}\u061c\u200b\u200e\u200f\u2028-\u202e\u2060-\u206f\ufeff]/gu;

/** The name without unsafe characters, at most MAX_LENGTH characters long; '' when nothing is left. */
export function tidy(/** @type {unknown} */ name) {
  const text = typeof name === 'string' ? name : '';
  return [...text.replace(UNSAFE, '').trim()].slice(0, MAX_LENGTH).join('');
}

/** @param {{id: string, name?: unknown, machine?: unknown}} machine */
export function nameOf(machine) {
  return tidy(machine.name) || tidy(machine.machine) || machine.id;
}

/** The name for use inside a sentence, isolated so that right-to-left text does not reorder the sentence. */
export function inSentence(/** @type {string} */ name) {
  return `\u2068${tidy(name)}\u2069`;
}

/** The name of a file with a visible character in place of each unsafe character. */
export function visible(/** @type {string} */ name) {
  return name.replace(UNSAFE, '\ufffd');
}
