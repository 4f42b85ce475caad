// Events that carry a value in their `detail`, with the value's type at the listener.

/**
 * @param {EventTarget} target
 * @param {string} name
 * @param {unknown} [detail]
 */
export function emit(target, name, detail) {
  target.dispatchEvent(new CustomEvent(name, { detail }));
}

/**
 * @template Detail
 * @param {EventTarget} target
 * @param {string} name
 * @param {(detail: Detail) => void} listener
 */
export function onDetail(target, name, listener) {
  target.addEventListener(name, (event) => listener(/** @type {CustomEvent<Detail>} */ (event).detail));
}
