// A real relay for a test, with its own data folder and a free port.
import { execFileSync, spawn } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { until } from './waiting.mjs';

const ROOT = join(dirname(fileURLToPath(import.meta.url)), '../../..');
const PROGRAM = process.env.VANTELINK_RELAY ?? join(ROOT, 'build/host/vantelink-relay');

export const USER = 'Sigga';
export const PASSWORD = 'correct horse battery';

/**
 * people: whether there is an administrator, with the name and password above. enrolment: whether new machines are
 * approved at once. database: the URL of a PostgreSQL database, if there is one. environment: variables of the running
 * relay besides the test's own.
 * @typedef {{people?: boolean, enrolment?: boolean, database?: string, environment?: Record<string, string>}} SetUp
 */

export class Relay {
  /** @param {string[]} [options] added to the command line @param {SetUp} [setUp] */
  constructor(options = [], { people = true, enrolment = true, database = '', environment = {} } = {}) {
    this.options = options;
    this.environment = environment;
    this.data = mkdtempSync(join(tmpdir(), 'vantelink-console-'));
    /** Where the relay's data are. */
    this.place = ['--data', this.data, ...(database ? ['--database', database] : [])];
    if (people) this.addUser(USER, PASSWORD);
    if (enrolment) execFileSync(PROGRAM, [...this.place, '--open-enrolment', '600']);
    this.log = '';
    this.port = 0;
    /** @type {import('node:child_process').ChildProcess | null} */
    this.process = null;
  }

  /** @param {string[]} [options] added to the command line @param {SetUp} [setUp] */
  static async started(options, setUp) {
    const relay = new Relay(options, setUp);
    await relay.start();
    return relay;
  }

  addUser(/** @type {string} */ name, /** @type {string} */ password) {
    execFileSync(PROGRAM, [...this.place, '--add-user', name, '--role', 'administrator'], {
      input: `${password}\n`,
    });
  }

  /** The password of the first administrator, which a relay without people makes at its first start. */
  get firstPassword() {
    return readFileSync(join(this.data, 'first-password'), 'utf8').trim();
  }

  /** Changes the database as another process may do; the relay notices it. @param {string} statement SQL */
  changeDatabase(statement) {
    const script =
      'import sqlite3, sys; d = sqlite3.connect(sys.argv[1]); d.execute(sys.argv[2]); d.commit()';
    execFileSync('python3', ['-c', script, join(this.data, 'relay.db'), statement]);
  }

  get url() {
    return `https://localhost:${this.port}/`;
  }

  /** Starts the relay. A second start uses the same port, so that browsers and agents find it. */
  async start() {
    const served = ['--address', '127.0.0.1', '--port', String(this.port)];
    const child = spawn(PROGRAM, [...served, ...this.place, ...this.options], {
      env: { ...process.env, ...this.environment },
    });
    this.process = child;
    child.stdout.on('data', (text) => {
      this.log += text;
    });
    child.stderr.on('data', (text) => {
      this.log += text;
    });
    const from = this.log.length;
    const line = await until('the relay listens', () => {
      if (child.exitCode !== null) throw new Error(`it ended: ${this.log}`);
      return /listening on https:\/\/[^:]+:(\d+)/.exec(this.log.slice(from));
    });
    this.port = Number(line[1]);
  }

  /** Ends the relay without a message to its peers, as in a power cut. */
  async kill() {
    const { process: child } = this;
    this.process = null;
    if (!child || child.exitCode !== null) return;
    const gone = new Promise((done) => child.once('exit', done));
    child.kill('SIGKILL');
    await gone;
  }

  /** Checks the rows of its trail, which may go on meanwhile. Throws if one was changed. */
  verifyTrail() {
    execFileSync(PROGRAM, ['verify-trail', '--data', this.data]);
  }

  async remove() {
    await this.kill();
    rmSync(this.data, { recursive: true, force: true });
  }
}
