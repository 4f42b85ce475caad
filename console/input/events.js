// Encodes input events as bytes. A payload is one batch: a byte with the number of events, then the events
// without gaps, with little-endian numbers. The machine injects a batch without interruption.

export const MAX_EVENTS = 255;
export const POINTER_MAX = 32767;
export const WHEEL_NOTCH = 120;
export const Button = Object.freeze({ left: 1, right: 2, middle: 3 });

/** Values of a key event's last byte. */
const KeyKind = Object.freeze({ plain: 0, extended: 1, unicode: 2 });

const int16 = (/** @type {number} */ n) => [n & 0xff, (n >> 8) & 0xff];

/** @typedef {number[]} InputEvent the bytes of one event */

/** @returns {InputEvent} a move; x and y are in 0..POINTER_MAX from edge to edge of the picture */
export const move = (/** @type {number} */ x, /** @type {number} */ y) => [1, ...int16(x), ...int16(y)];

/** @returns {InputEvent} a press or release at the pointer's position, so a move has to be sent first */
export const button = (/** @type {number} */ which, /** @type {boolean} */ pressed) => [
  2,
  which,
  pressed ? 1 : 0,
];

/** @returns {InputEvent} a turn of the wheel; delta is in 120ths of a notch, positive away from the user */
export const wheel = (/** @type {number} */ delta) => [3, ...int16(delta)];

/**
 * @param {{vk: number, scan: number, extended?: boolean}} key
 * @param {boolean} down
 * @returns {InputEvent}
 */
export const key = ({ vk, scan, extended }, down) => [
  4,
  down ? 1 : 0,
  ...int16(vk),
  ...int16(scan),
  extended ? KeyKind.extended : KeyKind.plain,
];

/** Whether the event releases a button or a key. A character that was typed is not a key that stays down. */
export function isRelease(/** @type {InputEvent} */ event) {
  if (event[0] === 2) return event[2] === 0;
  return event[0] === 4 && event[1] === 0 && event[6] !== KeyKind.unicode;
}

/**
 * Key events that type a text: down and up for each UTF-16 unit. A character outside the basic multilingual
 * plane is sent as its two surrogates.
 * @param {string} text
 * @returns {InputEvent[]}
 */
export function unicode(text) {
  const events = [];
  for (let i = 0; i < text.length; i++) {
    const unit = int16(text.charCodeAt(i));
    events.push([4, 1, 0, 0, ...unit, KeyKind.unicode], [4, 0, 0, 0, ...unit, KeyKind.unicode]);
  }
  return events;
}

/**
 * @param {InputEvent[]} events any number
 * @returns {Uint8Array[]} payloads of at most MAX_EVENTS events each
 */
export function batches(events) {
  const payloads = [];
  for (let start = 0; start < events.length; start += MAX_EVENTS) {
    const part = events.slice(start, start + MAX_EVENTS);
    payloads.push(Uint8Array.from([part.length, ...part.flat()]));
  }
  return payloads;
}
