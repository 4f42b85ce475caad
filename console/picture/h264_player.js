// Plays H.264 frames with the browser's own decoder, each as soon as it arrives. After anything that leaves
// the decoder without a reference picture, the player requests a key frame and waits for it.
import { accessUnits, PictureCounter, readParameters } from './h264.js';

/** The colour space of the agent's pictures. The stream declares it too, but not every decoder reads that. */
export const COLOURS = Object.freeze({
  primaries: 'bt709',
  transfer: 'iec61966-2-1',
  matrix: 'smpte170m',
  fullRange: false,
});

const ASK_INTERVAL_MS = 1000;
/** A decoder counts as late when more than LATE_FRAMES frames wait in it, the oldest for over LATE_MS. */
const LATE_FRAMES = 3;
const LATE_MS = 400;
/**
 * A decoder counts as silent, and so as failed, when more than SILENT_FRAMES frames wait in it, the oldest
 * for over SILENT_MS, and it has put out no frame for as long. A slow decoder is late, but not silent.
 */
const SILENT_FRAMES = 10;
const SILENT_MS = 2500;
/** Failures in a row, without a picture between them, after which the player gives up. */
const MAX_FAILURES = 3;

export class H264Player {
  #screen;
  #askForKey;
  #giveUp;
  #counter = new PictureCounter();
  /** @type {HardwareAcceleration} */
  #hardware = 'no-preference';
  #failures = 0;
  /** @type {VideoDecoder | null} */
  #decoder = null;
  /**
   * Frames that wait in the decoder. time: their time in the stream; at: when they were passed to the
   * decoder; stamp: the machine's time of their capture.
   * @type {{time: number, at: number, stamp: number}[]}
   */
  #pending = [];
  #time = -1;
  /** When the last frame came out of a decoder. */
  #drawnAt = 0;
  /** The parameter set that the decoder is configured for, as text. */
  #parameters = '';
  #waitingForKey = true;
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  #askTimer;

  /**
   * @param {import('./screen.js').Screen} screen
   * @param {{askForKey: () => void, giveUp: () => void}} outlets giveUp: called when the stream cannot be
   *   played
   */
  constructor(screen, { askForKey, giveUp }) {
    this.#screen = screen;
    this.#askForKey = askForKey;
    this.#giveUp = giveUp;
  }

  /**
   * Drops the frames that are not drawn yet; the drawn picture stays. Playing continues with the next key
   * frame.
   */
  drop() {
    this.#closeDecoder();
    clearTimeout(this.#askTimer);
    this.#askTimer = undefined;
    this.#waitingForKey = true;
  }

  /**
   * @param {Uint8Array<ArrayBuffer>} stream the pictures of one message
   * @param {number} stamp the time of the message, in microseconds
   */
  show(stream, stamp) {
    for (const picture of accessUnits(stream)) this.#take(picture, stamp);
  }

  #take(/** @type {import('./h264.js').AccessUnit} */ picture, /** @type {number} */ stamp) {
    if (picture.key && picture.parameters) this.#prepare(picture.parameters);
    const complete = this.#counter.follows(picture.slice);
    if (this.#isBehind(SILENT_FRAMES, SILENT_MS) && performance.now() - this.#drawnAt > SILENT_MS) {
      this.#fail(true);
      return;
    }
    const starts = picture.key && this.#decoder !== null;
    if (!starts && (this.#waitingForKey || !complete || this.#isBehind(LATE_FRAMES, LATE_MS))) {
      this.#awaitKey();
      return;
    }
    this.#waitingForKey = false;
    this.#decode(picture, stamp);
  }

  /**
   * Passes the picture to the decoder, with strictly increasing times even when the machine's clock stands
   * still or runs backwards.
   */
  #decode(/** @type {import('./h264.js').AccessUnit} */ { data, key }, /** @type {number} */ stamp) {
    this.#time = Math.max(stamp, this.#time + 1);
    this.#pending.push({ time: this.#time, at: performance.now(), stamp });
    try {
      this.#decoder?.decode(
        new EncodedVideoChunk({ type: key ? 'key' : 'delta', timestamp: this.#time, data }),
      );
    } catch {
      this.#fail();
    }
  }

  /** Creates a decoder for this parameter set, unless the current decoder was created for the same set. */
  #prepare(/** @type {Uint8Array} */ unit) {
    const parameters = readParameters(unit);
    const text = String(unit);
    this.#counter.restart(parameters);
    if (!parameters || (this.#decoder && this.#parameters === text)) return;
    this.#closeDecoder();
    this.#parameters = text;
    /** @type {VideoDecoder} */
    const decoder = new VideoDecoder({
      output: (frame) => (decoder === this.#decoder ? this.#drawn(frame) : frame.close()),
      error: () => decoder === this.#decoder && this.#fail(),
    });
    this.#decoder = decoder;
    try {
      decoder.configure({
        codec: parameters.codec,
        optimizeForLatency: true,
        colorSpace: COLOURS,
        hardwareAcceleration: this.#hardware,
      });
    } catch {
      this.#fail();
    }
  }

  #drawn(/** @type {VideoFrame} */ frame) {
    const stamp = this.#pending.find(({ time }) => time === frame.timestamp)?.stamp ?? frame.timestamp;
    this.#pending = this.#pending.filter(({ time }) => time > frame.timestamp);
    this.#failures = 0;
    this.#drawnAt = performance.now();
    this.#screen.draw(frame, frame.displayWidth, frame.displayHeight, stamp);
  }

  #isBehind(/** @type {number} */ frames, /** @type {number} */ ms) {
    return this.#pending.length > frames && performance.now() - this.#pending[0].at > ms;
  }

  #fail(silent = false) {
    this.#closeDecoder();
    this.#failures += 1;
    if (this.#failures >= MAX_FAILURES || (silent && this.#hardware === 'prefer-software')) {
      this.#failures = 0;
      this.#giveUp();
      return;
    }
    if (silent || this.#failures > 1) this.#hardware = 'prefer-software';
    this.#awaitKey();
  }

  /** Requests a key frame at once, and then every second until one arrives, but never more often. */
  #awaitKey() {
    this.#waitingForKey = true;
    if (this.#askTimer !== undefined) return;
    this.#askForKey();
    this.#askTimer = setTimeout(() => {
      this.#askTimer = undefined;
      if (this.#waitingForKey) this.#awaitKey();
    }, ASK_INTERVAL_MS);
  }

  #closeDecoder() {
    const decoder = this.#decoder;
    this.#decoder = null;
    this.#pending = [];
    this.#time = -1;
    this.#parameters = '';
    if (decoder && decoder.state !== 'closed') decoder.close();
  }
}
