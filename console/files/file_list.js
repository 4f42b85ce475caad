// The rows of a folder: only those in view are on the page, so that tens of thousands do no harm. Selection and keys as
// in a file manager.
import { make } from '../base/dom.js';
import { visible } from '../base/names.js';

const ROW_PIXELS = 30;
/** Rows beyond each edge that are drawn as well. */
const MARGIN = 8;
const SEARCH_MS = 800;

/** @typedef {import('./listing.js').Entry} Entry */

/** Events: 'open' (detail: entry, by double click or Enter), 'up' (Backspace), 'select'. */
export class FileList extends EventTarget {
  /** @param {HTMLElement} place that scrolls @param {import('./listing.js').Numbers} numbers */
  constructor(place, numbers) {
    super();
    this.place = place;
    this.numbers = numbers;
    this.sheet = make('div', { className: 'file-sheet', role: 'presentation' });
    place.replaceChildren(this.sheet);
    /** @type {Entry[]} */
    this.entries = [];
    /** @type {Set<Entry>} */
    this.selected = new Set();
    this.focus = 0;
    this.anchor = 0;
    this.typed = '';
    this.typedAt = 0;
    /** @type {Map<Entry, HTMLElement>} those on the page; kept while in view, since a double click needs its row to stay */
    this.rows = new Map();
    place.addEventListener('scroll', () => this.draw());
    place.addEventListener('keydown', (event) => this.key(event));
    place.addEventListener('pointerdown', (event) => this.press(event));
    place.addEventListener('dblclick', ({ target }) => this.emitOpen(this.indexAt(target)));
    new ResizeObserver(() => this.draw()).observe(place);
  }

  /** Another folder, or the same one in another order; `keep`: what is selected stays so. */
  show(/** @type {Entry[]} */ entries, keep = false) {
    const focused = this.entries[this.focus];
    this.entries = entries;
    if (!keep) this.selected.clear();
    this.focus = Math.max(0, keep && focused ? entries.findIndex(({ name }) => name === focused.name) : 0);
    this.anchor = this.focus;
    this.sheet.style.height = `${entries.length * ROW_PIXELS}px`;
    if (!keep) this.place.scrollTop = 0;
    this.draw();
    this.emit('select');
  }

  /** Puts the focus on the entry of that name, as after coming up from it. */
  point(/** @type {string} */ name) {
    const at = this.entries.findIndex((entry) => entry.name === name);
    if (at >= 0) this.go(at, {});
  }

  /** In the order of the rows. */
  get chosen() {
    return this.entries.filter((entry) => this.selected.has(entry));
  }

  /** @private */
  draw() {
    const { scrollTop, clientHeight } = this.place;
    const from = Math.max(0, Math.floor(scrollTop / ROW_PIXELS) - MARGIN);
    const to = Math.min(this.entries.length, Math.ceil((scrollTop + clientHeight) / ROW_PIXELS) + MARGIN);
    const inView = new Map(this.entries.slice(from, to).map((entry, i) => [entry, from + i]));
    for (const [entry, row] of this.rows) {
      if (inView.has(entry)) continue;
      row.remove();
      this.rows.delete(entry);
    }
    for (const [entry, index] of inView) this.drawRow(entry, index);
    this.place.setAttribute('aria-activedescendant', this.entries.length ? `file-${this.focus}` : '');
  }

  /** @private The row as it is now. */
  drawRow(/** @type {Entry} */ entry, /** @type {number} */ index) {
    let row = this.rows.get(entry);
    if (!row) {
      row = this.makeRow(entry);
      this.rows.set(entry, row);
      this.sheet.append(row);
    }
    row.id = `file-${index}`;
    row.dataset.index = String(index);
    row.ariaSelected = String(this.selected.has(entry));
    row.ariaPosInSet = String(index + 1);
    row.ariaSetSize = String(this.entries.length);
    row.classList.toggle('has-focus', index === this.focus);
    row.style.top = `${index * ROW_PIXELS}px`;
  }

  /** @private */
  makeRow(/** @type {Entry} */ entry) {
    const { numbers } = this;
    return make(
      'div',
      {
        className: `file ${entry.dir ? 'is-folder' : 'is-file'}`,
        role: 'option',
        title: visible(entry.name),
      },
      make('bdi', { className: 'file-name' }, visible(entry.name)),
      make(
        'span',
        { className: 'file-size', title: entry.dir ? '' : numbers.bytes(entry.size) },
        entry.dir ? '' : numbers.size(entry.size),
      ),
      make('span', { className: 'file-time' }, numbers.time(entry.mtime)),
    );
  }

  /** @private */
  indexAt(/** @type {EventTarget | null} */ target) {
    const row = /** @type {HTMLElement | null} */ (/** @type {Element} */ (target).closest('.file'));
    return row ? Number(row.dataset.index) : -1;
  }

  /** @private */
  press(/** @type {PointerEvent} */ event) {
    const index = this.indexAt(event.target);
    if (event.button !== 0) return;
    if (index >= 0) this.go(index, event);
    else if (event.target === this.sheet || event.target === this.place) {
      this.selected.clear();
      this.draw();
      this.emit('select');
    }
  }

  /** @private Moves the focus, and selects as the modifiers say. */
  go(
    /** @type {number} */ index,
    /** @type {{shiftKey?: boolean, ctrlKey?: boolean, metaKey?: boolean}} */ { shiftKey, ctrlKey, metaKey },
    toggle = true,
  ) {
    const entry = this.entries[index];
    if (!entry) return;
    this.focus = index;
    if (shiftKey) {
      const [from, to] = [Math.min(index, this.anchor), Math.max(index, this.anchor)];
      this.selected = new Set(this.entries.slice(from, to + 1));
    } else {
      this.anchor = index;
      if (!ctrlKey && !metaKey) this.selected = new Set([entry]);
      else if (toggle && !this.selected.delete(entry)) this.selected.add(entry);
    }
    this.reveal();
    this.draw();
    this.emit('select');
  }

  /** @private */
  reveal() {
    const top = this.focus * ROW_PIXELS;
    const { clientHeight } = this.place;
    if (top < this.place.scrollTop) this.place.scrollTop = top;
    else if (top + ROW_PIXELS > this.place.scrollTop + clientHeight)
      this.place.scrollTop = top + ROW_PIXELS - clientHeight;
  }

  /** @private */
  key(/** @type {KeyboardEvent} */ event) {
    const { key, ctrlKey, metaKey } = event;
    const searching = this.typed !== '' && performance.now() - this.typedAt < SEARCH_MS;
    const page = Math.max(1, Math.floor(this.place.clientHeight / ROW_PIXELS) - 1);
    const steps = /** @type {Record<string, number>} */ ({
      ArrowUp: -1,
      ArrowDown: 1,
      PageUp: -page,
      PageDown: page,
      Home: -Infinity,
      End: Infinity,
    });
    if (key in steps) {
      this.typed = '';
      const last = this.entries.length - 1;
      this.go(Math.min(last, Math.max(0, this.focus + steps[key])), event, false);
    } else if (key === 'Enter') this.emitOpen(this.focus);
    else if (key === 'Backspace') this.emit('up');
    else if (key === ' ' && !searching) this.go(this.focus, { ctrlKey: true });
    else if ((ctrlKey || metaKey) && key.toLowerCase() === 'a') this.selectAll();
    else if ([...key].length === 1 && !ctrlKey && !metaKey && !event.altKey) this.search(key);
    else return;
    event.preventDefault();
  }

  /** @private */
  selectAll() {
    this.selected = new Set(this.entries);
    this.draw();
    this.emit('select');
  }

  /** @private Letters lead to the next name that begins with them. */
  search(/** @type {string} */ letter) {
    const now = performance.now();
    this.typed = (now - this.typedAt < SEARCH_MS ? this.typed : '') + letter.toLowerCase();
    this.typedAt = now;
    const { length } = this.entries;
    const first = this.focus + (this.typed.length === 1 ? 1 : 0);
    for (let i = 0; i < length; i++) {
      const at = (first + i) % length;
      if (!this.entries[at].name.toLowerCase().startsWith(this.typed)) continue;
      this.go(at, {});
      return;
    }
  }

  /** @private */
  emitOpen(/** @type {number} */ index) {
    const entry = this.entries[index];
    if (entry) this.dispatchEvent(new CustomEvent('open', { detail: entry }));
  }

  /** @private */
  emit(/** @type {string} */ name) {
    this.dispatchEvent(new Event(name));
  }
}
