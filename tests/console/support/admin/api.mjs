// The relay's API without a browser: prepares people, groups and machines for a test, and says what the relay has.
import { request } from 'node:https';
import { present } from '../present.mjs';
import { PASSWORD, USER } from '../relay.mjs';
import { until } from '../waiting.mjs';

/** @typedef {import('../relay.mjs').Relay} Relay */
/** @typedef {{name: string, password: string}} Login */
/** @typedef {'administrator' | 'representative' | 'auditor'} Role */
/** @typedef {import('../../../../console/link/rights.js').Right} Right */
/** @typedef {Awaited<ReturnType<import('playwright-core').BrowserContext['storageState']>>} BrowserState */
/** @typedef {import('../../../../console/admin/parts/data.js').Person} Person */
/** @typedef {import('../../../../console/admin/parts/data.js').Team} Team */
/** @typedef {import('../../../../console/admin/parts/data.js').Group} Group */
/** @typedef {import('../../../../console/admin/parts/data.js').Machine} Machine */
/** @typedef {{id: number, code: string, actor: string, fields: Record<string, unknown>}} Row */
/** @typedef {{name: string, role: Role, teams: number[]}} Invitation */
/**
 * An answer of the relay: each request gives some of these members.
 * @typedef {{id: number, token: string, password: string, stage: string, secret: string, backup_codes: string[],
 *   people: Person[], teams: Team[], groups: Group[], machines: Machine[], invitations: Invitation[],
 *   windows: object[], logins: {expires_at: number}[], rows: Row[], more: boolean,
 *   sessions: {session: number, state: string, picture: {stages: Record<string, number> | null} | null}[]}} Answer
 */

const COOKIE = '__Host-vantelink_session';

/** A request that the relay has refused. */
export class Refused extends Error {
  /** @param {number} status @param {string} text */
  constructor(status, text) {
    super(`${status} ${text}`);
    this.status = status;
  }
}

/** One log-in, and the requests that it makes. */
export class Api {
  #relay;
  #token = '';

  constructor(/** @type {Relay} */ relay) {
    this.#relay = relay;
  }

  /** @param {Relay} relay @param {Login} [login] */
  static async loggedIn(relay, { name, password } = { name: USER, password: PASSWORD }) {
    const api = new Api(relay);
    await api.post('login', { name, password });
    return api;
  }

  /** The log-in as a browser has it. @returns {BrowserState} */
  get browserState() {
    const place = { domain: 'localhost', path: '/', expires: -1 };
    const rules = /** @type {const} */ ({ httpOnly: true, secure: true, sameSite: 'Strict' });
    return { cookies: [{ name: COOKIE, value: this.#token, ...place, ...rules }], origins: [] };
  }

  /** @param {string} path below /api/ */
  get(path) {
    return this.send('GET', path);
  }

  /** @param {string} path below /api/ @param {object} [body] */
  post(path, body = {}) {
    return this.send('POST', path, body);
  }

  /**
   * @param {string} method
   * @param {string} path below /api/
   * @param {object} [body]
   * @returns {Promise<Answer>}
   */
  async send(method, path, body) {
    const { status, text, cookie } = await this.#exchange(method, path, body && JSON.stringify(body));
    if (cookie) this.#token = cookie;
    if (status !== 200) throw new Refused(status, text);
    return JSON.parse(text);
  }

  /**
   * @param {string} method
   * @param {string} path
   * @param {string} [body]
   * @returns {Promise<{status: number, text: string, cookie: string | undefined}>}
   */
  #exchange(method, path, body) {
    const url = new URL(`api/${path}`, this.#relay.url);
    const headers = { Origin: url.origin, Cookie: `${COOKIE}=${this.#token}` };
    const options = { method, headers, rejectUnauthorized: false, agent: false };
    return new Promise((done, failed) => {
      const asked = request(url, options, async (reply) => {
        let text = '';
        for await (const piece of reply.setEncoding('utf8')) text += piece;
        const [, cookie] = /^[^=]+=([^;]*)/.exec(reply.headers['set-cookie']?.[0] ?? '') ?? [];
        done({ status: reply.statusCode ?? 0, text, cookie });
      });
      asked.once('error', failed).end(body);
    });
  }
}

/** @type {WeakMap<Relay, Promise<Api>>} */
const administrators = new WeakMap();

/** The log-in of the administrator that all tests of a relay share. @param {Relay} relay */
export function administrator(relay) {
  const known = administrators.get(relay) ?? Api.loggedIn(relay);
  administrators.set(relay, known);
  return known;
}

let people = 0;

/**
 * Adds a person who has a password and can log in.
 * @param {Relay} relay
 * @param {{name?: string, role?: Role, teams?: number[]}} [wanted]
 * @returns {Promise<Login & {id: number}>}
 */
export async function addPerson(
  relay,
  { name = `Person ${++people}`, role = 'representative', teams = [] } = {},
) {
  const api = await administrator(relay);
  const password = `the password of ${name}`;
  const { token } = await api.post('invitations', { name, role, teams, hours: 1 });
  await new Api(relay).post('invitations/accept', { token, password });
  const { people: all } = await api.get('people');
  return { name, password, id: present(all.find((one) => one.name === name)).id };
}

let groups = 0;

/**
 * Adds a group of machines.
 * @param {Relay} relay
 * @param {{name?: string, step_up?: boolean, ask_reason?: boolean, four_eyes?: boolean,
 *   rights?: object[]}} [wanted]
 * @returns {Promise<number>} its id
 */
export async function addGroup(relay, { rights = [], ...group } = {}) {
  const api = await administrator(relay);
  const { id } = await api.post('groups', { name: `Group ${++groups}`, ...group });
  await api.send('PUT', `groups/${id}/rights`, { rights });
  return id;
}

/** Gives a person these rights in a group, in place of all rights that the group gives. @param {Relay} relay
 * @param {number} group @param {number} person @param {Right[]} rights */
export async function giveRights(relay, group, person, rights) {
  const api = await administrator(relay);
  await api.send('PUT', `groups/${group}/rights`, { rights: rights.length ? [{ person, rights }] : [] });
}

/** Makes a decision about machines. @param {Relay} relay @param {string} action
 * @param {{id?: string}[]} agents @param {object} [more] */
export async function decide(relay, action, agents, more = {}) {
  const api = await administrator(relay);
  await api.post(`machines/${action}`, { ids: agents.map(({ id }) => id), ...more });
}

/** The entry of a machine in the administrators' list. @param {Relay} relay
 * @param {{id?: string}} agent @returns {Promise<Machine>} */
export async function machineEntry(relay, agent) {
  const api = await administrator(relay);
  const { machines } = await api.get('machines');
  return present(machines.find((one) => one.id === agent.id));
}

/** Waits for a row of the trail of this kind whose fields contain the text. @param {Relay} relay
 * @param {string} kind @param {string} [text] @returns {Promise<Row>} */
export async function trailRow(relay, kind, text = '') {
  const api = await administrator(relay);
  return until(`a row ${kind} with "${text}"`, async () => {
    const { rows } = await api.get(`trail?kind=${kind}`);
    return rows.find((row) => JSON.stringify(row).includes(text));
  });
}
