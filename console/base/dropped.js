// Finds the files of a drop or a paste, including files inside dropped folders.

/**
 * A dropped or pasted file. path: the dropped folders that contain the file, '' or 'sub/sub/'.
 * @typedef {{file: File, path: string}} DroppedFile
 */

/**
 * Returns the files of a drop or a paste. Files and folders that cannot be read are left out. Must be called
 * while the event is being handled; the files may be read later.
 * @param {DataTransfer} data
 * @returns {Promise<DroppedFile[]>}
 */
export async function droppedFiles(data) {
  const items = [...data.items]
    .filter(({ kind }) => kind === 'file')
    .map((item) => ({ entry: item.webkitGetAsEntry?.() ?? null, file: item.getAsFile() }));
  /** @type {DroppedFile[]} */
  const found = [];
  for (const { entry, file } of items) {
    if (entry && isFolder(entry)) await collect(entry, '', found).catch(() => {});
    else if (file) found.push({ file, path: '' });
  }
  return found;
}

/** Whether a drag carries files. */
export function carriesFiles(/** @type {DataTransfer | null} */ data) {
  return !!data && [...data.types].includes('Files');
}

/** @returns {entry is FileSystemDirectoryEntry} */
function isFolder(/** @type {FileSystemEntry} */ entry) {
  return entry.isDirectory;
}

/**
 * Adds the files of a folder and of the folders below it.
 * @param {FileSystemDirectoryEntry} folder
 * @param {string} path the dropped folders that contain this folder
 * @param {DroppedFile[]} found
 */
async function collect(folder, path, found) {
  const below = `${path}${folder.name}/`;
  const reader = folder.createReader();
  // Each call returns some of the entries; after the last entry, a call returns an empty list.
  for (;;) {
    /** @type {FileSystemEntry[]} */
    const entries = await new Promise((resolve, reject) => {
      reader.readEntries(resolve, reject);
    });
    if (!entries.length) return;
    for (const entry of entries) {
      if (isFolder(entry)) await collect(entry, below, found).catch(() => {});
      else {
        const file = await fileOf(/** @type {FileSystemFileEntry} */ (entry));
        if (file) found.push({ file, path: below });
      }
    }
  }
}

/** @returns {Promise<File | null>} null for a file that cannot be read */
function fileOf(/** @type {FileSystemFileEntry} */ entry) {
  return new Promise((resolve) => {
    entry.file(resolve, () => resolve(null));
  });
}
