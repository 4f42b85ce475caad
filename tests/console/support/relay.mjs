// A real relay for a test, with its own data folder, a free port and one representative.
import { execFileSync, spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { until } from './waiting.mjs';

const ROOT = join(dirname(fileURLToPath(import.meta.url)), '../../..');
const PROGRAM = process.env.VANTELINK_RELAY ?? join(ROOT, 'build/host/vantelink-relay');

export const USER = 'Sigga';
export const PASSWORD = 'correct horse battery';

export class Relay {
  /**
   * A log-in that several tests share; see fixture.mjs.
   * @type {ReturnType<import('playwright-core').BrowserContext['storageState']> | null}
   */
  login = null;

  /** @param {string[]} [options] added to the command line */
  constructor(options = []) {
    this.options = options;
    this.data = mkdtempSync(join(tmpdir(), 'vantelink-console-'));
    this.addUser(USER, PASSWORD);
    this.log = '';
    this.port = 0;
    /** @type {import('node:child_process').ChildProcess | null} */
    this.process = null;
  }

  /** @param {string[]} [options] added to the command line */
  static async started(options) {
    const relay = new Relay(options);
    await relay.start();
    return relay;
  }

  addUser(/** @type {string} */ name, /** @type {string} */ password) {
    execFileSync(PROGRAM, ['--data', this.data, '--add-user', name], { input: `${password}\n` });
  }

  get url() {
    return `https://localhost:${this.port}/`;
  }

  /** Starts the relay. A second start uses the same port, so that browsers and agents find it. */
  async start() {
    const child = spawn(PROGRAM, [
      '--address',
      '127.0.0.1',
      '--port',
      String(this.port),
      '--data',
      this.data,
      '--console',
      join(ROOT, 'console'),
      ...this.options,
    ]);
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

  async remove() {
    await this.kill();
    rmSync(this.data, { recursive: true, force: true });
  }
}
