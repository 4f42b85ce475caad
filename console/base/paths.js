// Composes and splits Windows paths and file names without asking the machine.

/** Characters that Windows forbids in file names. */
// biome-ignore lint/suspicious/noControlCharactersInRegex: control characters are among those that Windows forbids.
const FORBIDDEN = /[\u0000-\u001f\u007f<>:"/\\|?*]/g;
const DEVICE = /^(con|prn|aux|nul|conin\$|conout\$|com[0-9¹²³]|lpt[0-9¹²³])(?=\.|$| )/i;
const MAX_LENGTH = 255;

export function join(/** @type {string} */ folder, /** @type {string} */ name) {
  return folder.endsWith('\\') ? folder + name : `${folder}\\${name}`;
}

/** The parent folder of a path, by the same rule as in the agent; '' stands for the list of drives. */
export function parentOf(/** @type {string} */ path) {
  const copy = path.endsWith('\\') ? path.slice(0, -1) : path;
  const last = copy.lastIndexOf('\\');
  return last <= 1 ? '' : copy.slice(0, last);
}

/** The folder that contains a file, in the form in which the machine lists it: a drive ends with a separator. */
export function folderOf(/** @type {string} */ path) {
  const folder = parentOf(path);
  return folder.endsWith(':') ? `${folder}\\` : folder;
}

/** The last part of the path, without a trailing separator. */
export function lastPart(/** @type {string} */ path) {
  const copy = path.endsWith('\\') ? path.slice(0, -1) : path;
  return copy.slice(copy.lastIndexOf('\\') + 1) || copy;
}

/**
 * The folders on a path, from the drive down to the path itself, without the list of drives.
 * @param {string} path
 * @param {string} parent the path's parent folder, as the machine reported it
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

/** The name of a local file, changed so that Windows accepts it: forbidden characters become underscores. */
export function windowsName(/** @type {string} */ name) {
  const plain = name
    .replace(FORBIDDEN, '_')
    .slice(0, MAX_LENGTH)
    // The cut can leave the first half of a character that has two UTF-16 units.
    .replace(/[\ud800-\udbff]$/, '')
    .replace(/[. ]+$/, (end) => '_'.repeat(end.length));
  return DEVICE.test(plain) ? `_${plain}` : plain || '_';
}
