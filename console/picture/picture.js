// The picture of a session: selects the codec, and passes each frame to the player of the codec that the
// machine sends.
import { Msg } from '../link/messages.js';
import { H264Player } from './h264_player.js';
import { playsH264 } from './h264_probe.js';
import { JpegPlayer } from './jpeg_player.js';

/** @typedef {'h264' | 'mjpeg'} Codec */
/**
 * Why the pictures are not shown in H.264 although the representative chose it: the machine sends JPEG; this
 * browser has no decoder; its decoder failed with this machine's stream.
 * @typedef {'noEncoder' | 'noDecoder' | 'cannotPlay'} Obstacle
 */

const STAMP_BYTES = 8;

export class Picture {
  #send;
  #onChange;
  #times;
  #jpeg;
  #h264;
  /** @type {Codec} the representative's choice */
  #chosen = 'h264';
  /** @type {Codec} */
  #wanted = 'h264';
  /** @type {Codec | ''} */
  #codec = '';
  #hasH264 = true;
  #browserPlaysH264 = true;
  #noEncoder = false;
  #slowLine = false;

  /**
   * @param {import('./screen.js').Screen} screen
   * @param {{send: (type: number, value: object) => void, onChange: () => void}} outlets onChange: called
   *   when `wanted`, `codec`, `hasH264` or `obstacle` may have changed
   */
  constructor(screen, { send, onChange }) {
    this.#send = send;
    this.#onChange = onChange;
    this.#times = screen.times;
    this.#jpeg = new JpegPlayer(screen);
    this.#h264 = new H264Player(screen, {
      askForKey: () => send(Msg.KeyframeRequest, {}),
      giveUp: () => this.#withoutH264(),
    });
    playsH264().then((plays) => {
      this.#browserPlaysH264 = plays;
      if (!plays) this.#withoutH264();
    });
  }

  /** The codec that the console requests. */
  get wanted() {
    return this.#wanted;
  }

  /** The codec that the machine sends; '' until its first configuration message. */
  get codec() {
    return this.#codec;
  }

  /** Whether this browser can play this session's H.264. */
  get hasH264() {
    return this.#hasH264;
  }

  /** @returns {Obstacle | ''} '' without an obstacle, and when the representative chose JPEG */
  get obstacle() {
    if (this.#chosen !== 'h264') return '';
    if (!this.#browserPlaysH264) return 'noDecoder';
    if (!this.#hasH264) return 'cannotPlay';
    return this.#noEncoder ? 'noEncoder' : '';
  }

  get slowLine() {
    return this.#slowLine;
  }

  /**
   * Prepares for a line on which the picture never changes to JPEG by itself, because JPEG needs many times
   * the bytes. To be set before the start of a stream.
   */
  set slowLine(/** @type {boolean} */ on) {
    this.#slowLine = on;
    this.#wanted = this.#permitted();
    this.#onChange();
  }

  /**
   * Prepares for another session. If the browser plays H.264, the codec is available again, even after the
   * stream of another machine failed to play.
   */
  begin() {
    this.#hasH264 = this.#browserPlaysH264;
    this.#wanted = this.#permitted();
    this.#codec = '';
    this.#noEncoder = false;
    this.#onChange();
  }

  /**
   * To be called after each start of a stream. A stream begins with H.264, whatever codec was chosen before.
   */
  started() {
    this.#codec = '';
    this.drop();
    if (this.#wanted !== 'h264') this.#select();
  }

  /** To be called before the pictures of a stream that runs already, which begin with its configuration. */
  goOn() {
    this.#codec = '';
    this.drop();
  }

  /** Sets the representative's choice for a stream that has not begun, or that runs with it already. */
  restore(/** @type {Codec} */ codec) {
    this.#chosen = codec;
    this.#wanted = this.#permitted();
    this.#onChange();
  }

  choose(/** @type {Codec} */ codec) {
    this.#chosen = codec;
    this.#noEncoder = false;
    this.#wantPermitted();
  }

  /** Tries again to play H.264 after the decoder has failed. */
  retry() {
    this.#hasH264 = this.#browserPlaysH264;
    this.#h264.drop();
    this.#wantPermitted();
  }

  /** @param {Record<string, unknown> | null} config the machine's description of the frames that follow */
  configured(config) {
    this.#codec = config?.codec === 'h264' ? 'h264' : 'mjpeg';
    this.#noEncoder = this.#codec === 'mjpeg' && this.#wanted === 'h264';
    this.drop();
    if (this.#codec === 'h264' && !this.#hasH264 && this.#wanted === 'mjpeg') this.#select();
    this.#onChange();
  }

  frame(/** @type {Uint8Array<ArrayBuffer>} */ payload) {
    const picture = payload.subarray(STAMP_BYTES);
    const stamp = stampOf(payload);
    this.#times.received(stamp);
    if (this.#codec !== 'h264') this.#jpeg.show(picture, stamp);
    else if (this.#hasH264) this.#h264.show(picture, stamp);
  }

  /** Drops the frames that are not drawn yet. */
  drop() {
    this.#jpeg.drop();
    this.#h264.drop();
    this.#times.clear();
  }

  /** @returns {Codec} the representative's choice, or JPEG where H.264 cannot be played */
  #permitted() {
    return this.#hasH264 || this.#slowLine ? this.#chosen : 'mjpeg';
  }

  #wantPermitted() {
    const before = this.#wanted;
    this.#wanted = this.#permitted();
    if (this.#wanted !== before) this.#select();
    this.#onChange();
  }

  #select() {
    this.#send(Msg.CodecSelect, { codec: this.#wanted });
  }

  #withoutH264() {
    if (!this.#hasH264) return;
    this.#hasH264 = false;
    this.#h264.drop();
    this.#wantPermitted();
  }
}

/** The frame's time in microseconds, limited to 53 bits, which a number represents exactly. */
function stampOf(/** @type {Uint8Array<ArrayBuffer>} */ payload) {
  if (payload.length < STAMP_BYTES) return 0;
  return Number(new DataView(payload.buffer, payload.byteOffset).getBigUint64(0, true) & 0x1fffffffffffffn);
}
