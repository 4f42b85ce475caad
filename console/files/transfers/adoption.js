// The transfers that the relay lists and this page has not begun, because the page was loaded again: what is needed to
// go on with them.
import { lastPart } from '../../base/paths.js';
import { Transfer } from './transfer.js';

/** @typedef {import('./download_sink.js').DownloadSink} DownloadSink */
/** @typedef {import('./download_sink.js').LeftDownload} LeftDownload */
/**
 * A transfer in the relay's list. bytes: those of a download that are confirmed, or those of an upload that the relay
 * has taken. error: the code of the reason why a download is over; '' for a transfer that goes on.
 * @typedef {{id: number, kind: 'upload' | 'download', path: string, size: number, bytes: number, error: string}} Listed
 */

/** Reads the relay's list. @returns {Listed[]} */
export function readList(/** @type {unknown} */ list) {
  return Array.isArray(list) ? list.flatMap(readOne) : [];
}

/** @returns {Listed[]} the transfer in a list; an empty list when the value is not one */
function readOne(/** @type {Record<string, unknown> | null} */ value) {
  const { transfer: id, kind, path, size = 0, bytes, error = '' } = value ?? {};
  if (typeof id !== 'number' || (kind !== 'upload' && kind !== 'download')) return [];
  return [{ id, kind, path: String(path), size: Number(size), bytes: Number(bytes), error: String(error) }];
}

/** An upload of an earlier page. Its file has to be chosen again unless all of it has reached the relay. */
export function adoptedUpload(/** @type {Listed} */ { path, size, bytes }) {
  const transfer = new Transfer({ kind: 'upload', name: lastPart(path), path, size });
  transfer.start();
  if (bytes < size) transfer.state = 'fileless';
  transfer.done = bytes;
  return transfer;
}

/** Finds what closed pages have stored of downloads. */
export class LeftDownloads {
  #find;
  /** @type {LeftDownload[]} */
  #found = [];
  /** @type {Promise<unknown>} */
  #search = Promise.resolve();

  /** @param {(session: number, agent: string) => Promise<LeftDownload[]>} find */
  constructor(find) {
    this.#find = find;
  }

  /** Searches for the downloads of a session. A second search waits for the first. */
  search(/** @type {number} */ session, /** @type {string} */ agent) {
    this.#search = this.#search.then(async () => {
      this.#found.push(...(await this.#find(session, agent)));
    });
    return this.#search;
  }

  /**
   * Takes what was found of a download in the list, if the relay can send the rest of it.
   * @returns {{transfer: Transfer, sink: DownloadSink, chunks: number} | null}
   */
  take(/** @type {Listed} */ { id, path, bytes, error }) {
    const at = this.#found.findIndex(({ record }) => record.transfer === id);
    const [found] = at < 0 ? [] : this.#found.splice(at, 1);
    if (!found) return null;
    const { record, sink } = found;
    if (!error && (record.path !== path || record.bytes < bytes)) {
      sink.abort();
      return null;
    }
    const transfer = new Transfer({ kind: 'download', ...record });
    transfer.start();
    transfer.done = record.bytes;
    return { transfer, sink, chunks: record.chunks };
  }

  /** Deletes what was found and not taken. */
  clear() {
    for (const { sink } of this.#found.splice(0)) sink.abort();
  }
}
