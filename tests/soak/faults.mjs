// The faults of a run: lines that are cut, held or swallow, processes that are killed, certificates that change,
// and wall clocks that jump.
import { execFileSync } from 'node:child_process';
import { X509Certificate } from 'node:crypto';
import { chmodSync, readFileSync, renameSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { connect } from 'node:tls';
import { EVERYTHING, GivenUp, RETURN_MS } from './world.mjs';

/** @typedef {import('./world.mjs').World} World */
/** @typedef {import('./machines.mjs').Machine} Machine */
/** @typedef {import('./random.mjs').Random} Random */
/** @typedef {import('./clock/wall_clock.mjs').WallClock} WallClock */
/** @typedef {import('./representative.mjs').Representative} Representative */
/** @typedef {import('../console/support/relay.mjs').Relay} Relay */

const MOST_BETWEEN_MS = 12_000;
const MOST_HELD_MS = 6000;
const MOST_SWALLOWED_MS = 20_000;
/** The relay learns at once that a process was killed, because its system closes the connection. */
const OFFLINE_MS = 20_000;
/**
 * Under Wine the connection of a killed process sometimes stays open, so the relay notices it only by the
 * machine's silence of 45 s.
 */
const SILENT_MS = 75_000;
/** The time of an answer, and rounding. */
const CLOCK_DIFFERENCE_S = 5;
const pause = (/** @type {number} */ ms) => new Promise((done) => setTimeout(done, ms));

/** A certificate authority and the certificates of the relay. */
export class Certificates {
  /** @param {string} folder */
  constructor(folder) {
    this.folder = folder;
    this.authority = join(folder, 'ca.pem');
    this.certificate = join(folder, 'relay.pem');
    this.key = join(folder, 'relay.key');
    const subject = ['-subj', '/CN=Soak authority', '-days', '3650', '-out', this.authority];
    this.#openssl(
      'req',
      '-x509',
      '-nodes',
      '-newkey',
      'rsa:2048',
      '-keyout',
      join(folder, 'ca.key'),
      ...subject,
    );
    this.renew();
  }

  /**
   * Makes another certificate of the same authority in the place of the one before.
   * @returns its fingerprint
   */
  renew() {
    const at = (/** @type {string} */ name) => join(this.folder, name);
    writeFileSync(at('names'), 'subjectAltName=DNS:localhost,IP:127.0.0.1\n');
    this.#openssl('ecparam', '-genkey', '-noout', '-name', 'prime256v1', '-out', at('new.key'));
    this.#openssl('req', '-new', '-key', at('new.key'), '-subj', '/CN=localhost', '-out', at('new.csr'));
    const signed = [
      '-CA',
      this.authority,
      '-CAkey',
      at('ca.key'),
      '-CAcreateserial',
      '-extfile',
      at('names'),
    ];
    this.#openssl('x509', '-req', '-in', at('new.csr'), ...signed, '-days', '365', '-out', at('new.pem'));
    chmodSync(at('new.key'), 0o600);
    renameSync(at('new.key'), this.key);
    renameSync(at('new.pem'), this.certificate);
    return new X509Certificate(readFileSync(this.certificate)).fingerprint256;
  }

  #openssl(/** @type {string[]} */ ...words) {
    execFileSync('openssl', words, { stdio: 'ignore' });
  }
}

/**
 * The fingerprint of the certificate that new connections get.
 * @param {number} port
 * @returns {Promise<string>}
 */
function shown(port) {
  return new Promise((done, failed) => {
    const socket = connect(
      { port, host: '127.0.0.1', servername: 'localhost', rejectUnauthorized: false },
      () => {
        done(socket.getPeerCertificate().fingerprint256);
        socket.destroy();
      },
    );
    socket.on('error', failed);
  });
}

export class Faults {
  /** Whether processes may still be killed: not while their memory is measured. */
  kills = true;
  underWay = false;

  /**
   * @param {World} world @param {Relay} relay @param {Machine[]} machines @param {Representative} observer
   * @param {Certificates} certificates @param {WallClock} clock of the relay @param {Random} random
   */
  constructor(world, relay, machines, observer, certificates, clock, random) {
    this.world = world;
    this.relay = relay;
    this.machines = machines;
    this.observer = observer;
    this.certificates = certificates;
    this.clock = clock;
    this.random = random;
  }

  /** Causes one fault after the other until the run ends. */
  async run() {
    const always = [this.cut, this.hold, this.swallow, this.renewCertificate, this.jumpClock];
    const deadly = [this.killAgent, this.killAgent, this.endAgent, this.killRelay];
    while (!this.world.ending) {
      await pause(this.random.integer(1000, MOST_BETWEEN_MS));
      if (this.world.ending) return;
      if (this.world.resting) continue;
      this.underWay = true;
      const fault = this.random.one(this.kills ? [...always, ...deadly] : always);
      await fault.call(this).catch(judged);
      this.underWay = false;
    }
  }

  cut() {
    return this.#onMachine('cut', async ({ proxy }) => proxy.cut());
  }

  /** Nothing is lost, so the session survives if the relay waits long enough. */
  hold() {
    return this.#onMachine('hold', async ({ proxy }) => {
      proxy.hold();
      await pause(this.random.integer(200, MOST_HELD_MS));
      proxy.release();
    });
  }

  swallow() {
    return this.#onMachine('swallow', async ({ proxy }) => {
      proxy.swallow();
      await pause(this.random.integer(1000, MOST_SWALLOWED_MS));
      proxy.mend();
    });
  }

  killAgent() {
    return this.#onMachine('kill', async (machine) => {
      await machine.kill();
      await this.#offline(machine);
      await machine.start();
    });
  }

  endAgent() {
    return this.#onMachine('end', async (machine) => {
      const status = await machine.end();
      if (status !== 0) this.world.wrong(`${machine.name} ended with status ${status}`);
      await this.#offline(machine);
      await machine.start();
    });
  }

  async killRelay() {
    const fault = this.world.beginFault('relay killed', EVERYTHING);
    for (const machine of this.machines) machine.loggedIn = 0;
    await this.relay.kill();
    await pause(this.random.integer(0, 2000));
    await this.relay.start();
    for (const machine of this.machines) machine.relayStarted();
    await this.observer.connect();
    await Promise.all(this.machines.map((machine) => this.#online(machine)));
    this.world.endFault(fault);
  }

  /** Sessions go on, and new connections get the new certificate. */
  async renewCertificate() {
    this.world.countFault('certificate');
    this.world.note('a new certificate');
    const fingerprint = this.certificates.renew();
    this.relay.process?.kill('SIGHUP');
    const used = async () => (await shown(this.relay.port)) === fingerprint;
    await this.world.until('the relay shows the new certificate', used);
  }

  /** The date of the relay or of an agent changes, and nothing else that anybody sees. */
  async jumpClock() {
    const { random, world, clock } = this;
    world.countFault('clock');
    const jumping = this.machines.filter(({ jumps }) => jumps);
    const machine = jumping.length && random.next() < 0.5 ? random.one(jumping) : null;
    const jumped = machine?.clock ?? clock;
    jumped.jump(random);
    world.note(`the clock of ${machine?.name ?? 'the relay'} is ${jumped.seconds} s ahead`);
    if (machine) return;
    const dated = async () => {
      const { machines } = await this.observer.api.get('machines');
      const date = Date.now() / 1000 + clock.seconds;
      return machines.some(({ last_seen }) => Math.abs(last_seen - date) < CLOCK_DIFFERENCE_S);
    };
    await world.until('the relay has the new date', dated);
  }

  /** @param {string} kind @param {(machine: Machine) => Promise<void>} happen */
  async #onMachine(kind, happen) {
    const machine = this.random.one(this.machines);
    const fault = this.world.beginFault(kind, machine.name);
    const keepsConnection = kind === 'hold';
    if (!keepsConnection) machine.loggedIn = 0;
    await happen(machine);
    await this.#online(machine);
    this.world.endFault(fault);
  }

  async #offline(/** @type {Machine} */ { name, speaks }) {
    const offline = () => this.observer.entry(name)?.state === 'offline';
    const deadlineMs = speaks ? OFFLINE_MS : SILENT_MS;
    // A machine that is not seen offline has to be started again all the same.
    await this.world.until(`${name} is seen offline`, offline, { deadlineMs }).catch(judged);
  }

  /** Waits until the machine has logged in again, if it says so itself, and the list says so too. */
  #online(/** @type {Machine} */ machine) {
    const back = () => (machine.loggedIn > 0 || !machine.speaks) && this.observer.online(machine.name);
    return this.world.until(`${machine.name} is online again`, back, { deadlineMs: RETURN_MS });
  }
}

/** What was not met in time is noted already. */
function judged(/** @type {unknown} */ error) {
  if (!(error instanceof GivenUp)) throw error;
}
