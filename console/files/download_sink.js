// Where a download goes: straight to the browser's private disk where there is one, into memory where there is not, and
// from there to the representative as an ordinary download.

const FOLDER = 'downloads';
const LOCK = 'vantelink-downloads-';
const KEEP_MS = 60_000;
/** Chromium passes over downloads that a page begins faster than ten a second. */
const GAP_MS = 150;
let nextSave = 0;

/**
 * abort: throws away what there is, also of a closed one, whose Blob ends with it.
 * @typedef {{write: (bytes: Uint8Array) => Promise<void>, close: () => Promise<Blob>, abort: () => Promise<void>}} Sink
 */

/** This page's own folder on the private disk, null where there is none. */
let ownFolder = /** @type {Promise<FileSystemDirectoryHandle | null> | null} */ (null);

/** @returns {Promise<Sink>} */
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

async function openFolder() {
  if (!('createWritable' in FileSystemFileHandle.prototype)) return null;
  const all = await (await navigator.storage.getDirectory()).getDirectoryHandle(FOLDER, { create: true });
  const own = crypto.randomUUID();
  // Held for as long as the page lives, so that other pages can tell what is left over.
  await new Promise((held) => {
    navigator.locks.request(LOCK + own, () => new Promise(() => held(undefined)));
  });
  await removeLeftovers(all);
  return all.getDirectoryHandle(own, { create: true });
}

async function removeLeftovers(/** @type {any} */ all) {
  for await (const name of all.keys()) {
    await navigator.locks.request(LOCK + name, { ifAvailable: true }, async (lock) => {
      if (lock) await all.removeEntry(name, { recursive: true }).catch(() => {});
    });
  }
}

/** @returns {Promise<Sink>} */
async function diskSink(/** @type {FileSystemDirectoryHandle} */ folder) {
  const name = crypto.randomUUID();
  const handle = await folder.getFileHandle(name, { create: true });
  const stream = await handle.createWritable();
  return {
    write: (bytes) => stream.write(/** @type {BufferSource} */ (bytes)),
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

/** @returns {Sink} */
function memorySink() {
  let whole = new Blob();
  return {
    // A growing Blob, which browsers move out of the page's memory.
    write: async (bytes) => {
      whole = new Blob([whole, /** @type {BlobPart} */ (bytes)]);
    },
    close: async () => whole,
    abort: async () => {
      whole = new Blob();
    },
  };
}

/** Takes a download off this page, when the browser has surely read what was handed to it. */
export function discard(/** @type {Sink} */ sink) {
  setTimeout(() => sink.abort(), KEEP_MS);
}

/** Hands the bytes to the browser as a download of that name, now or when those before it have gone. */
export function save(/** @type {Blob} */ blob, /** @type {string} */ name) {
  const now = performance.now();
  const at = Math.max(now, nextSave);
  nextSave = at + GAP_MS;
  if (at === now) download(blob, name);
  else setTimeout(() => download(blob, name), at - now);
}

function download(/** @type {Blob} */ blob, /** @type {string} */ name) {
  const url = URL.createObjectURL(blob);
  const link = document.createElement('a');
  link.href = url;
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(url), KEEP_MS);
}
