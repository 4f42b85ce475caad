// Runs uploads, from the choice of the files to the check that they arrived. The machine overwrites files
// without asking and does not confirm uploads. Its folders are therefore listed before and after an upload,
// and the representative is asked before a file is replaced.
import { folderOf, join, windowsName } from '../../base/paths.js';
import { arrivalOf } from './arrival.js';
import { Transfer } from './transfer.js';

/** @typedef {import('../listing.js').Entry} Entry */
/** @typedef {import('../questions.js').Answer} Answer */
/** @typedef {import('../questions.js').Conflict} Conflict */
/** @typedef {{file: File, path?: string}} LocalFile path: the folders that contain the file, '' or 'sub/' */
/**
 * A local file and its destination on the machine. before: the entry of this name before the upload.
 * @typedef {{file: File, folder: string, name: string, before?: Entry}} Planned
 */

/** A form of the name for comparisons, because Windows compares names without regard to case. */
const folded = (/** @type {string} */ name) => name.toLowerCase();

export class Uploads {
  #queue;
  #folders;
  #ask;
  #sessions = 0;
  /** @type {Set<string>} the folded paths of the uploads that have not ended */
  #targets = new Set();

  /**
   * @param {import('./transfer_queue.js').TransferQueue} queue
   * @param {import('../folder_requests.js').FolderRequests} folders
   * @param {(conflicts: Conflict[]) => Promise<Answer>} ask asks what to do with files that exist already
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
    const session = this.#sessions;
    const groups = byFolder(files, folder);
    const wanted = await this.#resolveConflicts(groups).catch((error) => {
      for (const planned of groups.flat()) this.#reject(planned, error.message);
      return [];
    });
    if (session === this.#sessions) await Promise.all(wanted.map((group) => this.#uploadGroup(group)));
    else for (const planned of wanted.flat()) this.#reject(planned, 'sessionOver');
  }

  /** Checks an upload that an earlier page has begun, when it was sent. */
  async follow(/** @type {Transfer} */ transfer) {
    this.#reserve(transfer);
    await this.#check(folderOf(transfer.path), new Map([[transfer, undefined]]));
  }

  /** Files whose destination is still being examined are not uploaded in the next session. */
  sessionOver() {
    this.#sessions++;
  }

  /**
   * Asks whether to overwrite existing files, and returns the files that are to be uploaded.
   * @param {Planned[][]} groups
   */
  async #resolveConflicts(groups) {
    for (const group of groups) await this.#findExisting(group);
    const isFolder = (/** @type {Planned} */ { before }) => !!before?.dir;
    for (const planned of groups.flat().filter(isFolder)) this.#reject(planned, 'isFolder');
    const free = groups.map((group) => group.filter((planned) => !isFolder(planned)));
    const conflicts = free.flat().flatMap(conflictOf);
    const answer = conflicts.length ? await this.#ask(conflicts) : 'overwrite';
    if (answer === 'cancel') return [];
    const wanted = free.map((group) =>
      group.filter(({ before }) => answer === 'overwrite' || before === undefined),
    );
    return wanted.filter(({ length }) => length);
  }

  /** Finds the machine's entries that have the names of the files. */
  async #findExisting(/** @type {Planned[]} */ group) {
    const byName = await this.#entriesIn(group[0].folder);
    for (const planned of group) planned.before = byName.get(folded(planned.name));
  }

  /** Shows a row of a failed transfer with the reason why the file was not sent. */
  #reject(/** @type {Planned} */ planned, /** @type {string} */ remark) {
    this.#queue.finish(transferOf(planned), 'failed', remark);
  }

  /** The entries of a folder by their folded names. */
  async #entriesIn(/** @type {string} */ folder) {
    const { entries } = await this.#folders.list(folder, { lasting: true });
    return new Map(entries.map((entry) => [folded(entry.name), entry]));
  }

  /**
   * Uploads the files of one folder and checks whether they arrived.
   * @param {Planned[]} group
   */
  async #uploadGroup(group) {
    /** @type {Map<Transfer, Entry | undefined>} */
    const transfers = new Map();
    for (const planned of group) {
      const transfer = this.#begin(planned);
      if (transfer) transfers.set(transfer, planned.before);
    }
    await this.#check(group[0].folder, transfers);
  }

  /**
   * Checks in a listing whether uploads arrived, when they were sent. After an interruption, a part of an upload may be
   * sent again while its folder is being listed; it is then checked again.
   * @param {string} folder
   * @param {Map<Transfer, Entry | undefined>} transfers each with its file's entry before the upload
   */
  async #check(folder, transfers) {
    for (;;) {
      await allSent(this.#queue, [...transfers.keys()]);
      const unchecked = [...transfers.keys()].filter(({ state }) => state === 'checking');
      if (!unchecked.length) return;
      const times = unchecked.map(({ timesSent }) => timesSent);
      const byName = await this.#entriesIn(folder).catch(() => null);
      for (const [i, transfer] of unchecked.entries()) {
        if (transfer.state !== 'checking' || transfer.timesSent !== times[i]) continue;
        const after = byName?.get(folded(transfer.name));
        const { state, remark } = byName
          ? arrivalOf(transfer.size, transfers.get(transfer), after)
          : /** @type {const} */ ({ state: 'failed', remark: 'unchecked' });
        this.#queue.finish(transfer, state, remark);
      }
    }
  }

  /**
   * Adds an upload to the queue. Returns null when another upload to the same path has not ended, because the
   * machine would mix the bytes of both.
   */
  #begin(/** @type {Planned} */ planned) {
    const transfer = transferOf(planned);
    if (this.#targets.has(folded(transfer.path))) {
      this.#queue.finish(transfer, 'failed', 'sameTarget');
      return null;
    }
    this.#reserve(transfer);
    this.#queue.add(transfer);
    return transfer;
  }

  #reserve(/** @type {Transfer} */ transfer) {
    const target = folded(transfer.path);
    this.#targets.add(target);
    transfer.ended.then(() => this.#targets.delete(target));
  }
}

/**
 * The files grouped by their destination folder.
 * @param {LocalFile[]} files
 * @param {string} folder
 * @returns {Planned[][]}
 */
function byFolder(files, folder) {
  /** @type {Map<string, Planned[]>} */
  const groups = new Map();
  for (const { file, path = '' } of files) {
    const target = path
      .split('/')
      .filter(Boolean)
      .reduce((at, part) => join(at, windowsName(part)), folder);
    const planned = { file, folder: target, name: windowsName(file.name) };
    groups.set(target, [...(groups.get(target) ?? []), planned]);
  }
  return [...groups.values()];
}

/** @returns {Conflict[]} the conflict in a list; an empty list when the name is free */
function conflictOf(/** @type {Planned} */ { file, name, before }) {
  if (!before) return [];
  const here = { size: file.size, mtime: Math.floor(file.lastModified / 1000) };
  return [{ name, there: before, here }];
}

function transferOf(/** @type {Planned} */ { file, folder, name }) {
  return new Transfer({ kind: 'upload', name, path: join(folder, name), size: file.size, file });
}

/** Resolves when none of the transfers has bytes left to send. */
function allSent(/** @type {EventTarget} */ queue, /** @type {Transfer[]} */ transfers) {
  return new Promise((resolve) => {
    const check = () => {
      if (transfers.some(({ state }) => ['waiting', 'running', 'fileless'].includes(state))) return;
      queue.removeEventListener('change', check);
      resolve(undefined);
    };
    queue.addEventListener('change', check);
    check();
  });
}
