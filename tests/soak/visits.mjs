// What a representative does: asks for a session, works in it at random, leaves in one of several ways, and
// begins again.
import { Msg } from '../../console/link/messages.js';
import { NOT_ASKED_AGAIN_MS, sha256 } from './machines.mjs';
import { Session } from './session.mjs';
import { GivenUp, RETURN_MS } from './world.mjs';

/** @typedef {import('./representative.mjs').Representative} Representative */
/** @typedef {import('./random.mjs').Random} Random */
/** @typedef {import('./machines.mjs').Machine} Machine */

const ACTIONS_OF_A_VISIT = 12;
const ASKS_ANYWAY_ONE_IN = 10;
/** More than the window, so that the relay has not taken all of it when the connection ends. */
const LARGE_UPLOAD_BYTES = 9_000_000;
const MOST_STALL_MS = 8000;
/** How long a browser stays away at most; the relay holds a session for HOLD_SECONDS. */
const MOST_AWAY_MS = 4000;
export const HOLD_SECONDS = 20;
const CLIP_KINDS = /** @type {const} */ ({ text: 1, picture: 2 });
const pause = (/** @type {number} */ ms) => new Promise((done) => setTimeout(done, ms));

/** One visit to a machine. */
class Visit {
  /** @type {Promise<void>[]} transfers that are under way */
  #transfers = [];

  /** @param {Session} session @param {Random} random */
  constructor(session, random) {
    this.session = session;
    this.random = random;
    this.world = session.world;
    this.owner = session.owner;
    this.machine = session.machine;
  }

  async work() {
    await this.watch();
    await this.steer();
    const actions = [
      this.watch,
      this.watch,
      this.codec,
      this.monitor,
      this.input,
      this.input,
      this.clip,
      this.list,
    ];
    actions.push(
      this.thumbnails,
      this.download,
      this.upload,
      this.steer,
      this.restartStream,
      this.stall,
      this.reload,
    );
    for (let i = this.random.integer(1, ACTIONS_OF_A_VISIT); i > 0 && !this.world.stopping; i--) {
      if (this.session.over) break;
      await this.random.one(actions).call(this);
    }
    await Promise.all(this.#transfers);
  }

  /** Starts the stream if the representative has not, and waits for some pictures. */
  async watch() {
    const { session } = this;
    if (!session.streaming) session.startStream({ monitor_id: 0, max_fps: this.random.integer(4, 15) });
    const enough = session.frames + this.random.integer(1, 10);
    await session.until('pictures arrive', () => session.frames >= enough);
  }

  async restartStream() {
    this.session.streaming = false;
    await this.watch();
  }

  async codec() {
    const { session } = this;
    const codec = this.random.one(['h264', 'mjpeg']);
    if (!session.steers) return;
    session.sendJson(Msg.CodecSelect, { codec });
    await this.#steered(`the stream is ${codec}`, () => session.config?.codec === codec);
  }

  async monitor() {
    const { session } = this;
    const monitor = this.machine.counts ? this.random.integer(0, 1) : 0;
    if (!session.steers) return;
    session.sendJson(Msg.MonitorSelect, { monitor_id: monitor });
    const shown = () => !this.machine.counts || session.monitor === monitor;
    await this.#steered(
      `pictures of monitor ${monitor}`,
      () => session.config?.monitor_id === monitor && shown(),
    );
  }

  async input() {
    const { session, machine } = this;
    if (!session.steers) return;
    const events = this.random.integer(1, 200);
    const batch = Buffer.alloc(1 + 5 * events);
    batch[0] = events;
    for (let i = 0; i < events; i++) {
      batch[1 + 5 * i] = 1;
      batch.writeInt16LE(this.random.integer(0, 32767), 2 + 5 * i);
      batch.writeInt16LE(this.random.integer(0, 32767), 4 + 5 * i);
    }
    const before = machine.inputs.length;
    session.send(Msg.InputEvent, batch);
    this.world.counts.inputs++;
    if (!machine.speaks) return;
    const arrived = () => machine.inputs.length < before || machine.inputs.indexOf(batch.length, before) >= 0;
    await this.#steered(`a batch of ${batch.length} bytes is injected`, arrived);
  }

  /** Sends a clip, which the machine sends back to whoever steers. */
  async clip() {
    const { session, machine, random } = this;
    if (!session.steers || !session.streaming) return;
    const kind = random.one([CLIP_KINDS.text, CLIP_KINDS.picture]);
    const content =
      kind === CLIP_KINDS.text
        ? Buffer.from(`klippa ${random.integer(0, 1e9)} ${'æ'.repeat(random.integer(0, 5000))}`)
        : random.bytes(random.integer(0, 300_000));
    const answer = kind === CLIP_KINDS.text ? Buffer.concat([Buffer.from('seen '), content]) : content;
    const hash = sha256(Buffer.concat([Buffer.from([kind]), answer]));
    if (machine.speaks) machine.clips.set(hash, false);
    session.send(Msg.ClipboardData, Buffer.concat([Buffer.from([kind]), content]));
    if (machine.speaks) await this.#steered('a clip comes back', () => machine.clips.get(hash) === true);
  }

  async list() {
    const { session, machine } = this;
    session.listing = null;
    session.sendJson(Msg.DirListRequest, { path: machine.path('').replace(/\\$/, '') });
    const { entries } = await session.until('a listing arrives', () => session.listing);
    const found = /** @type {{name: string, size: number}[]} */ (entries);
    for (const { name, size } of machine.files)
      if (!found.some((entry) => entry.name === name && entry.size === size))
        this.world.wrong(`${session.label}: the listing lacks ${name} of ${size} bytes`);
  }

  async thumbnails() {
    const { session } = this;
    const before = session.thumbnails;
    session.send(Msg.ThumbnailRequest);
    await session.until('a thumbnail arrives', () => session.thumbnails > before);
  }

  async download() {
    const cancel = this.random.integer(0, 4) === 0;
    this.#transfer(this.session.transfers.download(this.random.one(this.machine.files), cancel));
  }

  async upload() {
    const content = this.random.bytes(this.random.one([0, 1, 32768, 300_000, 2_000_000]));
    this.#transfer(this.session.transfers.upload(this.#uploadName(), content));
  }

  async steer() {
    const { session } = this;
    if (session.steers || (session.steering > 0 && this.random.integer(0, 2) > 0)) return;
    session.command({ type: session.steering > 0 ? 'take-over' : 'steer' });
    // Another one can take the control in turn before it is seen here.
    await session.until(
      'control is taken over',
      () => session.steers || this.world.stopping,
      () => true,
    );
  }

  /** Stops reading for a time, as a browser on a bad line does. */
  async stall() {
    const resume = this.owner.stall();
    await pause(this.random.integer(500, MOST_STALL_MS));
    resume();
  }

  /** Loses the connection and resumes the session, as a reloaded page does, often during transfers. */
  async reload() {
    const { owner, session } = this;
    if (this.random.integer(0, 1)) {
      const largest = this.machine.files[this.machine.files.length - 1];
      this.#transfer(session.transfers.download(largest));
      this.#transfer(session.transfers.upload(this.#uploadName(), this.random.bytes(LARGE_UPLOAD_BYTES)));
      await session.until('transfers are under way', () => session.transfers.underWay);
    }
    owner.drop();
    session.transfers.interrupt();
    await pause(this.random.integer(0, MOST_AWAY_MS));
    await owner.connect();
    session.resuming = true;
    owner.resuming.add(session.number);
    session.command({ type: 'resume' });
    await session.until('the session is resumed', () => !session.resuming);
  }

  /** Ends the session: with a message, or without. */
  async leave() {
    const { owner, session } = this;
    if (session.state === 'ended') return;
    session.closing = true;
    if (!owner.connected || this.random.integer(0, 3) === 0) {
      owner.drop();
      session.state = 'ended';
      session.reason = 'left';
      this.machine.disturbed = performance.now() + HOLD_SECONDS * 1000;
      return;
    }
    session.command({ type: 'close' });
    await session.until('the session ends', () => session.state === 'ended');
  }

  #uploadName() {
    return `upload-${this.owner.name}-${this.random.integer(0, 1e9)}`;
  }

  #transfer(/** @type {Promise<void>} */ transfer) {
    this.#transfers.push(transfer.catch(ignored));
  }

  /**
   * Waits for what only the session that steers can cause, and only while no other session has ended, because
   * the agent then stops the stream and the clipboard of all until the relay starts them again.
   * @param {string} what @param {() => boolean} condition
   */
  #steered(what, condition) {
    const { session, machine } = this;
    const started = session.streaming;
    return session.until(
      what,
      () => condition() || !session.steers,
      (since) => machine.disturbed >= since - 1000 || !started,
    );
  }
}

/** An action that was given up has been judged already. */
function ignored(/** @type {unknown} */ error) {
  if (!(error instanceof GivenUp)) throw error;
}

/** @param {Representative} owner @param {Machine} machine */
async function asked(owner, machine) {
  const session = new Session(owner, machine);
  const { world } = owner;
  const agent = owner.entry(machine.name)?.id;
  owner.sessions.clear();
  owner.asking = session;
  owner.refusal = null;
  world.counts.opened++;
  machine.questions++;
  owner.control({ type: 'open', agent });
  const answered = () => owner.refusal || session.state === 'accepted' || session.state === 'ended';
  const over = () => !owner.connected && 'the connection has ended';
  try {
    await world.until(`${owner.name} asks for ${machine.name}`, answered, { machine: machine.name, over });
  } catch (error) {
    // Whoever was asked may still look at the question.
    machine.unanswered = performance.now();
    machine.refused.push(performance.now());
    throw error;
  } finally {
    owner.asking = null;
    machine.questions--;
    if (!owner.refusal) machine.questionGone = performance.now();
  }
  return session;
}

/**
 * A machine that can be asked now, or now and then any.
 * @param {Representative} owner
 * @param {Random} random
 */
function chosen({ machines }, random) {
  const now = performance.now();
  const free = machines.filter((one) => !one.questions && now - one.unanswered > NOT_ASKED_AGAIN_MS);
  return random.integer(1, ASKS_ANYWAY_ONE_IN) === 1 || !free.length
    ? random.one(machines)
    : random.one(free);
}

/** Visits machines until the run ends. @param {Representative} owner @param {Random} random */
export async function visits(owner, random) {
  const { world } = owner;
  while (!world.ending) {
    if (world.resting) {
      await pause(100);
      continue;
    }
    await visitOne(owner, chosen(owner, random), random).catch(ignored);
  }
}

/** @param {Representative} owner @param {Machine} machine @param {Random} random */
async function visitOne(owner, machine, random) {
  const { world } = owner;
  if (!owner.connected) await owner.connect();
  await world.until(`${owner.name} sees ${machine.name} online`, () => owner.online(machine.name), {
    machine: machine.name,
    over: () => (world.stopping ? 'the work ends' : !owner.connected && 'the connection has ended'),
    deadlineMs: RETURN_MS,
  });
  const session = await asked(owner, machine);
  if (session.state === 'accepted') await visited(new Visit(session, random));
  else await pause(random.integer(500, 2000));
}

async function visited(/** @type {Visit} */ visit) {
  await visit.work().catch(ignored);
  await visit.leave().catch(ignored);
}
