// Stores a download in the browser's private file system, in parts of 4 MiB. A part is a file of its own, which is closed
// when it is full; the browser loses what was written to a file that the page has not closed.
import { removePlace, writeRecord } from './private_folders.js';

/** @typedef {import('./private_folders.js').DownloadRecord} DownloadRecord */
/** @typedef {import('./private_folders.js').Place} Place */

const PART_BYTES = 4 * 1024 * 1024;

/** A DownloadSink. Its operations are done one after the other; after a failure, all later ones fail. */
export class DiskSink {
  #place;
  #record;
  /** @type {{stream: FileSystemWritableFileStream, bytes: number, chunks: number} | null} the part that is open */
  #part = null;
  /** @type {Promise<unknown>} the operation that was requested last */
  #last = Promise.resolve();
  #aborted = false;

  /** @param {Place} place @param {DownloadRecord} record what is stored there */
  constructor(place, record) {
    this.#place = place;
    this.#record = record;
  }

  /** What is stored, so that another page can continue the download. */
  get record() {
    return this.#record;
  }

  /** Prepares for a new download. */
  async begin() {
    await writeRecord(this.#place, this.#record);
  }

  /** @param {Uint8Array<ArrayBuffer>} bytes one chunk @returns {Promise<number>} the bytes in closed parts */
  write(bytes) {
    return this.#next(async () => {
      this.#part ??= { stream: await this.#openPart(), bytes: 0, chunks: 0 };
      const part = this.#part;
      await part.stream.write(bytes);
      part.bytes += bytes.length;
      part.chunks++;
      if (part.bytes >= PART_BYTES) await this.#closePart();
      return this.#record.bytes;
    });
  }

  /** @returns {Promise<Blob>} the whole content */
  close() {
    return this.#next(async () => {
      await this.#closePart();
      const files = [];
      for (let i = 0; i < this.#record.parts; i++)
        files.push(await (await this.#place.folder.getFileHandle(String(i))).getFile());
      return new Blob(files);
    });
  }

  /** Deletes the content. */
  async abort() {
    this.#aborted = true;
    await this.#dropPart();
    await this.#last.catch(() => {});
    // The last operation may have opened a part. A folder with an open file cannot be removed.
    await this.#dropPart();
    await removePlace(this.#place);
  }

  async #dropPart() {
    await this.#part?.stream.abort().catch(() => {});
  }

  async #openPart() {
    const name = String(this.#record.parts);
    return (await this.#place.folder.getFileHandle(name, { create: true })).createWritable();
  }

  async #closePart() {
    const part = this.#part;
    if (!part) return;
    this.#part = null;
    await part.stream.close();
    const { parts, bytes, chunks } = this.#record;
    const stored = { parts: parts + 1, bytes: bytes + part.bytes, chunks: chunks + part.chunks };
    const record = { ...this.#record, ...stored };
    await writeRecord(this.#place, record);
    this.#record = record;
  }

  /**
   * @template Result
   * @param {() => Promise<Result>} operation
   * @returns {Promise<Result>}
   */
  #next(operation) {
    const done = this.#last.then(() => {
      if (this.#aborted) throw new Error('aborted');
      return operation();
    });
    this.#last = done;
    return done;
  }
}
