// The page of running sessions and log-ins, which an administrator can end.
import { make } from '../../base/dom.js';
import { inSentence, tidy } from '../../base/names.js';
import { remove } from '../../link/api.js';
import { ask, Refresh } from '../parts/context.js';
import { listAt } from '../parts/data.js';
import { bdi, button, host, moment, section, tag } from '../parts/elements.js';
import { Table } from '../parts/table.js';
import { texts } from '../texts/texts.js';

/** @typedef {{session: number, machine: string, person: string, state: string, since: number, reason: string,
 *   address: string}} Running */
/** @typedef {{id: number | string, person: string, address: string, created_at: number, last_used: number,
 *   expires_at: number, own: boolean}} OpenLogin */

const OWN = texts.activity;

export class ActivityPage {
  element = make('div', {});
  #context;
  #sessions;
  #logins;
  #refresh;

  constructor(/** @type {import('../parts/context.js').Context} */ context) {
    this.#context = context;
    this.#refresh = new Refresh(
      (asking) => this.#fetch(asking),
      (error) => context.fail(error),
    );
    this.#sessions = this.#sessionTable();
    this.#logins = this.#loginTable();
    this.element.append(
      section(OWN.sessions, this.#sessions.element),
      section(OWN.logins, this.#logins.element),
    );
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
    const [sessions, logins] = await Promise.all([
      /** @type {Promise<Running[]>} */ (listAt('/api/sessions', 'sessions', asking)),
      /** @type {Promise<OpenLogin[]>} */ (listAt('/api/logins', 'logins', asking)),
    ]);
    this.#sessions.update(sessions);
    this.#logins.update(logins);
  }

  /**
   * Asks whether something is to be ended, and ends it.
   * @param {{title: string, text: string, path: string, done: string}} question
   */
  async #end({ title, text, path, done }) {
    const act = async () => {
      await remove(path);
      return done;
    };
    try {
      const said = await ask({ title, text, submit: OWN.end, danger: true, act });
      if (said === null) return;
      await this.#fetch();
      this.#context.notify(said);
    } catch (error) {
      this.#context.fail(error);
    }
  }

  #sessionTable() {
    const states = /** @type {Record<string, string>} */ (OWN.states);
    const end = (/** @type {Running} */ { session, person, machine }) =>
      this.#end({
        title: OWN.endSessionTitle(inSentence(person), inSentence(machine)),
        text: OWN.endSessionText,
        path: `/api/sessions/${session}`,
        done: OWN.sessionEnded,
      });
    return new Table({
      name: OWN.sessions,
      empty: OWN.noSessions,
      keyOf: (/** @type {Running} */ { session }) => String(session),
      columns: [
        { title: OWN.machine, heads: true, cell: ({ machine }) => bdi(machine) },
        { title: OWN.person, cell: ({ person }) => bdi(person) },
        {
          title: OWN.state,
          cell: ({ state }) => tag(states[state] ?? state, state === 'accepted' ? 'good' : 'warn'),
        },
        { title: OWN.since, cell: ({ since }) => moment(since) },
        { title: OWN.reason, cell: ({ reason }) => bdi(reason || '–') },
        { title: OWN.address, className: 'address', cell: ({ address }) => host(address) },
        {
          title: texts.actions,
          cell: (one) => endButton(`${tidy(one.person)}, ${tidy(one.machine)}`, () => end(one)),
        },
      ],
    });
  }

  #loginTable() {
    const end = (/** @type {OpenLogin} */ { id, person }) =>
      this.#end({
        title: OWN.endLoginTitle(inSentence(person)),
        text: OWN.endLoginText,
        path: `/api/logins/${id}`,
        done: OWN.loginEnded,
      });
    return new Table({
      name: OWN.logins,
      empty: OWN.noLogins,
      keyOf: (/** @type {OpenLogin} */ { id }) => String(id),
      columns: [
        {
          title: OWN.person,
          heads: true,
          cell: ({ person, own }) => [bdi(person), ...(own ? [' ', tag(OWN.own, '')] : [])],
        },
        { title: OWN.address, className: 'address', cell: ({ address }) => host(address) },
        { title: OWN.since, cell: ({ created_at }) => moment(created_at) },
        { title: OWN.used, cell: ({ last_used }) => moment(last_used) },
        { title: OWN.until, cell: ({ expires_at }) => moment(expires_at) },
        { title: texts.actions, cell: (one) => endButton(tidy(one.person), () => end(one)) },
      ],
    });
  }
}

/** @param {string} what @param {() => void} act */
function endButton(what, act) {
  const end = button(OWN.end, act);
  end.ariaLabel = `${OWN.end}: ${what}`;
  return make('div', { className: 'acts' }, end);
}
