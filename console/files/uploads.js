// Uploads from the choice of files to the proof that they arrived. The machine overwrites without a question and
// confirms nothing: so its folder is looked at before, the representative is asked, and it is looked at again after.
import { join, windowsName } from '../base/paths.js';
import { Transfer } from './transfer.js';

/** @typedef {{file: File, folder: string, name: string}} Wish a local file, and where it is to go */
/** @typedef {'overwrite' | 'skip' | 'cancel'} Answer */

/** As the machine compares names. */
const same = (/** @type {string} */ name) => name.toLowerCase();

export class Uploads {
  /**
   * @param {import('./transfer_queue.js').Courier} courier
   * @param {import('./folders.js').Folders} folders
   * @param {(names: string[]) => Promise<Answer>} ask what to do with files that are there already
   */
  constructor(courier, folders, ask) {
    this.courier = courier;
    this.folders = folders;
    this.ask = ask;
  }

  /**
   * Resolves when all of them have come to an end.
   * @param {{file: File, path?: string}[]} files path: of folders below, '' or 'sub/'
   * @param {string} folder of the machine
   */
  async put(files, folder) {
    /** @type {Map<string, Wish[]>} */
    const groups = new Map();
    for (const { file, path = '' } of files) {
      const target = path
        .split('/')
        .filter(Boolean)
        .reduce((at, part) => join(at, windowsName(part)), folder);
      groups.set(target, [
        ...(groups.get(target) ?? []),
        { file, folder: target, name: windowsName(file.name) },
      ]);
    }
    const wanted = await this.settle([...groups.values()]).catch(() => {
      for (const wish of [...groups.values()].flat()) this.refuse(wish, 'sessionOver');
      return [];
    });
    await Promise.all(wanted.map((group) => this.carry(group)));
  }

  /** @private What is left after the question whether to overwrite. @param {Wish[][]} groups */
  async settle(groups) {
    /** @type {Map<Wish, boolean>} those that are there already; true for a folder of that name */
    const taken = new Map();
    for (const group of groups) {
      const { entries } = await this.folders.list(group[0].folder);
      const there = new Map(entries.map(({ name, dir }) => [same(name), dir]));
      for (const wish of group) {
        const dir = there.get(same(wish.name));
        if (dir !== undefined) taken.set(wish, dir);
        // The second of one name would overwrite the first.
        there.set(same(wish.name), dir ?? false);
      }
    }
    if (!taken.size) return groups;
    const files = [...taken].filter(([, dir]) => !dir).map(([wish]) => wish);
    for (const [wish, dir] of taken) if (dir) this.refuse(wish, 'isFolder');
    const answer = files.length ? await this.ask(files.map(({ name }) => name)) : 'skip';
    if (answer === 'cancel') return [];
    return groups
      .map((group) =>
        group.filter((wish) => !taken.has(wish) || (answer === 'overwrite' && !taken.get(wish))),
      )
      .filter(({ length }) => length);
  }

  /** @private A row that says why nothing was sent. */
  refuse(/** @type {Wish} */ wish, /** @type {string} */ remark) {
    this.courier.finish(transferOf(wish), 'failed', remark);
  }

  /** @private @param {Wish[]} group files for one folder */
  async carry(group) {
    const transfers = group.map(transferOf);
    transfers.forEach((transfer) => this.courier.add(transfer));
    await sentOrEnded(this.courier, transfers);
    const unproven = transfers.filter(({ state }) => state === 'checking');
    if (!unproven.length) return;
    try {
      const { entries } = await this.folders.list(group[0].folder);
      const sizes = new Map(entries.filter(({ dir }) => !dir).map(({ name, size }) => [same(name), size]));
      for (const transfer of unproven) {
        const size = sizes.get(same(transfer.name));
        if (size === transfer.size) this.courier.finish(transfer, 'done');
        else this.courier.finish(transfer, 'failed', size === undefined ? 'notThere' : 'cutShort');
      }
    } catch {
      for (const transfer of unproven) this.courier.finish(transfer, 'failed', 'unproven');
    }
  }
}

function transferOf(/** @type {Wish} */ { file, folder, name }) {
  return new Transfer({ kind: 'upload', name, path: join(folder, name), size: file.size, file });
}

/** Resolves when none of the transfers has bytes to send any more. */
function sentOrEnded(/** @type {EventTarget} */ courier, /** @type {Transfer[]} */ transfers) {
  return new Promise((done) => {
    const look = () => {
      if (transfers.some(({ state }) => state === 'waiting' || state === 'running')) return;
      courier.removeEventListener('change', look);
      done(undefined);
    };
    courier.addEventListener('change', look);
    look();
  });
}
