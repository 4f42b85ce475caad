// Runs uploads, from the choice of the files to the check that they arrived. The machine overwrites files
// without asking and does not confirm uploads. Its folders are therefore listed before and after an upload,
// and the representative is asked before a file is replaced.
import { join, windowsName } from '../base/paths.js';
import { Transfer } from './transfer.js';

/** @typedef {{file: File, path?: string}} LocalFile path: the folders that contain the file, '' or 'sub/' */
/**
 * A local file and its destination on the machine.
 * @typedef {{file: File, folder: string, name: string}} Planned
 */
/** @typedef {'overwrite' | 'skip' | 'cancel'} Answer */

/** A form of the name for comparisons, because Windows compares names without regard to case. */
const folded = (/** @type {string} */ name) => name.toLowerCase();

export class Uploads {
  #queue;
  #folders;
  #ask;

  /**
   * @param {import('./transfer_queue.js').TransferQueue} queue
   * @param {import('./folder_requests.js').FolderRequests} folders
   * @param {(names: string[]) => Promise<Answer>} ask asks what to do with files that exist already
   */
  constructor(queue, folders, ask) {
    this.#queue = queue;
    this.#folders = folders;
    this.#ask = ask;
  }

  /**
   * Uploads files into a folder of the machine. Resolves when all the uploads have ended.
   * @param {LocalFile[]} files
   * @param {string} folder
   */
  async upload(files, folder) {
    /** @type {Map<string, Planned[]>} the files by their destination folder */
    const groups = new Map();
    for (const { file, path = '' } of files) {
      const target = path
        .split('/')
        .filter(Boolean)
        .reduce((at, part) => join(at, windowsName(part)), folder);
      const planned = { file, folder: target, name: windowsName(file.name) };
      groups.set(target, [...(groups.get(target) ?? []), planned]);
    }
    const wanted = await this.#resolveConflicts([...groups.values()]).catch(() => {
      for (const planned of [...groups.values()].flat()) this.#reject(planned, 'sessionOver');
      return [];
    });
    await Promise.all(wanted.map((group) => this.#uploadGroup(group)));
  }

  /**
   * Asks whether to overwrite existing files, and returns the files that are to be uploaded.
   * @param {Planned[][]} groups
   */
  async #resolveConflicts(groups) {
    const existing = await this.#existing(groups);
    if (!existing.size) return groups;
    const files = [...existing].filter(([, isFolder]) => !isFolder).map(([planned]) => planned);
    for (const [planned, isFolder] of existing) if (isFolder) this.#reject(planned, 'isFolder');
    const answer = files.length ? await this.#ask(files.map(({ name }) => name)) : 'skip';
    if (answer === 'cancel') return [];
    const remains = (/** @type {Planned} */ planned) =>
      !existing.has(planned) || (answer === 'overwrite' && !existing.get(planned));
    return groups.map((group) => group.filter(remains)).filter(({ length }) => length);
  }

  /**
   * Finds the files whose name exists already at their destination. The value is true when the name belongs
   * to a folder.
   * @param {Planned[][]} groups
   * @returns {Promise<Map<Planned, boolean>>}
   */
  async #existing(groups) {
    const existing = new Map();
    for (const group of groups) {
      const { entries } = await this.#folders.list(group[0].folder);
      const names = new Map(entries.map(({ name, dir }) => [folded(name), dir]));
      for (const planned of group) {
        const isFolder = names.get(folded(planned.name));
        if (isFolder !== undefined) existing.set(planned, isFolder);
        // A second file of the same name would overwrite the first.
        names.set(folded(planned.name), isFolder ?? false);
      }
    }
    return existing;
  }

  /** Shows a row of a failed transfer with the reason why the file was not sent. */
  #reject(/** @type {Planned} */ planned, /** @type {string} */ remark) {
    this.#queue.finish(transferOf(planned), 'failed', remark);
  }

  /**
   * Uploads the files of one folder and checks their sizes in a new listing.
   * @param {Planned[]} group
   */
  async #uploadGroup(group) {
    const transfers = group.map(transferOf);
    for (const transfer of transfers) this.#queue.add(transfer);
    await allSent(this.#queue, transfers);
    const unchecked = transfers.filter(({ state }) => state === 'checking');
    if (!unchecked.length) return;
    try {
      const { entries } = await this.#folders.list(group[0].folder);
      const sizes = new Map(entries.filter(({ dir }) => !dir).map(({ name, size }) => [folded(name), size]));
      for (const transfer of unchecked) {
        const size = sizes.get(folded(transfer.name));
        if (size === transfer.size) this.#queue.finish(transfer, 'done');
        else this.#queue.finish(transfer, 'failed', size === undefined ? 'notThere' : 'cutShort');
      }
    } catch {
      for (const transfer of unchecked) this.#queue.finish(transfer, 'failed', 'unchecked');
    }
  }
}

function transferOf(/** @type {Planned} */ { file, folder, name }) {
  return new Transfer({ kind: 'upload', name, path: join(folder, name), size: file.size, file });
}

/** Resolves when none of the transfers has bytes left to send. */
function allSent(/** @type {EventTarget} */ queue, /** @type {Transfer[]} */ transfers) {
  return new Promise((resolve) => {
    const check = () => {
      if (transfers.some(({ state }) => state === 'waiting' || state === 'running')) return;
      queue.removeEventListener('change', check);
      resolve(undefined);
    };
    queue.addEventListener('change', check);
    check();
  });
}
