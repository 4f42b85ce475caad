// Emits and receives events that carry a value in `detail`; a listener declares the type of the value.

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
