// The side panel with the machine's folders: where one is, what is there, and the ways in and out for files.
import { byId, make } from '../base/dom.js';
import { carriesFiles, droppedFiles } from '../base/dropped.js';
import { visible } from '../base/names.js';
import { crumbs, lastPart } from '../base/paths.js';
import { texts } from '../base/texts.js';
import { FileList } from './file_list.js';
import { sorted } from './listing.js';

/** @typedef {import('./listing.js').Entry} Entry */

const PANEL = 'files';

export class FilePanel {
  /**
   * @param {import('../session/panels.js').Panels} panels
   * @param {import('./folders.js').Folders} folders
   * @param {import('./listing.js').Numbers} numbers
   * @param {{download: (entries: Entry[]) => void,
   *   upload: (files: {file: File, path?: string}[], folder: string) => Promise<void>}} acts
   */
  constructor(panels, folders, numbers, acts) {
    this.panels = panels;
    this.folders = folders;
    this.acts = acts;
    this.panel = byId('files');
    this.list = new FileList(byId('files-list'), numbers);
    /** @type {import('./listing.js').Listing | null} the folder that is shown */
    this.listing = null;
    /** The folder that was asked for last. */
    this.wanted = '';
    this.order = { by: /** @type {'name' | 'size' | 'mtime'} */ ('name'), descending: false };
    /** @type {{file: File, path?: string}[]} files that wait for a folder to be chosen */
    this.waiting = [];
    panels
      .add({ name: PANEL, title: texts.files, onToggle: (open) => this.toggled(open) })
      .append(this.panel);
    this.attach();
  }

  get shown() {
    return this.panels.open === PANEL;
  }

  /** @private */
  toggled(/** @type {boolean} */ open) {
    if (!open) this.waiting = [];
    if (open && !this.listing) this.go('');
    if (open) this.list.place.focus();
    this.drawState();
  }

  /** A session runs: a panel that is open shows where it was. */
  start() {
    if (this.shown) this.go(this.wanted);
  }

  /** Another machine has other folders. */
  reset() {
    this.listing = null;
    this.wanted = '';
    this.waiting = [];
    this.list.show([]);
    this.panels.toggle(PANEL, false);
    this.drawState();
  }

  /** Shows a folder; the one before stays until the machine has answered. */
  async go(/** @type {string} */ path, from = '') {
    this.wanted = path;
    this.panel.ariaBusy = 'true';
    try {
      const listing = await this.folders.list(path);
      // A folder that was asked for later is on its way.
      if (this.wanted !== path) return;
      const again = this.listing?.path === path;
      this.listing = listing;
      this.draw(again, from);
    } catch {
      // The session is over; its words stand over the picture.
    }
    if (this.wanted === path) this.panel.ariaBusy = 'false';
  }

  /** Files for which a folder is yet to be chosen. */
  offer(/** @type {{file: File, path?: string}[]} */ files) {
    this.panels.toggle(PANEL, true);
    this.waiting = files;
    this.drawState();
  }

  /** @private */
  attach() {
    const { list } = this;
    list.addEventListener('open', (/** @type {any} */ { detail }) => this.open(detail));
    list.addEventListener('up', () => this.up());
    list.addEventListener('select', () => this.drawState());
    list.place.addEventListener('paste', async (/** @type {ClipboardEvent} */ { clipboardData }) => {
      if (clipboardData) this.upload(await droppedFiles(clipboardData));
    });
    byId('files-up').addEventListener('click', () => this.up());
    byId('files-again').addEventListener('click', () => this.go(this.wanted));
    byId('files-download').addEventListener('click', () =>
      this.acts.download(list.chosen.filter(({ dir }) => !dir)),
    );
    byId('files-upload').addEventListener('click', () => byId('files-input').click());
    byId('files-input').addEventListener('change', ({ target }) => {
      this.upload([...target.files].map((file) => ({ file })));
      target.value = '';
    });
    byId('files-put').addEventListener('click', () => this.upload(this.waiting));
    for (const button of byId('files-head').querySelectorAll('button'))
      button.addEventListener('click', () => this.sort(button.dataset.by));
    this.attachDrop();
  }

  /** @private */
  attachDrop() {
    const { panel } = this;
    panel.addEventListener('dragover', (/** @type {DragEvent} */ event) => {
      if (!carriesFiles(event.dataTransfer)) return;
      event.preventDefault();
      event.stopPropagation();
      /** @type {DataTransfer} */ (event.dataTransfer).dropEffect = this.listing?.path ? 'copy' : 'none';
      panel.classList.toggle('is-target', !!this.listing?.path);
    });
    panel.addEventListener('dragleave', (/** @type {DragEvent} */ event) => {
      if (!panel.contains(/** @type {Node} */ (event.relatedTarget))) panel.classList.remove('is-target');
    });
    panel.addEventListener('drop', async (/** @type {DragEvent} */ event) => {
      panel.classList.remove('is-target');
      if (!carriesFiles(event.dataTransfer)) return;
      event.preventDefault();
      event.stopPropagation();
      this.upload(await droppedFiles(/** @type {DataTransfer} */ (event.dataTransfer)));
    });
  }

  /** @private */
  open(/** @type {Entry} */ entry) {
    if (entry.dir) this.go(entry.path);
    else this.acts.download(this.list.chosen.filter(({ dir }) => !dir));
  }

  /** @private */
  up() {
    const { listing } = this;
    if (listing?.path) this.go(listing.parent, lastPart(listing.path));
  }

  /** @private Puts files into the folder that is shown, and shows it again when they are there. */
  async upload(/** @type {{file: File, path?: string}[]} */ files) {
    const folder = this.listing?.path;
    if (!folder || !files.length) return;
    this.waiting = [];
    this.drawState();
    await this.acts.upload(files, folder).catch(() => {});
    if (this.shown && this.wanted === folder) this.go(folder);
  }

  /** @private */
  sort(/** @type {'name' | 'size' | 'mtime'} */ by) {
    const { order } = this;
    this.order = { by, descending: order.by === by ? !order.descending : by !== 'name' };
    this.draw(true);
  }

  /** @private `again`: the same folder, where the representative has a place and a selection */
  draw(again = false, from = '') {
    if (!this.listing) return;
    const { by, descending } = this.order;
    const { selected } = this.list;
    const before = new Map([...selected].map((entry) => [entry.name, true]));
    const entries = sorted(this.listing.entries, by, descending, navigator.language);
    if (again) this.list.selected = new Set(entries.filter(({ name }) => before.has(name)));
    this.list.show(entries, again);
    if (from) this.list.point(from);
    for (const button of byId('files-head').querySelectorAll('button'))
      button.parentElement.ariaSort =
        button.dataset.by === by ? (descending ? 'descending' : 'ascending') : 'none';
    this.drawCrumbs(this.listing);
    this.drawState();
  }

  /** @private */
  drawCrumbs(/** @type {import('./listing.js').Listing} */ { path, parent }) {
    const places = [{ name: texts.drives, path: '' }, ...crumbs(path, parent)];
    byId('files-crumbs').replaceChildren(
      ...places.map((place, i) => {
        const button = make(
          'button',
          { type: 'button', className: 'quiet', onclick: () => this.go(place.path) },
          make('bdi', {}, visible(place.name)),
        );
        if (i === places.length - 1) button.ariaCurrent = 'location';
        return make('li', {}, button);
      }),
    );
    byId('files-crumbs').scrollLeft = byId('files-crumbs').scrollWidth;
  }

  /** @private */
  drawState() {
    const { list, listing } = this;
    const chosen = list.chosen.filter(({ dir }) => !dir).length;
    const inFolder = !!listing?.path;
    byId('files-up').disabled = !inFolder;
    byId('files-upload').disabled = !inFolder;
    byId('files-download').disabled = chosen === 0;
    byId('files-put').hidden = this.waiting.length === 0;
    byId('files-put').disabled = !inFolder;
    byId('files-put').textContent = texts.putHere(this.waiting.length);
    byId('files-count').textContent = listing
      ? texts.entryCount(list.entries.length, list.selected.size)
      : '';
    byId('files-empty').hidden = !listing || list.entries.length > 0;
  }
}
