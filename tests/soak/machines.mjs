// The machines of a run: agents as processes, each with a line of its own to the relay and a folder of files.
import { execFileSync, spawn } from 'node:child_process';
import { createHash } from 'node:crypto';
import { appendFileSync, closeSync, mkdirSync, openSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { WallClock } from './clock/wall_clock.mjs';

/** @typedef {import('./proxy.mjs').LineProxy} LineProxy */
/** @typedef {import('./world.mjs').World} World */
/** @typedef {import('./random.mjs').Random} Random */
/** @typedef {{root: string, out: string, trusted: string, tree: string}} Place */

/** A machine whose user has not answered is not asked for two minutes. */
export const NOT_ASKED_AGAIN_MS = 125_000;
/** The sizes of the files: none, one byte, around the agent's chunk, and large. */
const FILE_SIZES = [0, 1, 100_000, 262_144, 262_145, 3_000_001, 24_000_005];

export const sha256 = (/** @type {Uint8Array} */ bytes) => createHash('sha256').update(bytes).digest('hex');

export class Machine {
  /** @type {{name: string, size: number, hash: string}[]} */
  files = [];
  /**
   * Lines of the agent's process, parsed.
   * @type {Map<number, boolean>} sessions and whether they were accepted
   */
  answers = new Map();
  /** The lengths of the input batches that the agent has received. @type {number[]} */
  inputs = [];
  /**
   * The clips that the agent is to send back, by their hash, and whether they came.
   * @type {Map<string, boolean>}
   */
  clips = new Map();
  /** When the agent last logged in. */
  loggedIn = 0;
  /** When a session with this machine ended last, which interrupts the stream of all others. */
  disturbed = 0;
  /** How many questions stand on the screen, and when the last one went. */
  questions = 0;
  questionGone = Number.NEGATIVE_INFINITY;
  /** When a request ended last without an answer that the relay has seen. */
  unanswered = Number.NEGATIVE_INFINITY;
  /** The times of the requests that led to no session. @type {number[]} */
  refused = [];
  pid = 0;

  /**
   * @param {string} name
   * @param {World} world
   * @param {LineProxy} proxy
   * @param {Place} place
   * @param {Random} random
   */
  constructor(name, world, proxy, place, random) {
    this.name = name;
    this.world = world;
    this.proxy = proxy;
    this.place = place;
    this.random = random;
    this.clock = new WallClock(place.out, name);
    this.folder = join(place.out, 'files', name);
    this.log = join(place.out, `${name}.log`);
    mkdirSync(this.folder, { recursive: true });
    for (const size of FILE_SIZES) {
      const bytes = random.bytes(size);
      writeFileSync(join(this.folder, `file-${size}`), bytes);
      this.files.push({ name: `file-${size}`, size, hash: sha256(bytes) });
    }
  }

  /**
   * The relay counts questions that it knew before its start, and whose answer it may have missed, from then
   * on.
   */
  relayStarted() {
    const now = performance.now();
    const last = this.questions ? now : Math.max(this.unanswered, this.questionGone);
    if (now - last < NOT_ASKED_AGAIN_MS) this.unanswered = now;
  }

  /** Whether the machine says by itself what it has received. */
  get speaks() {
    return true;
  }

  /** Whether the pictures are those of the scripted screen. */
  get counts() {
    return true;
  }

  /** Whether the wall clock of the agent can jump. */
  get jumps() {
    return true;
  }

  /** The drive on which the agent sees the host's root folder. */
  get drive() {
    return 'C:';
  }

  /** The path of a file in the machine's folder as the agent reads it. */
  path(/** @type {string} */ name) {
    return `${this.drive}${join(this.folder, name).replaceAll('/', '\\')}`;
  }

  /** What the agent has written, for findings of the sanitizers. */
  get output() {
    return readFileSync(this.log, 'utf8');
  }

  /** @type {import('node:child_process').ChildProcess | undefined} */
  #process;
  /** @type {Promise<number | null>} the exit status; null after a signal */
  #ended = Promise.resolve(0);

  async start() {
    const program = join(this.place.root, 'build', this.place.tree, 'tests/soak_agent');
    const words = ['--host', 'localhost', '--port', this.proxy.port, '--name', this.name];
    const identity = join(this.place.out, `${this.name}.identity`);
    words.push('--identity', identity, '--seed', this.random.integer(1, 2 ** 31 - 2));
    const errors = openSync(this.log, 'a');
    const child = spawn(program, words.map(String), {
      env: {
        ...process.env,
        SSL_CERT_FILE: this.place.trusted,
        ...this.clock.environment(this.place.root, this.place.tree),
      },
      stdio: ['ignore', 'pipe', errors],
    });
    closeSync(errors);
    this.#process = child;
    this.pid = child.pid ?? 0;
    // Not 'exit', after which lines can still arrive.
    this.#ended = new Promise((done) => child.once('close', (code) => done(code)));
    let rest = '';
    child.stdout?.on('data', (text) => {
      const lines = (rest + text).split('\n');
      rest = lines.pop() ?? '';
      for (const line of lines) this.#read(line);
    });
  }

  /** Ends the process without notice. */
  async kill() {
    this.#process?.kill('SIGKILL');
    await this.#ended;
    this.pid = 0;
  }

  /** Asks the process to end, and returns its exit status. */
  async end() {
    this.#process?.kill('SIGTERM');
    const status = await this.#ended;
    this.pid = 0;
    return status;
  }

  /** Frees what the machine has outside of its process. */
  remove() {
    this.proxy.close();
  }

  #read(/** @type {string} */ line) {
    appendFileSync(this.log, `${line}\n`);
    const { event, session, accepts, bytes, status } = JSON.parse(line);
    if (event === 'answer') this.answers.set(session, accepts === 1);
    if (event === 'input') this.inputs.push(bytes);
    if (this.inputs.length > 1000) this.inputs.splice(0, 500);
    if (event === 'status' && status === 2) this.loggedIn = performance.now();
    if (event === 'threads-remain') this.world.wrong(`${this.name} ended while a thread of it still ran`);
  }
}

/** The agent for Windows, on a desk of its own. Its user is not asked. */
export class WineMachine extends Machine {
  #desk = '';

  get speaks() {
    return false;
  }

  get counts() {
    return false;
  }

  get jumps() {
    return false;
  }

  get drive() {
    return 'Z:';
  }

  get output() {
    return '';
  }

  async start() {
    const { root, trusted } = this.place;
    if (!this.#desk) this.#prepare();
    const certificates = `SSL_CERT_FILE=Z:${trusted.replaceAll('/', '\\')}`;
    const program = join(root, 'build/windows/VantelinkAgent.exe');
    const words = [program, '--host', 'localhost', '--port', String(this.proxy.port)];
    this.pid = Number(this.#tool('spawn', '--env', certificates, this.#desk, ...words));
  }

  async kill() {
    process.kill(this.pid, 'SIGKILL');
    this.pid = 0;
  }

  async end() {
    await this.kill();
    return 0;
  }

  remove() {
    super.remove();
    if (this.#desk) this.#tool('stop', this.#desk);
  }

  #tool(/** @type {string[]} */ ...words) {
    return execFileSync(join(this.place.root, 'tools/desk'), words, { encoding: 'utf8' }).trim();
  }

  #prepare() {
    this.#desk = this.#tool('start', '--owner', String(process.pid));
    const key = 'HKCU\\Software\\Maravek\\Vantelink';
    const values = [
      ['Unattended', 'REG_DWORD', '1'],
      ['DisplayName', 'REG_SZ', this.name],
    ];
    for (const [name, type, value] of values)
      this.#tool('exec', this.#desk, 'reg', 'add', key, '/v', name, '/t', type, '/d', value, '/f');
    const double = `Z:${join(this.place.root, 'build/windows/tests/doubles/h264.dll').replaceAll('/', '\\')}`;
    this.#tool('exec', this.#desk, 'regsvr32', '/s', '/n', '/i:sync', double);
  }
}

/** Removes what an earlier run has left. */
export function emptied(/** @type {string} */ folder) {
  rmSync(folder, { recursive: true, force: true });
  mkdirSync(folder, { recursive: true });
  return folder;
}
