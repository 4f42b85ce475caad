// Plays H.264 frames with the browser's own decoder, each picture as soon as it is there. After anything that leaves the
// decoder without a picture to go on from, it waits for a key frame and asks for one.
import { accessUnits, PictureCounter, readParameters } from './h264.js';

/** What the machine's conversion makes; the stream says so too, but not every decoder reads that. */
export const COLOURS = Object.freeze({
  primaries: 'bt709',
  transfer: 'iec61966-2-1',
  matrix: 'smpte170m',
  fullRange: false,
});

const ASK_EVERY_MS = 1000;
/** A decoder that is this far behind goes on at the next key frame. */
const BEHIND_MS = 400;
const BEHIND_FRAMES = 3;
/** A decoder that took this many frames for so long and gave nothing back is of no use. */
const SILENT_FRAMES = 10;
const SILENT_MS = 2500;
/** Complaints in a row, without a picture between them. */
const MOST_FAILURES = 3;

export class H264Player {
  /**
   * @param {import('./screen.js').Screen} screen
   * @param {{askForKey: () => void, giveUp: () => void}} on giveUp: this browser cannot play the stream
   */
  constructor(screen, { askForKey, giveUp }) {
    this.screen = screen;
    this.askForKey = askForKey;
    this.giveUp = giveUp;
    this.counter = new PictureCounter();
    this.hardware = 'no-preference';
    this.failures = 0;
    this.drop();
  }

  /** Forgets what is on its way; the drawn picture stays. The next stream begins with a key frame. */
  drop() {
    this.closeDecoder();
    clearTimeout(this.asking);
    this.asking = undefined;
    this.waiting = true;
  }

  /**
   * @param {Uint8Array} stream one message's pictures
   * @param {number} stamp microseconds
   */
  show(stream, stamp) {
    for (const picture of accessUnits(stream)) this.take(picture, stamp);
  }

  /** @private */
  take(/** @type {ReturnType<typeof accessUnits>[0]} */ picture, /** @type {number} */ stamp) {
    if (picture.key && picture.parameters) this.prepare(picture.parameters);
    const follows = this.counter.follows(/** @type {Uint8Array} */ (picture.slice));
    if (this.isSilent()) {
      this.fail(true);
      return;
    }
    const starts = picture.key && this.decoder !== null;
    if (!starts && (this.waiting || !follows || this.isBehind())) {
      this.awaitKey();
      return;
    }
    this.waiting = false;
    this.decode(picture, stamp);
  }

  /** @private Times rise strictly, whatever the machine's clock does. */
  decode(/** @type {{data: Uint8Array, key: boolean}} */ { data, key }, /** @type {number} */ stamp) {
    this.time = Math.max(stamp, this.time + 1);
    this.pending.push({ time: this.time, at: performance.now() });
    try {
      this.decoder?.decode(
        new EncodedVideoChunk({ type: key ? 'key' : 'delta', timestamp: this.time, data }),
      );
    } catch {
      this.fail();
    }
  }

  /** @private A decoder for these parameters; the one that there is if they are the same. */
  prepare(/** @type {Uint8Array} */ unit) {
    const parameters = readParameters(unit);
    const print = String(unit);
    this.counter.restart(parameters);
    if (!parameters || (this.decoder && this.print === print)) return;
    this.closeDecoder();
    this.print = print;
    const decoder = new VideoDecoder({
      output: (frame) => (decoder === this.decoder ? this.drawn(frame) : frame.close()),
      error: () => decoder === this.decoder && this.fail(),
    });
    this.decoder = decoder;
    try {
      decoder.configure({
        codec: parameters.codec,
        optimizeForLatency: true,
        colorSpace: COLOURS,
        hardwareAcceleration: /** @type {'no-preference'} */ (this.hardware),
      });
    } catch {
      this.fail();
    }
  }

  /** @private */
  drawn(/** @type {VideoFrame} */ frame) {
    this.pending = this.pending.filter(({ time }) => time > frame.timestamp);
    this.failures = 0;
    this.screen.draw(frame, frame.displayWidth, frame.displayHeight);
  }

  /** @private */
  isBehind() {
    return this.pending.length > BEHIND_FRAMES && performance.now() - this.pending[0].at > BEHIND_MS;
  }

  /** @private */
  isSilent() {
    return this.pending.length > SILENT_FRAMES && performance.now() - this.pending[0].at > SILENT_MS;
  }

  /** @private */
  fail(silent = false) {
    this.closeDecoder();
    this.failures += 1;
    if (this.failures >= MOST_FAILURES || (silent && this.hardware === 'prefer-software')) {
      this.failures = 0;
      this.giveUp();
      return;
    }
    if (silent || this.failures > 1) this.hardware = 'prefer-software';
    this.awaitKey();
  }

  /** @private Asks at once and then every second until a key frame is there, and never more often. */
  awaitKey() {
    this.waiting = true;
    if (this.asking !== undefined) return;
    this.askForKey();
    this.asking = setTimeout(() => {
      this.asking = undefined;
      if (this.waiting) this.awaitKey();
    }, ASK_EVERY_MS);
  }

  /** @private */
  closeDecoder() {
    const { decoder } = this;
    this.decoder = null;
    /** Frames that went in and have not come out. @type {{time: number, at: number}[]} */
    this.pending = [];
    this.time = -1;
    this.print = '';
    if (decoder && decoder.state !== 'closed') decoder.close();
  }
}
