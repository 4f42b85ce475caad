// The rows of a folder, with selection and keys as in a file manager. Only the rows in view are elements of
// the page, so that folders with tens of thousands of entries stay fast.
import { emit } from '../base/custom_events.js';
import { make } from '../base/dom.js';
import { visible } from '../base/names.js';

const ROW_PIXELS = 30;
/** On a narrow page, size and time stand below the name, and a row is high enough for a finger. */
const NARROW_ROW_PIXELS = 52;
/** The same condition as in files.css. */
const NARROW_PAGE = '(max-width: 640px)';
/** Rows that are drawn beyond each edge of the view. */
const MARGIN_ROWS = 8;
/** Letters typed within this time of each other form one search text. */
const SEARCH_MS = 800;

/** @typedef {import('./listing.js').Entry} Entry */
/** @typedef {{shiftKey?: boolean, ctrlKey?: boolean, metaKey?: boolean}} Modifiers */

/**
 * Events: 'open' after a double click or Enter (detail: the entry), 'up' after Backspace, 'select' when the
 * selection may have changed.
 */
export class FileList extends EventTarget {
  #place;
  #formats;
  #sheet;
  /** @type {Entry[]} */
  #entries = [];
  /** @type {Set<Entry>} */
  #selected = new Set();
  #focus = 0;
  /** The row at which a selection with Shift begins. */
  #anchor = 0;
  #searchText = '';
  #searchedAt = 0;
  #rowPixels = ROW_PIXELS;
  /** Whether the last press was that of a finger. */
  #touched = false;
  /**
   * The rows in view. A row keeps its element while it is in view, because both clicks of a double click have
   * to hit the same element.
   * @type {Map<Entry, HTMLElement>}
   */
  #rows = new Map();

  /**
   * @param {HTMLElement} place the element that scrolls
   * @param {import('../base/formats.js').Formats} formats
   */
  constructor(place, formats) {
    super();
    this.#place = place;
    this.#formats = formats;
    this.#sheet = make('div', { className: 'file-sheet', role: 'presentation' });
    place.replaceChildren(this.#sheet);
    place.addEventListener('scroll', () => this.#draw());
    place.addEventListener('keydown', (event) => this.#key(event));
    place.addEventListener('pointerdown', (event) => this.#press(event));
    place.addEventListener('click', ({ target }) => this.#tap(this.#indexAt(target)));
    place.addEventListener('dblclick', ({ target }) => {
      if (!this.#touched) this.#emitOpen(this.#indexAt(target));
    });
    const narrow = matchMedia(NARROW_PAGE);
    narrow.addEventListener('change', () => this.#setRowHeight(narrow.matches));
    this.#setRowHeight(narrow.matches);
    new ResizeObserver(() => this.#draw()).observe(place);
  }

  /** Shows the entries of another folder from the top, with nothing selected. */
  show(/** @type {Entry[]} */ entries) {
    this.#selected.clear();
    this.#replace(entries, 0);
    this.#place.scrollTop = 0;
    this.#draw();
    emit(this, 'select');
  }

  /** Shows the same folder again, or in another order, and keeps selection and focus. */
  update(/** @type {Entry[]} */ entries) {
    const focused = this.#entries[this.#focus];
    const selected = new Set([...this.#selected].map(({ name }) => name));
    this.#selected = new Set(entries.filter(({ name }) => selected.has(name)));
    this.#replace(entries, focused ? entries.findIndex(({ name }) => name === focused.name) : 0);
    this.#draw();
    emit(this, 'select');
  }

  /** Focuses and selects the entry with this name. */
  select(/** @type {string} */ name) {
    const at = this.#entries.findIndex((entry) => entry.name === name);
    if (at >= 0) this.#go(at, {});
  }

  takeFocus() {
    this.#place.focus();
  }

  get count() {
    return this.#entries.length;
  }

  /** The selected entries in the order of the rows. */
  get selected() {
    return this.#entries.filter((entry) => this.#selected.has(entry));
  }

  #replace(/** @type {Entry[]} */ entries, /** @type {number} */ focus) {
    this.#entries = entries;
    this.#focus = Math.max(0, focus);
    this.#anchor = this.#focus;
    this.#sheet.style.height = `${entries.length * this.#rowPixels}px`;
  }

  #draw() {
    const { scrollTop, clientHeight } = this.#place;
    const from = Math.max(0, Math.floor(scrollTop / this.#rowPixels) - MARGIN_ROWS);
    const to = Math.min(
      this.#entries.length,
      Math.ceil((scrollTop + clientHeight) / this.#rowPixels) + MARGIN_ROWS,
    );
    const inView = new Map(this.#entries.slice(from, to).map((entry, i) => [entry, from + i]));
    for (const [entry, row] of this.#rows) {
      if (inView.has(entry)) continue;
      row.remove();
      this.#rows.delete(entry);
    }
    for (const [entry, index] of inView) this.#drawRow(entry, index);
    this.#place.setAttribute('aria-activedescendant', this.#entries.length ? `file-${this.#focus}` : '');
  }

  #drawRow(/** @type {Entry} */ entry, /** @type {number} */ index) {
    let row = this.#rows.get(entry);
    if (!row) {
      row = this.#makeRow(entry);
      this.#rows.set(entry, row);
      this.#sheet.append(row);
    }
    row.id = `file-${index}`;
    row.dataset.index = String(index);
    row.ariaSelected = String(this.#selected.has(entry));
    row.ariaPosInSet = String(index + 1);
    row.ariaSetSize = String(this.#entries.length);
    row.classList.toggle('has-focus', index === this.#focus);
    row.style.top = `${index * this.#rowPixels}px`;
  }

  #makeRow(/** @type {Entry} */ { name, dir, size, mtime }) {
    const formats = this.#formats;
    const sizeProperties = { className: 'file-size', title: dir ? '' : formats.bytes(size) };
    return make(
      'div',
      { className: `file ${dir ? 'is-folder' : 'is-file'}`, role: 'option', title: visible(name) },
      make('bdi', { className: 'file-name' }, visible(name)),
      make('span', sizeProperties, dir ? '' : formats.size(size)),
      make('span', { className: 'file-time' }, formats.time(mtime)),
    );
  }

  /** The index of the row that an event hit; -1 when the event hit no row. */
  #indexAt(/** @type {EventTarget | null} */ target) {
    const row = target instanceof Element ? target.closest('.file') : null;
    return row instanceof HTMLElement ? Number(row.dataset.index) : -1;
  }

  #setRowHeight(/** @type {boolean} */ narrow) {
    this.#rowPixels = narrow ? NARROW_ROW_PIXELS : ROW_PIXELS;
    this.#place.style.setProperty('--file-row', `${this.#rowPixels}px`);
    this.#replace(this.#entries, this.#focus);
    this.#draw();
  }

  /** Handles a tap: it opens a folder, and selects a file in addition to the others or deselects it. */
  #tap(/** @type {number} */ index) {
    const entry = this.#entries[index];
    if (!this.#touched || !entry) return;
    if (entry.dir) this.#emitOpen(index);
    else this.#go(index, { ctrlKey: true });
  }

  #press(/** @type {PointerEvent} */ event) {
    const index = this.#indexAt(event.target);
    // The touch of a finger may begin a scroll.
    this.#touched = event.pointerType === 'touch';
    if (event.button !== 0 || this.#touched) return;
    if (index >= 0) this.#go(index, event);
    else if (event.target === this.#sheet || event.target === this.#place) {
      this.#selected.clear();
      this.#draw();
      emit(this, 'select');
    }
  }

  /**
   * Moves the focus to a row, and changes the selection according to the modifier keys.
   * @param {number} index
   * @param {Modifiers} modifiers
   * @param {boolean} [toggle] whether Ctrl changes the selection of the row
   */
  #go(index, { shiftKey, ctrlKey, metaKey }, toggle = true) {
    const entry = this.#entries[index];
    if (!entry) return;
    this.#focus = index;
    if (shiftKey) {
      const [from, to] = [Math.min(index, this.#anchor), Math.max(index, this.#anchor)];
      this.#selected = new Set(this.#entries.slice(from, to + 1));
    } else {
      this.#anchor = index;
      if (!ctrlKey && !metaKey) this.#selected = new Set([entry]);
      else if (toggle && !this.#selected.delete(entry)) this.#selected.add(entry);
    }
    this.#reveal();
    this.#draw();
    emit(this, 'select');
  }

  #reveal() {
    const top = this.#focus * this.#rowPixels;
    const place = this.#place;
    if (top < place.scrollTop) place.scrollTop = top;
    else if (top + this.#rowPixels > place.scrollTop + place.clientHeight)
      place.scrollTop = top + this.#rowPixels - place.clientHeight;
  }

  #key(/** @type {KeyboardEvent} */ event) {
    const { key, ctrlKey, metaKey } = event;
    const searching = this.#searchText !== '' && performance.now() - this.#searchedAt < SEARCH_MS;
    const step = this.#stepOf(key);
    if (step !== undefined) {
      this.#searchText = '';
      const last = this.#entries.length - 1;
      this.#go(Math.min(last, Math.max(0, this.#focus + step)), event, false);
    } else if (key === 'Enter') this.#emitOpen(this.#focus);
    else if (key === 'Backspace') emit(this, 'up');
    else if (key === ' ' && !searching) this.#go(this.#focus, { ctrlKey: true });
    else if ((ctrlKey || metaKey) && key.toLowerCase() === 'a') this.#selectAll();
    else if ([...key].length === 1 && !ctrlKey && !metaKey && !event.altKey) this.#search(key);
    else return;
    event.preventDefault();
  }

  /** The number of rows by which a key moves the focus; undefined for keys that do not move it. */
  #stepOf(/** @type {string} */ key) {
    const page = Math.max(1, Math.floor(this.#place.clientHeight / this.#rowPixels) - 1);
    const steps = new Map([
      ['ArrowUp', -1],
      ['ArrowDown', 1],
      ['PageUp', -page],
      ['PageDown', page],
      ['Home', -Infinity],
      ['End', Infinity],
    ]);
    return steps.get(key);
  }

  #selectAll() {
    this.#selected = new Set(this.#entries);
    this.#draw();
    emit(this, 'select');
  }

  /** Goes to the next entry whose name begins with the letters typed so far. */
  #search(/** @type {string} */ letter) {
    const now = performance.now();
    this.#searchText = (now - this.#searchedAt < SEARCH_MS ? this.#searchText : '') + letter.toLowerCase();
    this.#searchedAt = now;
    const { length } = this.#entries;
    const first = this.#focus + (this.#searchText.length === 1 ? 1 : 0);
    for (let i = 0; i < length; i++) {
      const at = (first + i) % length;
      if (!this.#entries[at].name.toLowerCase().startsWith(this.#searchText)) continue;
      this.#go(at, {});
      return;
    }
  }

  #emitOpen(/** @type {number} */ index) {
    const entry = this.#entries[index];
    if (entry) emit(this, 'open', entry);
  }
}
