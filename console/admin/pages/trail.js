// The page of the trail: a filter, one page of events at a time, and exports. The address contains the filter and the
// page, so that loading the page again and going back work.
import { make } from '../../base/dom.js';
import { locale } from '../../base/locale.js';
import { tidy } from '../../base/names.js';
import { field, valuesOf } from '../../base/ui/fields.js';
import { get } from '../../link/api.js';
import { bdi, button, host, section } from '../parts/elements.js';
import { Table } from '../parts/table.js';
import { texts } from '../texts/texts.js';

/** @typedef {{id: number, time: number, code: string, actor: string, machine: string, machine_name?: string,
 *   address: string, session: number | null, fields: Record<string, unknown>}} Event */

const OWN = texts.trail;
const ADDRESS = '#admin/trail';
const LIMIT = 100;
/** The most requests for one page. */
const MOST_REQUESTS = 100;
/** The filter's parameters, which have the same names in the address and in the requests to the relay. */
const NAMES = /** @type {const} */ (['person', 'machine', 'kind', 'from', 'to', 'text']);
const FIELDS = /** @type {Record<string, string>} */ (OWN.fields);
const KINDS = /** @type {Record<string, string>} */ (OWN.kinds);

const moments = new Intl.DateTimeFormat(locale, { dateStyle: 'short', timeStyle: 'medium' });

/** The local time of a field as milliseconds since 1970; '' for none. */
function instant(/** @type {string} */ text) {
  const time = new Date(text).getTime();
  return Number.isNaN(time) ? '' : String(time);
}

export class TrailPage {
  element = make('div', {});
  #filter = make('form', { className: 'tools filter', role: 'search', ariaLabel: OWN.filter });
  #newest = make('a', { className: 'page-link' }, OWN.newest);
  #older = make('a', { className: 'page-link' }, OWN.older);
  #csv = make('a', { className: 'page-link', download: 'trail.csv' }, OWN.csv);
  #lines = make('a', { className: 'page-link', download: 'trail.jsonl' }, OWN.lines);
  #table = new Table({
    name: OWN.list,
    empty: OWN.none,
    keyOf: (/** @type {Event} */ { id }) => String(id),
    columns: [
      { title: OWN.time, heads: true, cell: ({ time }) => moments.format(time) },
      { title: OWN.kind, cell: ({ code }) => KINDS[code] ?? tidy(code) },
      { title: OWN.person, cell: ({ actor }) => bdi(actor || '–') },
      { title: OWN.machine, cell: machineCell },
      { title: OWN.details, cell: ({ fields, session }) => details(fields, session) },
      { title: OWN.address, className: 'address', cell: ({ address }) => from(address) },
    ],
  });

  constructor() {
    this.#filter.addEventListener('submit', (event) => {
      event.preventDefault();
      location.hash = this.#fields ? `${ADDRESS}?${queryOf(valuesOf(this.#fields))}` : ADDRESS;
    });
    const pages = make('nav', { className: 'tools', ariaLabel: OWN.pages }, this.#newest, this.#older);
    const exports = make('div', { className: 'tools' }, this.#csv, this.#lines);
    this.element.append(
      section(OWN.filter, this.#filter, exports),
      section(OWN.list, this.#table.element, pages),
    );
  }

  #searches = 0;

  /** The kinds of events that have appeared and have no name here. @type {Set<string>} */
  #others = new Set();

  /** @type {import('../../base/ui/fields.js').Field[] | undefined} */
  #fields;

  /** @param {string} _rest @param {URLSearchParams} query the filter and `before`, the event that the page precedes */
  async load(_rest, query) {
    this.#drawFilter(query);
    const wanted = new URLSearchParams();
    for (const name of NAMES) if (query.get(name)) wanted.set(name, query.get(name) ?? '');
    this.#drawExports(wanted);
    const before = query.get('before');
    this.#newest.hidden = !before;
    this.#newest.href = `${ADDRESS}?${wanted}`;
    const events = await this.#search(wanted, before ?? '');
    const others = this.#others.size;
    for (const { code } of events) if (!(code in KINDS)) this.#others.add(code);
    if (this.#others.size > others) this.#drawFilter(query);
  }

  /**
   * Shows the newest events before an event. The relay ends a search after a while with what it has found, so it is
   * asked to go on until the page is full.
   * @param {URLSearchParams} wanted the filter
   * @param {string} before '' for the newest events
   * @returns {Promise<Event[]>}
   */
  async #search(wanted, before) {
    const search = ++this.#searches;
    /** @type {Event[]} */
    const events = [];
    for (let asked = 0; asked < MOST_REQUESTS; asked++) {
      const limit = String(LIMIT - events.length);
      const query = new URLSearchParams([
        ...wanted,
        ...(before ? [['before', before]] : []),
        ['limit', limit],
      ]);
      const { rows, more, next } = await get(`/api/trail?${query}`);
      if (search !== this.#searches) break;
      events.push(.../** @type {Event[]} */ (Array.isArray(rows) ? rows : []));
      before = String(next ?? '');
      this.#older.hidden = !more;
      this.#older.href = `${ADDRESS}?${new URLSearchParams([...wanted, ['before', before]])}`;
      if (events.length) this.#table.update(events);
      if (!more || events.length >= LIMIT) break;
    }
    if (search === this.#searches) this.#table.update(events);
    return events;
  }

  /** Shows the filter of the address in the fields. */
  #drawFilter(/** @type {URLSearchParams} */ query) {
    const of = (/** @type {string} */ name) => query.get(name) ?? '';
    const known = Object.entries(KINDS).map(([value, label]) => ({ value, label }));
    const kind = of('kind');
    if (kind && !(kind in KINDS)) this.#others.add(kind);
    known.push(...[...this.#others].map((code) => ({ value: code, label: code })));
    known.sort((a, b) => a.label.localeCompare(b.label, texts.language));
    this.#fields = [
      field({ name: 'person', label: OWN.person, value: of('person'), more: { autocomplete: 'off' } }),
      field({ name: 'machine', label: OWN.machineId, value: of('machine'), more: { autocomplete: 'off' } }),
      field({
        name: 'kind',
        label: OWN.kind,
        kind: 'select',
        value: kind,
        choices: [{ value: '', label: OWN.anyKind }, ...known],
      }),
      field({ name: 'from', label: OWN.from, kind: 'datetime-local', value: localTime(of('from')) }),
      field({ name: 'to', label: OWN.to, kind: 'datetime-local', value: localTime(of('to')) }),
      field({
        name: 'text',
        label: OWN.text,
        kind: 'search',
        value: of('text'),
        more: { minLength: 3, maxLength: 200 },
      }),
    ];
    const focused = document.activeElement;
    const name = focused instanceof HTMLInputElement && this.#filter.contains(focused) ? focused.name : '';
    const clear = button(OWN.clear, () => {
      location.hash = ADDRESS;
    });
    const apply = make('button', { className: 'primary' }, OWN.apply);
    const buttons = make('div', { className: 'tools together' }, apply, clear);
    this.#filter.replaceChildren(...this.#fields.map(({ element }) => element), buttons);
    this.#fields.find((one) => one.name === name)?.focus();
  }

  #drawExports(/** @type {URLSearchParams} */ wanted) {
    const link = (/** @type {string} */ format) =>
      `/api/trail/export?${new URLSearchParams([['format', format], ...wanted])}`;
    this.#csv.href = link('csv');
    this.#lines.href = link('jsonl');
  }
}

/** A time in milliseconds since 1970 in the form that a field for times has. */
function localTime(/** @type {string} */ ms) {
  const time = Number(ms);
  if (!time) return '';
  const shifted = new Date(time - new Date(time).getTimezoneOffset() * 60_000);
  return shifted.toISOString().slice(0, 16);
}

/** The address's query for the filter's fields. @param {import('../../base/ui/fields.js').Values} values */
function queryOf(values) {
  const query = new URLSearchParams();
  for (const name of NAMES) {
    const typed = String(values[name] ?? '').trim();
    const value = name === 'from' || name === 'to' ? instant(typed) : typed;
    if (value) query.set(name, value);
  }
  return query;
}

/** Where an event came from. The port is in the exports, and in the hint. */
function from(/** @type {string} */ address) {
  return make('span', { title: address }, host(address) || '–');
}

/** The machine of an event; the link leads to all its events. */
function machineCell(/** @type {Event} */ { machine, machine_name: name }) {
  if (!machine) return '–';
  return make('a', { href: `${ADDRESS}?${new URLSearchParams({ machine })}` }, bdi(name || machine));
}

/** What an event says besides its columns. @param {Record<string, unknown>} fields @param {number | null} session */
function details(fields, session) {
  const all = { ...(session === null ? {} : { [OWN.session]: session }), ...fields };
  const items = Object.entries(all).map(([name, value]) => {
    const text = typeof value === 'object' ? JSON.stringify(value) : String(value);
    return make('li', {}, make('span', { className: 'muted' }, `${FIELDS[name] ?? tidy(name)}: `), bdi(text));
  });
  return items.length ? make('ul', { className: 'plain' }, ...items) : '–';
}
