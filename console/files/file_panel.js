// The side panel with the machine's folders: the folder shown, its entries, and uploads and downloads.
import { onDetail } from '../base/custom_events.js';
import { byId, make } from '../base/dom.js';
import { carriesFiles, droppedFiles } from '../base/dropped.js';
import { locale } from '../base/locale.js';
import { visible } from '../base/names.js';
import { crumbs, lastPart, parentOf } from '../base/paths.js';
import { texts } from '../base/texts.js';
import { FileList } from './file_list.js';
import { TooLargeError } from './folder_requests.js';
import { sorted } from './listing.js';

/** @typedef {import('./listing.js').Entry} Entry */
/** @typedef {import('./listing.js').SortKey} SortKey */
/** @typedef {import('./transfers/uploads.js').LocalFile} LocalFile */

/**
 * A panel beside the picture; `toggle` opens or closes it.
 * @typedef {{body: HTMLElement, isOpen: () => boolean, toggle: (open: boolean) => void}} Panel
 * @typedef {(panel: {name: string, title: string, onToggle: (open: boolean) => void}) => Panel} AddPanel
 */

export class FilePanel {
  #folders;
  #formats;
  #actions;
  #panel;
  #root = byId('files');
  #list;
  /** @type {import('./listing.js').Listing | null} the folder that is shown */
  #listing = null;
  /** The folder that was requested last. */
  #wanted = '';
  /** Why that folder is not listed again before the representative asks for it; '' when it may be. */
  #problem = '';
  /** @type {{by: SortKey, descending: boolean}} */
  #order = { by: 'name', descending: false };
  /** @type {LocalFile[]} files for which the representative is to choose a folder */
  #offered = [];

  /**
   * @param {AddPanel} addPanel
   * @param {import('./folder_requests.js').FolderRequests} folders
   * @param {import('../base/formats.js').Formats} formats
   * @param {{download: (entries: Entry[]) => void,
   *   upload: (files: LocalFile[], folder: string) => Promise<void>,
   *   may: (right: 'files-up' | 'files-down') => boolean}} actions
   */
  constructor(addPanel, folders, formats, actions) {
    this.#folders = folders;
    this.#formats = formats;
    this.#actions = actions;
    this.#list = new FileList(byId('files-list'), formats);
    this.#panel = addPanel({
      name: 'files',
      title: texts.files,
      onToggle: (open) => this.#toggled(open),
    });
    this.#panel.body.append(this.#root);
    this.#attachList();
    this.#attachButtons();
    this.#attachDrop();
  }

  /** Handles the start of a session, or the return to one: an open panel requests the folder again that it showed before. */
  start() {
    this.rightsChanged();
    if (this.#panel.isOpen() && !this.#problem) this.#go(this.#wanted);
  }

  /** Handles a change of the rights: without any right to files, the panel is closed. */
  rightsChanged() {
    const { may } = this.#actions;
    if (!may('files-up') && !may('files-down')) this.#panel.toggle(false);
    if (!may('files-up')) this.#offered = [];
    this.#drawState();
  }

  /**
   * Handles the end of a session. A listing that was under way may have been its cause, so it is not
   * requested again by itself.
   */
  sessionOver() {
    if (this.#root.ariaBusy === 'true') this.#showProblem(this.#wanted, texts.listingInterrupted);
  }

  show() {
    this.#panel.toggle(true);
  }

  /** Lists a folder again if it is shown, because its files have changed. */
  listAgain(/** @type {string} */ folder) {
    if (this.#panel.isOpen() && this.#wanted === folder && !this.#problem) this.#go(folder);
  }

  /** Closes the panel and forgets the folder, before a session with another machine. */
  reset() {
    this.#listing = null;
    this.#wanted = '';
    this.#problem = '';
    this.#offered = [];
    this.#list.show([]);
    byId('files-crumbs').replaceChildren();
    this.#panel.toggle(false);
    this.#drawState();
  }

  /** Opens the panel, so that the representative can choose a folder for the files. */
  offer(/** @type {LocalFile[]} */ files) {
    this.#panel.toggle(true);
    this.#offered = files;
    this.#drawState();
  }

  #toggled(/** @type {boolean} */ open) {
    if (!open) this.#offered = [];
    if (open && !this.#listing) this.#go('');
    if (open) this.#list.takeFocus();
    this.#drawState();
  }

  /**
   * Shows a folder. The previous folder stays on the page until the machine has answered.
   * @param {string} path
   * @param {string} [from] the name of the entry to select
   */
  async #go(path, from = '') {
    this.#wanted = path;
    this.#problem = '';
    this.#root.ariaBusy = 'true';
    try {
      const listing = await this.#folders.list(path);
      // Another folder may have been requested in the meantime.
      if (this.#wanted !== path) return;
      const again = this.#listing?.path === path;
      this.#listing = listing;
      this.#draw(again, from);
    } catch (error) {
      // After the end of a session, the message over the picture says why nothing is listed.
      if (this.#wanted === path && error instanceof TooLargeError)
        this.#showProblem(path, texts.folderTooLarge(this.#formats.size(error.bytes)));
    }
    if (this.#wanted === path) this.#root.ariaBusy = 'false';
  }

  /** Shows why a folder is not listed, in place of its entries. */
  #showProblem(/** @type {string} */ path, /** @type {string} */ problem) {
    this.#problem = problem;
    this.#listing = { path, parent: parentOf(path), entries: [] };
    this.#draw(false);
  }

  #attachList() {
    const list = this.#list;
    onDetail(list, 'open', (/** @type {Entry} */ entry) => this.#open(entry));
    list.addEventListener('up', () => this.#up());
    list.addEventListener('select', () => this.#drawState());
    byId('files-list').addEventListener('paste', ({ clipboardData }) => {
      if (clipboardData) this.#upload(droppedFiles(clipboardData));
    });
  }

  #attachButtons() {
    const input = byId('files-input', HTMLInputElement);
    byId('files-up').addEventListener('click', () => this.#up());
    byId('files-again').addEventListener('click', () => this.#go(this.#wanted));
    byId('files-download').addEventListener('click', () => this.#actions.download(this.#selectedFiles()));
    byId('files-upload').addEventListener('click', () => input.click());
    input.addEventListener('change', () => {
      this.#upload([...(input.files ?? [])].map((file) => ({ file })));
      input.value = '';
    });
    byId('files-put').addEventListener('click', () => this.#upload(this.#offered));
    for (const [by, button] of sortButtons()) button.addEventListener('click', () => this.#sort(by));
  }

  #attachDrop() {
    const root = this.#root;
    root.addEventListener('dragover', (event) => {
      if (!event.dataTransfer || !carriesFiles(event.dataTransfer)) return;
      event.preventDefault();
      event.stopPropagation();
      event.dataTransfer.dropEffect = this.#takesFiles ? 'copy' : 'none';
      root.classList.toggle('is-target', this.#takesFiles);
    });
    root.addEventListener('dragleave', ({ relatedTarget }) => {
      if (!(relatedTarget instanceof Node && root.contains(relatedTarget)))
        root.classList.remove('is-target');
    });
    root.addEventListener('drop', (event) => {
      root.classList.remove('is-target');
      if (!event.dataTransfer || !carriesFiles(event.dataTransfer)) return;
      event.preventDefault();
      event.stopPropagation();
      this.#upload(droppedFiles(event.dataTransfer));
    });
  }

  /** Whether files can be uploaded into the folder that is shown. */
  get #takesFiles() {
    return this.#actions.may('files-up') && !!this.#listing?.path && !this.#problem;
  }

  #selectedFiles() {
    return this.#list.selected.filter(({ dir }) => !dir);
  }

  #open(/** @type {Entry} */ entry) {
    if (entry.dir) this.#go(entry.path);
    else if (this.#actions.may('files-down')) this.#actions.download(this.#selectedFiles());
  }

  #up() {
    const listing = this.#listing;
    if (listing?.path) this.#go(listing.parent, lastPart(listing.path));
  }

  /**
   * Uploads files into the folder that is shown now, and lists it again afterwards.
   * @param {LocalFile[] | Promise<LocalFile[]>} files
   */
  async #upload(files) {
    const folder = this.#listing?.path;
    const found = await files;
    if (!folder || !found.length || !this.#actions.may('files-up')) return;
    this.#offered = [];
    this.#drawState();
    await this.#actions.upload(found, folder).catch(() => {});
    this.listAgain(folder);
  }

  #sort(/** @type {SortKey} */ by) {
    const order = this.#order;
    this.#order = { by, descending: order.by === by ? !order.descending : by !== 'name' };
    this.#draw(true);
  }

  /**
   * @param {boolean} again true for the folder that is already shown; selection and focus are then kept
   * @param {string} [from] the name of the entry to select
   */
  #draw(again, from = '') {
    if (!this.#listing) return;
    const { by, descending } = this.#order;
    const entries = sorted(this.#listing.entries, by, descending, locale);
    if (again) this.#list.update(entries);
    else this.#list.show(entries);
    if (from) this.#list.select(from);
    for (const [key, button] of sortButtons()) {
      const header = /** @type {HTMLElement} */ (button.parentElement);
      header.ariaSort = key === by ? (descending ? 'descending' : 'ascending') : 'none';
    }
    this.#drawCrumbs(this.#listing);
    this.#drawState();
  }

  #drawCrumbs(/** @type {import('./listing.js').Listing} */ { path, parent }) {
    const folders = [{ name: texts.drives, path: '' }, ...crumbs(path, parent)];
    const items = folders.map((folder, i) => {
      const button = make(
        'button',
        { type: 'button', className: 'quiet', onclick: () => this.#go(folder.path) },
        make('bdi', {}, visible(folder.name)),
      );
      if (i === folders.length - 1) button.ariaCurrent = 'location';
      return make('li', {}, button);
    });
    byId('files-crumbs').replaceChildren(...items);
    byId('files-crumbs').scrollLeft = byId('files-crumbs').scrollWidth;
  }

  #drawState() {
    const [list, listing, offered] = [this.#list, this.#listing, this.#offered];
    byId('files-up', HTMLButtonElement).disabled = !listing?.path;
    byId('files-upload', HTMLButtonElement).disabled = !this.#takesFiles;
    const download = byId('files-download', HTMLButtonElement);
    download.disabled = this.#selectedFiles().length === 0;
    const hint = offered.length ? '' : this.#hint();
    download.title = download.disabled ? hint : '';
    byId('files-hint').textContent = hint;
    const put = byId('files-put', HTMLButtonElement);
    put.hidden = offered.length === 0;
    put.disabled = !this.#takesFiles;
    put.textContent = texts.putHere(offered.length);
    byId('files-count').textContent =
      listing && !this.#problem ? texts.entryCount(list.count, list.selected.length) : '';
    byId('files-empty').textContent = this.#problem || texts.folderEmpty;
    byId('files-empty').hidden = !listing || list.count > 0;
  }

  /** What can be done with the selection, or why it cannot be downloaded. */
  #hint() {
    if (!this.#listing || this.#problem) return '';
    const { may } = this.#actions;
    if (!this.#listing.path) return may('files-up') ? texts.hintDrives : '';
    if (!may('files-down')) return '';
    const files = this.#selectedFiles().length;
    const folders = this.#list.selected.length - files;
    if (folders) return files ? texts.hintFoldersLeftOut(folders) : texts.hintFolders;
    const canDrop = may('files-up') && matchMedia('(any-hover: hover)').matches;
    if (files) return canDrop ? texts.hintDrop : '';
    return canDrop ? texts.hintSelectOrDrop : texts.hintSelect;
  }
}

/** The buttons of the column headers, each with its sort key. */
function sortButtons() {
  const buttons = byId('files-head').querySelectorAll('button');
  return [...buttons].map(
    (button) => /** @type {const} */ ([/** @type {SortKey} */ (button.dataset.by), button]),
  );
}
