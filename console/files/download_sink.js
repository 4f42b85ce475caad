// Stores the bytes of a download until they are saved: in the browser's origin private file system if there
// is one, otherwise in memory.
import { SAVING_MS } from '../base/save_file.js';

const FOLDER = 'downloads';
const LOCK = 'vantelink-downloads-';

/**
 * The storage for one download. `close` returns the whole content. `abort` deletes the content, also after
 * `close`; the Blob is then unusable.
 * @typedef {{write: (bytes: Uint8Array<ArrayBuffer>) => Promise<void>, close: () => Promise<Blob>,
 *   abort: () => Promise<void>}} DownloadSink
 */

/**
 * This page's own folder in the private file system; null if the browser has no such file system.
 * @type {Promise<FileSystemDirectoryHandle | null> | null}
 */
let ownFolder = null;

/** @returns {Promise<DownloadSink>} */
export async function openSink() {
  ownFolder ??= openFolder().catch(() => null);
  const folder = await ownFolder;
  if (!folder) return memorySink();
  try {
    return await diskSink(folder);
  } catch {
    return memorySink();
  }
}

/** Deletes the content of a saved download after the time that the browser needs to read it. */
export function discard(/** @type {DownloadSink} */ sink) {
  setTimeout(() => sink.abort(), SAVING_MS);
}

async function openFolder() {
  if (!('createWritable' in FileSystemFileHandle.prototype)) return null;
  const disk = await navigator.storage.getDirectory();
  const all = await disk.getDirectoryHandle(FOLDER, { create: true });
  const own = crypto.randomUUID();
  // The lock is held until the page is closed, so that other pages can recognise abandoned folders.
  await new Promise((held) => {
    navigator.locks.request(LOCK + own, () => new Promise(() => held(undefined)));
  });
  await removeAbandoned(all);
  return all.getDirectoryHandle(own, { create: true });
}

/** Removes the folders of pages that are closed. */
async function removeAbandoned(/** @type {FileSystemDirectoryHandle} */ all) {
  for await (const name of all.keys()) {
    await navigator.locks.request(LOCK + name, { ifAvailable: true }, async (lock) => {
      if (lock) await all.removeEntry(name, { recursive: true }).catch(() => {});
    });
  }
}

/** @returns {Promise<DownloadSink>} */
async function diskSink(/** @type {FileSystemDirectoryHandle} */ folder) {
  const name = crypto.randomUUID();
  const handle = await folder.getFileHandle(name, { create: true });
  const stream = await handle.createWritable();
  return {
    write: (bytes) => stream.write(bytes),
    close: async () => {
      await stream.close();
      return handle.getFile();
    },
    abort: async () => {
      await stream.abort().catch(() => {});
      await folder.removeEntry(name).catch(() => {});
    },
  };
}

/** @returns {DownloadSink} */
function memorySink() {
  let whole = new Blob();
  return {
    // A Blob is used because browsers move a large Blob out of the page's memory.
    write: async (bytes) => {
      whole = new Blob([whole, bytes]);
    },
    close: async () => whole,
    abort: async () => {
      whole = new Blob();
    },
  };
}
