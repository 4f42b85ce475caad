// The page of the relay's status: what it serves, what it uses, and when its certificate ends.
import { make } from '../../base/dom.js';
import { tidy } from '../../base/names.js';
import { get } from '../../link/api.js';
import { Refresh } from '../parts/context.js';
import { bdi, formats, moment, section, tag } from '../parts/elements.js';
import { texts } from '../texts/texts.js';

/** Sizes are in bytes, times in seconds since 1970. @typedef {{version: string, started: number,
 *   machines: {online: number, waiting: number}, sessions: {asked: number, running: number, held: number},
 *   browsers: number, streams: number, pictures_per_second: number,
 *   memory: {resident: number, messages: number, messages_limit: number},
 *   queues: {agents: number, browsers: number},
 *   disk: {data_free: number, spool_free: number, spool: number, spool_limit: number},
 *   database: {jobs: number, jobs_limit: number, most_within_ms: number | null}, loop_lag_ms: number,
 *   certificate: import('../parts/certificate.js').Certificate, backup: number | null}} Status */

const OWN = texts.status;

export class StatusPage {
  element = make('div', {});
  #lists = make('div', {});
  #refresh;

  constructor(/** @type {import('../parts/context.js').Context} */ context) {
    this.#refresh = new Refresh(
      (asking) => this.#fetch(asking),
      (error) => context.fail(error),
    );
    this.element.append(this.#lists);
  }

  async load() {
    await this.#fetch();
    this.#refresh.start();
  }

  stop() {
    this.#refresh.stop();
  }

  /** @param {import('../../link/api.js').Asking} [asking] */
  async #fetch(asking) {
    const status = /** @type {Status} */ (/** @type {unknown} */ (await get('/api/status', asking)));
    this.#lists.replaceChildren(
      list(texts.titles.status, relayLines(status)),
      list(OWN.use, useLines(status)),
      list(OWN.resources, resourceLines(status)),
      list(OWN.storage, storageLines(status)),
    );
  }
}

/** @typedef {[name: string, ...values: (Node | string)[]]} Line */

/** @param {string} title @param {Line[]} lines */
function list(title, lines) {
  const parts = lines.flatMap(([name, ...values]) => [make('dt', {}, name), make('dd', {}, ...values)]);
  return section(title, make('dl', { className: 'facts' }, ...parts));
}

/** @param {import('../parts/certificate.js').End} authority @returns {Line} */
const authorityLine = ({ ends, ends_soon: soon }) => [
  OWN.authority,
  moment(ends),
  ...(soon ? [' ', tag(OWN.soon, 'bad')] : []),
];

/** @param {Status} status @returns {Line[]} */
function relayLines({ version, started, certificate, backup }) {
  return [
    [OWN.version, bdi(version)],
    [OWN.started, moment(started)],
    [
      OWN.certificate,
      moment(certificate.ends),
      ...(certificate.ends_soon ? [' ', tag(OWN.soon, 'bad')] : []),
    ],
    ...(certificate.authority ? [authorityLine(certificate.authority)] : []),
    ...(certificate.problem
      ? [/** @type {Line} */ ([OWN.certificateProblem, tidy(certificate.problem)])]
      : []),
    [OWN.backup, backup ? moment(backup) : OWN.noBackup],
  ];
}

/** @param {Status} status @returns {Line[]} */
function useLines({ machines, sessions, browsers, streams, pictures_per_second: pictures }) {
  return [
    [OWN.online, count(machines.online)],
    [OWN.waiting, count(machines.waiting)],
    [OWN.sessions, OWN.sessionCounts(count(sessions.running), count(sessions.held), count(sessions.asked))],
    [OWN.browsers, count(browsers)],
    [OWN.streams, count(streams)],
    [OWN.pictures, count(pictures)],
  ];
}

/** @param {Status} status @returns {Line[]} */
function resourceLines({ memory, queues, loop_lag_ms: lag }) {
  return [
    [OWN.memory, formats.size(memory.resident)],
    [OWN.messages, share(memory.messages, memory.messages_limit)],
    [OWN.agentQueues, formats.size(queues.agents)],
    [OWN.browserQueues, formats.size(queues.browsers)],
    [OWN.lag, OWN.milliseconds(count(lag))],
  ];
}

/** @param {Status} status @returns {Line[]} */
function storageLines({ disk, database }) {
  const most = database.most_within_ms;
  return [
    [OWN.dataFree, formats.size(disk.data_free)],
    [OWN.spoolFree, formats.size(disk.spool_free)],
    [OWN.spool, share(disk.spool, disk.spool_limit)],
    [OWN.jobs, OWN.of(count(database.jobs), count(database.jobs_limit))],
    [OWN.jobTimes, most === null ? OWN.unknown : OWN.milliseconds(count(most))],
  ];
}

/** @param {number} used @param {number} limit */
const share = (used, limit) => OWN.of(formats.size(used), formats.size(limit));

const numbers = new Intl.NumberFormat(texts.language);
const count = (/** @type {number} */ value) => numbers.format(Number(value) || 0);
