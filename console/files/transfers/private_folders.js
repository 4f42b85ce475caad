// The folders of the browser's private file system that hold downloads: one for each page, and in it one for each
// download. A page holds a lock for each folder it uses until it is closed, so that other pages can recognise the
// folders of closed pages.

const FOLDER = 'downloads';
const LOCK = 'vantelink-downloads-';
const RECORD = 'record.json';
/** A closed page that is opened again finds its downloads for at least this time. */
const RETURN_MS = 10 * 60_000;
/** The time that the browser may need to close the page whose downloads another page takes over. */
const CLOSING_MS = 5000;

/**
 * Which file of which machine a download brings. session, transfer: the relay's numbers. size: as it was listed.
 * @typedef {{session: number, agent: string, transfer: number, path: string, name: string, size: number}} Facts
 */
/**
 * What is stored of a download. parts: closed files with the names 0, 1, 2 ... bytes, chunks: what they contain.
 * @typedef {Facts & {parts: number, bytes: number, chunks: number}} DownloadRecord
 */
/**
 * The folder of one download. within: the folder that contains it.
 * @typedef {{name: string, folder: FileSystemDirectoryHandle, within: FileSystemDirectoryHandle}} Place
 */

/** @type {Promise<FileSystemDirectoryHandle | null> | null} this page's own folder */
let ownFolder = null;
/** @type {Set<string>} the names of the folders whose locks this page holds */
const held = new Set();

/** This page's own folder; null if the browser has no private file system. */
export function pageFolder() {
  ownFolder ??= openOwn().catch(() => null);
  return ownFolder;
}

/** Makes a folder for a download. @returns {Promise<Place>} */
export async function makePlace(/** @type {FileSystemDirectoryHandle} */ within) {
  const name = crypto.randomUUID();
  return { name, within, folder: await within.getDirectoryHandle(name, { create: true }) };
}

/** Deletes what is stored of a download. Does nothing if that fails. */
export async function removePlace(/** @type {Place} */ { name, within }) {
  await within.removeEntry(name, { recursive: true }).catch(() => {});
}

/** Replaces the record of a download at once: a page that is closed meanwhile leaves the old one or the new one. */
export async function writeRecord(/** @type {Place} */ { folder }, /** @type {DownloadRecord} */ record) {
  const stream = await (await folder.getFileHandle(RECORD, { create: true })).createWritable();
  await stream.write(JSON.stringify(record));
  await stream.close();
}

/**
 * Takes over the downloads of a session from pages that are closed, and deletes their other downloads. A page that is
 * just being closed is waited for.
 * @param {number} session
 * @param {string} agent
 * @returns {Promise<{place: Place, record: DownloadRecord}[]>}
 */
export async function takeOver(session, agent) {
  const found = [];
  const isWanted = (/** @type {{record: DownloadRecord}} */ { record }) =>
    record.session === session && record.agent === agent;
  for (const { name, folder } of await foldersIn(await allPages())) {
    if (held.has(name) || !(await downloadsIn(folder)).some(isWanted)) continue;
    if (!(await hold(name, { signal: AbortSignal.timeout(CLOSING_MS) }).catch(() => false))) continue;
    // The records are read again, because the old page may have changed them until it was closed.
    for (const download of await downloadsIn(folder)) {
      if (isWanted(download)) found.push(download);
      else await removePlace(download.place);
    }
  }
  return found;
}

/** The folder that contains the folders of all pages; null if the browser has no private file system. */
async function allPages() {
  if (!('createWritable' in FileSystemFileHandle.prototype)) return null;
  const disk = await navigator.storage.getDirectory();
  return disk.getDirectoryHandle(FOLDER, { create: true });
}

async function openOwn() {
  const all = await allPages();
  if (!all) return null;
  const own = crypto.randomUUID();
  await hold(own, {});
  await removeAbandoned(all);
  return all.getDirectoryHandle(own, { create: true });
}

/**
 * Takes the lock of a page's folder until this page is closed.
 * @param {string} name
 * @param {LockOptions} options
 * @returns {Promise<boolean>} rejected when the signal in the options ends the wait
 */
async function hold(name, options) {
  await new Promise((granted, failed) => {
    const keep = () => new Promise(() => granted(undefined));
    navigator.locks.request(LOCK + name, options, keep).catch(failed);
  });
  held.add(name);
  return true;
}

/** Removes the folders of pages that are closed and have stored nothing lately. */
async function removeAbandoned(/** @type {FileSystemDirectoryHandle} */ all) {
  for (const { name, folder } of await foldersIn(all)) {
    await navigator.locks.request(LOCK + name, { ifAvailable: true }, async (lock) => {
      const downloads = lock ? await downloadsIn(folder) : [];
      const mayReturn = downloads.some(({ changed }) => changed > Date.now() - RETURN_MS);
      if (lock && !mayReturn) await all.removeEntry(name, { recursive: true }).catch(() => {});
    });
  }
}

async function foldersIn(/** @type {FileSystemDirectoryHandle | null} */ within) {
  const found = [];
  for await (const [name, entry] of within?.entries() ?? [])
    if (entry.kind === 'directory')
      found.push({ name, folder: /** @type {FileSystemDirectoryHandle} */ (entry) });
  return found;
}

/** The downloads in a page's folder. changed: the time of the last record, in milliseconds. */
async function downloadsIn(/** @type {FileSystemDirectoryHandle} */ within) {
  const found = [];
  for (const { name, folder } of await foldersIn(within).catch(() => [])) {
    try {
      const file = await (await folder.getFileHandle(RECORD)).getFile();
      const record = /** @type {DownloadRecord} */ (JSON.parse(await file.text()));
      found.push({ place: { name, folder, within }, record, changed: file.lastModified });
    } catch {
      // A download without a record cannot be continued.
    }
  }
  return found;
}
