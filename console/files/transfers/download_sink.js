// Stores the bytes of a download until they are saved: in the browser's origin private file system if there
// is one, otherwise in memory.
import { SAVING_MS } from '../../base/save_file.js';
import { DiskSink } from './disk_sink.js';
import { makePlace, pageFolder, takeOver } from './private_folders.js';

/**
 * The storage for one download. `write` stores one chunk, and resolves with the number of bytes that are stored as
 * safely as this page can. `close` returns the whole content. `abort` deletes the content, also after `close`; the
 * Blob is then unusable.
 * @typedef {{write: (bytes: Uint8Array<ArrayBuffer>) => Promise<number>, close: () => Promise<Blob>,
 *   abort: () => Promise<void>}} DownloadSink
 */
/** @typedef {import('./private_folders.js').Facts} Facts */
/** @typedef {import('./private_folders.js').DownloadRecord} DownloadRecord */
/**
 * A download that a closed page has left: what is stored of it, and where the rest goes.
 * @typedef {{record: DownloadRecord, sink: DownloadSink}} LeftDownload
 */
/**
 * The places where downloads are stored. left: takes over what closed pages have stored of a session's downloads.
 * @typedef {{open: (facts: Facts) => Promise<DownloadSink>,
 *   left: (session: number, agent: string) => Promise<LeftDownload[]>}} Store
 */

/** @returns {Promise<DownloadSink>} */
export async function openSink(/** @type {Facts} */ facts) {
  const folder = await pageFolder();
  if (!folder) return memorySink();
  try {
    const sink = new DiskSink(await makePlace(folder), { ...facts, parts: 0, bytes: 0, chunks: 0 });
    await sink.begin();
    return sink;
  } catch {
    return memorySink();
  }
}

/**
 * Takes over the downloads of a session that pages which are closed have left.
 * @param {number} session
 * @param {string} agent
 * @returns {Promise<LeftDownload[]>}
 */
export async function leftDownloads(session, agent) {
  const found = await takeOver(session, agent).catch(() => []);
  return found.map(({ place, record }) => ({ record, sink: new DiskSink(place, record) }));
}

/** Deletes the content of a saved download after the time that the browser needs to read it. */
export function discard(/** @type {DownloadSink} */ sink) {
  setTimeout(() => sink.abort(), SAVING_MS);
}

/** @returns {DownloadSink} */
function memorySink() {
  let whole = new Blob();
  return {
    // A Blob is used because browsers move a large Blob out of the page's memory.
    write: async (bytes) => {
      whole = new Blob([whole, bytes]);
      return whole.size;
    },
    close: async () => whole,
    abort: async () => {
      whole = new Blob();
    },
  };
}
