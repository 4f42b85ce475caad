// The checks of a stream's pictures: they belong to the machine that was asked, none is damaged, and none
// comes twice.

/** @typedef {import('./session.mjs').Session} Session */
/** @typedef {import('./session.mjs').Config} Config */

const LETTERS = 26;
/** Longer than every picture of soak_agent. */
const ALPHABET = Buffer.from(Array.from({ length: 400_000 }, (_, i) => 97 + (i % LETTERS)));
const STAMP_BYTES = 8;
/** So long after a change of the control, the rest of another stream may arrive. */
const OVERTAKEN_MS = 10_000;
const START_CODE = Buffer.from([0, 0, 1]);
const NAL_TYPE = 0x1f;
const SPS = 7;
const JPEG = 0xffd8;

/**
 * What a picture of soak_agent says.
 * @typedef {{name: string, run: string, counter: number, monitor: number}} Mark
 */

/** @param {Buffer} content @returns {Mark | null} null when the picture is damaged */
function markOf(content) {
  const from = content.indexOf('SOAK ');
  const end = content.indexOf('\n', from);
  if (from < 0 || end < 0) return null;
  const [, name, run, counter, monitor, length] = content.toString('latin1', from, end).split(' ');
  const first = Number(counter) % LETTERS;
  const letters = content.subarray(end + 1);
  const whole = letters.equals(ALPHABET.subarray(first, first + Number(length)));
  return whole ? { name, run, counter: Number(counter), monitor: Number(monitor) } : null;
}

export class PictureCheck {
  #session;
  #counter = 0;
  #stamp = -1;
  /** The run of the agent that answered the request; a session does not outlive it. */
  #run = '';
  /**
   * How often the relay may still show pictures again that have arrived before: once to a new viewer, after a
   * return, and for each StreamStart of a viewer who does not steer. The configuration of a new stream can
   * overtake these.
   */
  #repeats = 0;
  /** Whether the next picture is the first of its configuration. */
  #first = false;

  constructor(/** @type {Session} */ session) {
    this.#session = session;
  }

  mayRepeat() {
    this.#repeats++;
  }

  configured() {
    this.#first = true;
    this.#stamp = -1;
  }

  /** @param {Uint8Array} payload @param {Config | null} config @returns {number} the picture's stamp */
  check(payload, config) {
    const stamp = Number(new DataView(payload.buffer, payload.byteOffset).getBigUint64(0, true));
    const content = Buffer.from(payload.buffer, payload.byteOffset, payload.length).subarray(STAMP_BYTES);
    if (!config) this.#wrong('a picture before the first configuration');
    else if (!this.#isOvertaken) this.#checkCodec(content, config);
    // The stream of a new StreamStart counts from 0, and its configuration is sent before.
    if (stamp <= this.#stamp && !this.#isOvertaken) this.#wrong(`the stamp ${stamp} after ${this.#stamp}`);
    this.#stamp = stamp;
    if (this.#session.machine.counts) this.#checkMark(markOf(content));
    this.#first = false;
    return stamp;
  }

  checkThumbnail(/** @type {Uint8Array} */ bytes) {
    const content = Buffer.from(bytes);
    const { machine } = this.#session;
    if (machine.counts && markOf(content)?.name !== machine.name)
      this.#wrong('a damaged or foreign thumbnail');
    if (!machine.counts && content.readUInt16BE() !== JPEG)
      this.#wrong('a thumbnail that is not a JPEG file');
  }

  #checkCodec(/** @type {Buffer} */ content, /** @type {Config} */ config) {
    const at = content.indexOf(START_CODE);
    const isH264 = at === 0 || (at === 1 && content[0] === 0);
    if (isH264 !== (config.codec === 'h264')) this.#wrong(`a picture that is not ${config.codec}`);
    if (isH264 && this.#first && !this.#hasParameters(content))
      this.#wrong('the first picture is not a key frame');
    if (!isH264 && !this.#session.machine.counts && content.readUInt16BE() !== JPEG)
      this.#wrong('a broken JPEG file');
  }

  /**
   * A session that has joined has had a short stream of its own, whose configuration the relay has dropped. When the
   * session gets the control meanwhile, the relay passes on the rest of that stream, before the new one's
   * configuration.
   */
  get #isOvertaken() {
    return performance.now() - this.#session.steeringChanged < OVERTAKEN_MS;
  }

  /** Whether a sequence parameter set is in the picture; encoders may put a delimiter before it. */
  #hasParameters(/** @type {Buffer} */ content) {
    for (let at = content.indexOf(START_CODE); at >= 0; at = content.indexOf(START_CODE, at + 3))
      if ((content[at + 3] & NAL_TYPE) === SPS) return true;
    return false;
  }

  #checkMark(/** @type {Mark | null} */ mark) {
    if (!mark) return this.#wrong('a damaged picture');
    const { name, run, counter } = mark;
    if (name !== this.#session.machine.name) this.#wrong(`a picture of ${name}`);
    if (this.#run && run !== this.#run) this.#wrong(`a picture of run ${run} after one of run ${this.#run}`);
    if (counter <= this.#counter && this.#first && this.#repeats > 0) this.#repeats--;
    else if (counter <= this.#counter) this.#wrong(`picture ${counter} after picture ${this.#counter}`);
    this.#run = run;
    this.#counter = counter;
    this.#session.monitor = mark.monitor;
  }

  #wrong(/** @type {string} */ what) {
    this.#session.world.wrong(`${this.#session.label}: ${what}`);
  }
}
