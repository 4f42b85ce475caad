// The page of the versions that agents are offered.
import { make } from '../../base/dom.js';
import { tidy } from '../../base/names.js';
import { get } from '../../link/api.js';
import { bdi, formats, moment, section } from '../parts/elements.js';
import { Table } from '../parts/table.js';
import { texts } from '../texts/texts.js';

/** count: how often. @typedef {{address: string, time: number, count: number}} Fetch */
/** @typedef {{version: string, file: string, sha256: string, bytes: number, fetched: Fetch[]}} Offer */

const OWN = texts.updates;
/** The number of machines that are named; the rest are counted. */
const NAMED = 10;

export class UpdatesPage {
  element = make('div', {});
  #problem = make('p', { className: 'error', role: 'status' });
  #table = new Table({
    name: texts.titles.updates,
    empty: OWN.none,
    keyOf: (/** @type {Offer} */ { version, file }) => `${version}/${file}`,
    columns: [
      { title: OWN.version, heads: true, cell: ({ version }) => bdi(version) },
      { title: OWN.file, cell: ({ file }) => bdi(file) },
      { title: OWN.size, cell: ({ bytes }) => formats.size(Number(bytes) || 0) },
      { title: OWN.hash, cell: ({ sha256 }) => make('code', { className: 'hash' }, tidy(sha256)) },
      { title: OWN.fetched, cell: ({ fetched }) => fetchedBy(fetched) },
    ],
  });

  constructor() {
    const intro = make('p', { className: 'muted' }, OWN.intro);
    this.element.append(section(texts.titles.updates, intro, this.#problem, this.#table.element));
  }

  async load() {
    const { offered, problem } = await get('/api/updates');
    this.#problem.textContent = problem ? OWN.problem(tidy(problem)) : '';
    this.#table.update(Array.isArray(offered) ? offered : []);
  }
}

function fetchedBy(/** @type {Fetch[] | undefined} */ fetched) {
  if (!fetched?.length) return make('span', { className: 'muted' }, OWN.nobody);
  const lines = fetched.slice(0, NAMED).map(({ address, time, count }) => {
    const times = count > 1 ? ` (${OWN.times(count)})` : '';
    return make('li', {}, address, times, make('small', {}, moment(time)));
  });
  if (fetched.length > NAMED) lines.push(make('li', {}, OWN.more(fetched.length - NAMED)));
  return make('ul', { className: 'plain' }, ...lines);
}
