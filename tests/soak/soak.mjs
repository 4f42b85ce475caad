// The soak test: a relay, agents and representatives at random work with faults; see docs/testing.md, "Soak".
//
//     node tests/soak/soak.mjs MINUTES [--agent wine|native] [--seed N] [--tree asan|tsan|host]
//
// `./dev soak` builds what it needs first. The exit status is 1 on a wrong observation or a growth above its
// limit.
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';
import { WallClock } from './clock/wall_clock.mjs';
import { emptied, Machine, WineMachine } from './machines.mjs';
import { Measurement } from './measure.mjs';
import { LineProxy } from './proxy.mjs';
import { Random } from './random.mjs';
import { World } from './world.mjs';

const MINUTE_MS = 60_000;
const SAMPLE_MS = 2000;
const REPRESENTATIVES = ['Anna', 'Birna', 'Daníel', 'Erla'];
const FINDINGS = /ERROR: (Address|Leak)Sanitizer|WARNING: ThreadSanitizer|runtime error:|Assertion .* failed/;
const ROOT = join(fileURLToPath(import.meta.url), '../../..');

const { values, positionals } = parseArgs({
  allowPositionals: true,
  options: {
    agent: { type: 'string', default: 'native' },
    seed: { type: 'string', default: String(Date.now() % 1_000_000) },
    tree: { type: 'string', default: '' },
  },
});
const minutes = Number(positionals[0]);
const isWine = values.agent === 'wine';
const tree = values.tree || (isWine ? 'host' : 'asan');
if (!(minutes > 0) || !/^(wine|native)$/.test(values.agent) || !/^(asan|tsan|host)$/.test(tree)) {
  console.error('usage: soak.mjs MINUTES [--agent wine|native] [--seed N] [--tree asan|tsan|host]');
  process.exit(2);
}
// Runs of different kinds can go on at the same time.
const out = emptied(join(ROOT, 'build/soak', `${values.agent}-${tree}`));
const relayTree = tree === 'tsan' ? 'host' : tree;
process.env.VANTELINK_RELAY = join(ROOT, 'build', relayTree, 'vantelink-relay');
// Freed memory that the sanitizer keeps would look like a leak, so it keeps little.
process.env.ASAN_OPTIONS = 'quarantine_size_mb=4:detect_stack_use_after_return=0';
process.env.UBSAN_OPTIONS = 'print_stacktrace=1';
process.env.TSAN_OPTIONS = 'history_size=4';

// Imported now, because the relay's module reads the variable above.
const { Relay } = await import('../console/support/relay.mjs');
const { passwordOf, Representative } = await import('./representative.mjs');
const { Certificates, Faults } = await import('./faults.mjs');
const { HOLD_SECONDS, visits } = await import('./visits.mjs');
const { rests } = await import('./rests.mjs');

const random = new Random(Number(values.seed));
const world = new World(join(out, 'events.log'));
console.log(`soak: ${minutes} min, agent ${values.agent}, tree ${tree}, seed ${values.seed}; logs in ${out}`);

const certificates = new Certificates(emptied(join(out, 'certificates')));
const served = [
  '--cert',
  certificates.certificate,
  '--key',
  certificates.key,
  '--hold',
  String(HOLD_SECONDS),
];
const clock = new WallClock(out, 'relay');
const relay = new Relay([...served, '--console', join(ROOT, 'console')], {
  environment: clock.environment(ROOT, relayTree),
});
for (const name of ['observer', ...REPRESENTATIVES]) relay.addUser(name, passwordOf(name));
await relay.start();

/** @type {Machine[]} */
const machines = [];
for (const name of [1, 2, 3].map((number) => `${isWine ? 'desk' : 'machine'}-${number}`)) {
  const proxy = await LineProxy.listening(() => relay.port);
  const place = { root: ROOT, out, trusted: certificates.authority, tree };
  machines.push(new (isWine ? WineMachine : Machine)(name, world, proxy, place, random.split()));
}
const observer = new Representative('observer', world, relay, machines);
const people = REPRESENTATIVES.map((name) => new Representative(name, world, relay, machines));
const measurement = new Measurement(
  (name) => (name === 'relay' ? relayTree : isWine ? 'host' : tree) !== 'host',
  (name) => isWine && name !== 'relay',
);

function sample() {
  measurement.take('relay', relay.process?.pid ?? 0);
  for (const { name, pid } of machines) measurement.take(name, pid);
}

let restCount = 0;
/** Measures the processes, which have nothing to do. @param {boolean} first whether the rest has just begun */
function lookAtRest(first) {
  if (first) restCount++;
  measurement.takeAtRest(restCount, 'relay', relay.process?.pid ?? 0);
  for (const { name, pid } of machines) measurement.takeAtRest(restCount, name, pid);
}

/** Prints what has been done so far. */
function report(/** @type {string} */ when) {
  const { opened, accepted, declined, resumed, frames, bytes, inputs, clips, downloads, uploads } =
    world.counts;
  const { continued, faults, excused, wrong } = world.counts;
  console.log(
    `${when}: sessions ${opened} asked ${accepted} accepted ${declined} declined ${resumed} resumed, ` +
      `frames ${frames}, ${(bytes / 1048576).toFixed(1)} MiB, inputs ${inputs}, clips ${clips}, ` +
      `files ${downloads} down ${uploads} up ${continued} continued, ` +
      `faults ${faults}, excused ${excused}, wrong ${wrong} | ${measurement.line}`,
  );
}

/** Ends all processes, and checks what they say at their end. */
async function end() {
  await world.until(
    'all sessions have ended',
    async () => !(await observer.api.get('sessions')).sessions.length,
  );
  for (const machine of machines) {
    const status = await machine.end();
    if (status !== 0) world.wrong(`${machine.name} ended with status ${status}`);
    if (FINDINGS.test(machine.output)) world.wrong(`${machine.name} wrote a finding; see ${machine.log}`);
    machine.remove();
  }
  observer.leaving = true;
  const child = relay.process;
  const ended = new Promise((done) => child?.once('close', done));
  child?.kill('SIGTERM');
  const status = await ended;
  if (status !== 0 || FINDINGS.test(relay.log)) world.wrong(`the relay ended with status ${status}`);
  // Written in the order of what happened, whatever the date was, and through each kill.
  relay.verifyTrail();
}

async function run() {
  for (const person of [observer, ...people]) {
    await person.logIn();
    await person.connect();
  }
  for (const machine of machines) await machine.start();
  for (const { name } of machines) await world.until(`${name} is online`, () => observer.online(name));
  const began = performance.now();
  const faults = new Faults(world, relay, machines, observer, certificates, clock, random.split());
  const actors = [faults.run(), ...people.map((person) => visits(person, random.split()))];
  const rested = () => console.log(`at rest: ${measurement.restLine}`);
  actors.push(rests(world, faults, observer, lookAtRest, rested));
  const timers = [setInterval(sample, SAMPLE_MS)];
  let minute = 0;
  timers.push(setInterval(() => report(`minute ${++minute}`), MINUTE_MS));
  const half = (minutes * MINUTE_MS) / 2;
  const measured = () => {
    faults.kills = false;
    measurement.begin();
  };
  timers.push(setTimeout(measured, half));
  const over = () => performance.now() - began > 2 * half || world.counts.wrong > 50;
  await world.until('the run ends', over, { deadlineMs: Number.POSITIVE_INFINITY });
  world.ending = true;
  for (const timer of timers) clearInterval(timer);
  await Promise.all(actors);
  report('end');
  for (const person of people) person.close();
}

// Ctrl-C ends the processes too.
for (const signal of ['SIGINT', 'SIGTERM']) {
  process.once(signal, async () => {
    for (const machine of machines) machine.remove();
    for (const machine of machines) if (machine.pid) await machine.kill();
    await relay.remove();
    process.exit(130);
  });
}
try {
  await run();
  await end();
} catch (error) {
  world.wrong(`the test itself failed: ${error instanceof Error ? error.stack : error}`);
}
observer.close();
for (const machine of machines) if (machine.pid) await machine.kill();
console.log(`faults: ${[...world.kinds].map(([kind, count]) => `${kind} ${count}`).join(', ')}`);
console.log('growth in the second half of the run, by least squares:');
const growing = measurement.verdict();
for (const what of growing) console.log(`GROWS: ${what}`);
const { wrong } = world.counts;
console.log(
  wrong || growing.length ? `FAILED: ${wrong} wrong observations, ${growing.length} growths` : 'PASSED',
);
writeFileSync(join(out, 'relay.log'), relay.log);
await relay.remove();
process.exit(wrong || growing.length ? 1 : 0);
