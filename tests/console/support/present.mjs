/**
 * Returns the value; throws when it is null or undefined.
 * @template T
 * @param {T} value
 * @returns {NonNullable<T>}
 */
export function present(value) {
  if (value === null || value === undefined) throw new Error('there is no value');
  return value;
}
