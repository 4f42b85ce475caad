// The files behind a drop or a paste, folders walked through.

/** @typedef {{file: File, path: string}} Dropped path: of the folders above it, '' or 'sub/sub/' */

/**
 * What cannot be read is left out. Must be called while the event is being handled; what it names is read later.
 * @param {DataTransfer} data
 * @returns {Promise<Dropped[]>}
 */
export async function droppedFiles(data) {
  const entries = [...data.items]
    .filter(({ kind }) => kind === 'file')
    .map((item) => ({ entry: item.webkitGetAsEntry?.() ?? null, file: item.getAsFile() }));
  /** @type {Dropped[]} */
  const found = [];
  for (const { entry, file } of entries) {
    if (entry?.isDirectory) await walk(/** @type {any} */ (entry), '', found).catch(() => {});
    else if (file) found.push({ file, path: '' });
  }
  return found;
}

/** Whether a drag carries files at all. */
export function carriesFiles(/** @type {DataTransfer | null} */ data) {
  return !!data && [...data.types].includes('Files');
}

async function walk(/** @type {any} */ folder, /** @type {string} */ path, /** @type {Dropped[]} */ found) {
  const below = `${path}${folder.name}/`;
  const reader = folder.createReader();
  // A reader gives some of the entries at a time, and none at the end.
  for (;;) {
    /** @type {any[]} */
    const entries = await new Promise((resolve, reject) => {
      reader.readEntries(resolve, reject);
    });
    if (!entries.length) return;
    for (const entry of entries) {
      if (entry.isDirectory) await walk(entry, below, found).catch(() => {});
      else {
        const file = await new Promise((resolve) => {
          entry.file(resolve, () => resolve(null));
        });
        if (file) found.push({ file, path: below });
      }
    }
  }
}
