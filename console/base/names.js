// Names that machines give themselves, made fit to be shown. They are only ever text, but text can still reorder or
// hide what stands around it.

const LONGEST = 200;
// Control characters, line separators, and the marks that steer the direction of text.
const STEERING = /[\p{Cc}\u061c\u200b\u200e\u200f\u2028-\u202e\u2060-\u206f\ufeff]/gu;

/** The name without what steers text, '' when nothing is left of it. */
export function tidy(/** @type {unknown} */ name) {
  const text = typeof name === 'string' ? name : '';
  return [...text.replace(STEERING, '').trim()].slice(0, LONGEST).join('');
}

/** @param {{id: string, name?: unknown, machine?: unknown}} machine */
export function nameOf(machine) {
  return tidy(machine.name) || tidy(machine.machine) || machine.id;
}

/** For the middle of a sentence: text that runs the other way stays within itself. */
export function inSentence(/** @type {string} */ name) {
  return `\u2068${tidy(name)}\u2069`;
}

/** The name of a file: nothing is taken away, but what would steer the text around it becomes a visible sign. */
export function visible(/** @type {string} */ name) {
  return name.replace(STEERING, '\ufffd');
}
