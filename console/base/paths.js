// Paths and file names of the machine, which is a Windows one, put together and taken apart without asking it.

/** Characters that its file system gives another meaning or refuses. */
const FORBIDDEN = /[\u0000-\u001f\u007f<>:"/\\|?*]/g;
const DEVICE = /^(con|prn|aux|nul|conin\$|conout\$|com[0-9¹²³]|lpt[0-9¹²³])(?=\.|$| )/i;
const LONGEST = 255;

export function join(/** @type {string} */ folder, /** @type {string} */ name) {
  return folder.endsWith('\\') ? folder + name : `${folder}\\${name}`;
}

/** The folder above, by the machine's own rule; '' leads to the drives. */
export function parentOf(/** @type {string} */ path) {
  const copy = path.endsWith('\\') ? path.slice(0, -1) : path;
  const last = copy.lastIndexOf('\\');
  return last <= 1 ? '' : copy.slice(0, last);
}

/** The last part, without a separator behind it. */
export function lastPart(/** @type {string} */ path) {
  const copy = path.endsWith('\\') ? path.slice(0, -1) : path;
  return copy.slice(copy.lastIndexOf('\\') + 1) || copy;
}

/**
 * The folders from the top to this one, the drives left out.
 * @param {string} path
 * @param {string} parent as the machine told it for this path
 * @returns {{name: string, path: string}[]}
 */
export function crumbs(path, parent) {
  const found = [];
  for (let [at, above] = [path, parent]; at; [at, above] = [above, parentOf(above)]) {
    found.unshift({ name: lastPart(at), path: at });
    if (above.length >= at.length) break;
  }
  return found;
}

/** A local file's name as the machine can have it: what it cannot becomes an underscore. */
export function windowsName(/** @type {string} */ name) {
  const plain = name
    .replace(FORBIDDEN, '_')
    .slice(0, LONGEST)
    .replace(/[. ]+$/, (end) => '_'.repeat(end.length));
  return DEVICE.test(plain) ? `_${plain}` : plain || '_';
}
